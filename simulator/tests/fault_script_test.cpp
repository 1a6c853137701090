#include "velmora_can_bridge/simulator/fault_script.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string scope_text(const TransferScope& scope) {
  static constexpr const char* sorts[] = {"transfer", "read", "write"};
  return sorts[static_cast<int>(scope.sort)] +
         (scope.object ? " " + object_text(scope.object->index, scope.object->sub_index) : "");
}

std::string beginning_text(const Fault& fault) {
  return fault.after_transfers == 0
             ? " @" + std::to_string(fault.at.count())
             : " after " + std::to_string(fault.after_transfers) + " " + scope_text(fault.counted);
}

/// All that the line has set: "0x10 @2500 restart".
std::string described(const Fault& fault) {
  static constexpr const char* kinds[] = {"no answer",   "late",    "abort",
                                          "toggle",      "short",   "held",
                                          "drive fault", "restart", "no heartbeat"};
  const bool has_object = fault.object.index != 0;
  std::string text =
      hex<2>(fault.node_id) + beginning_text(fault) + " " + kinds[static_cast<int>(fault.kind)];
  text += fault.lateness.count() == 0 ? "" : " by " + std::to_string(fault.lateness.count());
  text += fault.code == 0 ? "" : " " + hex<8>(fault.code);
  text += fault.kind == FaultKind::short_answer ? " " + std::to_string(fault.bytes) : "";
  text += has_object ? " " + object_text(fault.object.index, fault.object.sub_index) : "";
  text += fault.device.empty() ? "" : " [" + fault.device + "]";
  text += fault.kind <= FaultKind::short_answer ? " of " + scope_text(fault.struck) : "";
  text += fault.duration ? " for " + std::to_string(fault.duration->count()) : "";
  text += fault.transfers == 0 ? "" : " x" + std::to_string(fault.transfers);
  return text;
}

std::vector<std::string> mistakes(const std::vector<FaultScriptProblem>& problems) {
  std::vector<std::string> texts;
  for (const FaultScriptProblem& problem : problems) {
    texts.push_back(std::to_string(problem.line) + ":" + std::to_string(problem.column) + ": " +
                    problem.message);
  }
  return texts;
}

/// What the script says, a text for each fault, or its mistakes as "LINE:COLUMN: MESSAGE". Node 16
/// has one drive, node 17 two, node 18 none.
std::vector<std::string> read(const std::string& script) {
  const SimulatedBusNode one(16, {{}, {{"wheel", {"ci402", 0x6040, 0}}}});
  const SimulatedBusNode two(
      17, {{}, {{"left wheel", {"ci402", 0x6040, 0}}, {"right", {"ci402", 0x6840, 0}}}});
  const SimulatedBusNode bare(18);
  const FaultScript faults = parse_fault_script(script, {&one, &two, &bare});
  if (!faults) {
    return mistakes(faults.error());
  }
  std::vector<std::string> texts;
  for (const Fault& fault : *faults) {
    texts.push_back(described(fault));
  }
  return texts;
}

struct LineCase {
  std::string name;
  std::string line;
  std::string expected;
};

void PrintTo(const LineCase& row, std::ostream* out) { *out << row.name; }

class FaultLineTest : public testing::TestWithParam<LineCase> {};

TEST_P(FaultLineTest, says_one_fault) {
  EXPECT_THAT(read(GetParam().line), ElementsAre(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    of, FaultLineTest,
    testing::Values(
        LineCase{"restart", "node 0x10 at 2.5 s: restart", "0x10 @2500 restart"},
        LineCase{"decimal_node", "node 16 at 2.5 s: restart", "0x10 @2500 restart"},
        LineCase{"joined_time", "node 16 at 250ms: restart", "0x10 @250 restart"},
        LineCase{"time_of_the_beginning", "node 16 at 0 s: restart", "0x10 @0 restart"},
        LineCase{"colon_alone", "node 16 at 1 s : restart", "0x10 @1000 restart"},
        LineCase{"blanks_around", " \tnode  16\tat 1 s:  restart \r", "0x10 @1000 restart"},
        LineCase{"comment", "node 16 at 1 s: restart # as after a brown-out", "0x10 @1000 restart"},
        LineCase{"after_transfers", "node 16 after 4 transfers of 0x6041/0: restart",
                 "0x10 after 4 transfer 0x6041/0 restart"},
        LineCase{"after_one_read", "node 16 after 1 read of 0x6041/0: restart",
                 "0x10 after 1 read 0x6041/0 restart"},
        LineCase{"after_writes", "node 16 after 2 writes of 24640/0: restart",
                 "0x10 after 2 write 0x6040/0 restart"},
        LineCase{"no_answer", "node 16 at 1 s: no answer", "0x10 @1000 no answer of transfer x1"},
        LineCase{"no_answer_for_a_time", "node 16 at 1 s: no answer for 3 s",
                 "0x10 @1000 no answer of transfer for 3000"},
        LineCase{"no_answer_for_some_transfers", "node 16 at 1 s: no answer for 3 transfers",
                 "0x10 @1000 no answer of transfer x3"},
        LineCase{"no_answer_for_one_transfer", "node 16 at 1 s: no answer for 1 transfer",
                 "0x10 @1000 no answer of transfer x1"},
        LineCase{"no_answer_any_more", "node 16 at 1 s: no answer from then on",
                 "0x10 @1000 no answer of transfer"},
        LineCase{"no_answer_in_reads", "node 16 at 1 s: no answer in reads",
                 "0x10 @1000 no answer of read x1"},
        LineCase{"no_answer_in_reads_of_an_object",
                 "node 16 at 1 s: no answer in reads of 0x6041/0 for 3 s",
                 "0x10 @1000 no answer of read 0x6041/0 for 3000"},
        LineCase{"strikes_what_it_counts", "node 16 after 4 reads of 0x6041/0: no answer",
                 "0x10 after 4 read 0x6041/0 no answer of read 0x6041/0 x1"},
        LineCase{"strikes_other_transfers_than_it_counts",
                 "node 16 after 4 reads of 0x6041/0: no answer in writes for 2 transfers",
                 "0x10 after 4 read 0x6041/0 no answer of write x2"},
        LineCase{"late", "node 16 at 1 s: answer 300 ms late",
                 "0x10 @1000 late by 300 of transfer x1"},
        LineCase{"late_for_a_time", "node 16 at 1 s: answer 0.3s late for 2 s",
                 "0x10 @1000 late by 300 of transfer for 2000"},
        LineCase{"short_answer", "node 16 at 1 s: answer with 1 byte in reads of 0x6041/0",
                 "0x10 @1000 short 1 of read 0x6041/0 x1"},
        LineCase{"short_to_nothing", "node 16 at 1 s: answer with 0 bytes",
                 "0x10 @1000 short 0 of transfer x1"},
        LineCase{"abort", "node 16 after 4 transfers of 0x6041/0: abort 0x08000000",
                 "0x10 after 4 transfer 0x6041/0 abort 0x08000000 of transfer 0x6041/0 x1"},
        LineCase{"wrong_toggle", "node 16 at 1 s: wrong toggle in reads of 0x1008/0",
                 "0x10 @1000 toggle of read 0x1008/0 x1"},
        LineCase{"held", "node 16 at 1 s: hold 0x6064/0", "0x10 @1000 held 0x6064/0"},
        LineCase{"held_for_a_time", "node 16 at 1 s: hold 0x6064/0 for 2 s",
                 "0x10 @1000 held 0x6064/0 for 2000"},
        LineCase{"held_from_then_on", "node 16 at 1 s: hold 0x6064/0 from then on",
                 "0x10 @1000 held 0x6064/0"},
        LineCase{"fault_of_the_only_drive", "node 16 at 1 s: drive fault 0x2310",
                 "0x10 @1000 drive fault 0x00002310 [wheel]"},
        LineCase{"fault_of_a_drive", "node 17 at 1 s: drive fault 8976 of left wheel # hot",
                 "0x11 @1000 drive fault 0x00002310 [left wheel]"},
        LineCase{"no_heartbeat", "node 18 at 1 s: no heartbeat", "0x12 @1000 no heartbeat"},
        LineCase{"no_heartbeat_for_a_time", "node 18 at 1 s: no heartbeat for 2 s",
                 "0x12 @1000 no heartbeat for 2000"}),
    [](const auto& row) { return row.param.name; });

class FaultMistakeTest : public testing::TestWithParam<LineCase> {};

TEST_P(FaultMistakeTest, is_told_with_its_place) {
  EXPECT_THAT(read("# a comment\n" + GetParam().line), ElementsAre(GetParam().expected));
}

const std::string no_fault =
    "expected a fault (no answer, answer late, answer with fewer bytes, abort, wrong toggle, hold, "
    "drive fault, restart or no heartbeat), found ";
const std::string no_time = "expected a time such as 2.5 s or 200 ms, up to 86400 s, found ";

INSTANTIATE_TEST_SUITE_P(
    of, FaultMistakeTest,
    testing::Values(
        LineCase{"no_node", "restart at 1 s", "2:1: expected \"node\", found \"restart\""},
        LineCase{"misspelt_node", "noed 16 at 1 s: restart",
                 "2:1: expected \"node\", found \"noed\", did you mean \"node\"?"},
        LineCase{"node_without_id", "node",
                 "2:5: expected a node id, 1 to 127, found the end of the line"},
        LineCase{"node_that_is_no_number", "node wheel at 1 s: restart",
                 "2:6: expected a node id, 1 to 127, found \"wheel\""},
        LineCase{"node_0", "node 0 at 1 s: restart",
                 "2:6: expected a node id, 1 to 127, found \"0\""},
        LineCase{"node_that_looks_octal", "node 016 at 1 s: restart",
                 "2:6: expected a node id, 1 to 127, found \"016\""},
        LineCase{"node_that_is_not_simulated", "node 0x13 at 1 s: restart",
                 "2:6: no node 0x13 is simulated, expected 0x10, 0x11 or 0x12"},
        LineCase{"no_beginning", "node 16: restart",
                 "2:8: expected \"at\" or \"after\", found \":\""},
        LineCase{"misspelt_beginning", "node 16 aftre 1 s: restart",
                 "2:9: expected \"at\" or \"after\", found \"aftre\", did you mean \"after\"?"},
        LineCase{"time_without_unit", "node 16 at 2: restart", "2:12: " + no_time + "\"2\""},
        LineCase{"time_of_another_unit", "node 16 at 2 min: restart", "2:12: " + no_time + "\"2\""},
        LineCase{"time_below_0", "node 16 at -2 s: restart", "2:12: " + no_time + "\"-2s\""},
        LineCase{"more_than_a_day", "node 16 at 90000 s: restart",
                 "2:12: " + no_time + "\"90000s\""},
        LineCase{"no_time", "node 16 at", "2:11: " + no_time + "the end of the line"},
        LineCase{"after_no_transfers", "node 16 after 0 transfers of 0x6041/0: restart",
                 "2:15: expected a number of transfers, 1 or more, found \"0\""},
        LineCase{"after_too_many_transfers", "node 16 after 4294967296 reads of 0x6041/0: restart",
                 "2:15: expected a number of transfers, 1 or more, found \"4294967296\""},
        LineCase{"after_other_things", "node 16 after 2 reeds of 0x6041/0: restart",
                 "2:17: expected \"transfers\", \"reads\" or \"writes\", found \"reeds\", did you "
                 "mean \"reads\"?"},
        LineCase{"after_transfers_of_nothing", "node 16 after 2 reads: restart",
                 "2:22: expected \"of\", found \":\""},
        LineCase{"object_with_a_colon", "node 16 after 2 reads of 0x6041:00: restart",
                 "2:26: expected an object such as 0x6041/0, found \"0x6041:00\""},
        LineCase{"object_without_sub_index", "node 16 at 1 s: hold 0x6041",
                 "2:22: expected an object such as 0x6041/0, found \"0x6041\""},
        LineCase{"index_too_large", "node 16 at 1 s: hold 0x16041/0",
                 "2:22: expected an object such as 0x6041/0, found \"0x16041/0\""},
        LineCase{"sub_index_too_large", "node 16 at 1 s: hold 0x6041/256",
                 "2:22: expected an object such as 0x6041/0, found \"0x6041/256\""},
        LineCase{"object_that_is_not_there", "node 18 at 1 s: hold 0x6041/0",
                 "2:22: node 0x12 has no object 0x6041/0"},
        LineCase{"counted_object_that_is_not_there", "node 18 after 2 reads of 0x6041/0: restart",
                 "2:26: node 0x12 has no object 0x6041/0"},
        LineCase{"no_colon", "node 16 at 1 s restart", "2:16: expected \":\", found \"restart\""},
        LineCase{"no_fault", "node 16 at 1 s:", "2:16: " + no_fault + "the end of the line"},
        LineCase{"unknown_fault", "node 16 at 1 s: explode", "2:17: " + no_fault + "\"explode\""},
        LineCase{"misspelt_fault", "node 16 at 1 s: restrat",
                 "2:17: " + no_fault + "\"restrat\", did you mean \"restart\"?"},
        LineCase{"no_what", "node 16 at 1 s: no hartbeat",
                 "2:20: expected \"answer\" or \"heartbeat\", found \"hartbeat\", did you mean "
                 "\"heartbeat\"?"},
        LineCase{"late_by_no_time", "node 16 at 1 s: answer late", "2:24: " + no_time + "\"late\""},
        LineCase{"late_by_0", "node 16 at 1 s: answer 0 ms late",
                 "2:24: expected a time of 1 ms or more, found \"0ms\""},
        LineCase{"answer_at_a_time", "node 16 at 1 s: answer 5 ms",
                 "2:28: expected \"late\", found the end of the line"},
        LineCase{"short_without_a_number", "node 16 at 1 s: answer with bytes",
                 "2:29: expected a number of bytes, 0 to 1048576, found \"bytes\""},
        LineCase{"short_writes", "node 16 at 1 s: answer with 1 byte in writes",
                 "2:29: a write is answered without bytes, name the reads that are struck, as in "
                 "\"in reads of 0x6041/0\""},
        LineCase{"abort_without_code", "node 16 at 1 s: abort",
                 "2:22: expected an abort code such as 0x08000000, found the end of the line"},
        LineCase{"abort_code_too_large", "node 16 at 1 s: abort 0x100000000",
                 "2:23: expected an abort code such as 0x08000000, found \"0x100000000\""},
        LineCase{"wrong_thing", "node 16 at 1 s: wrong answer",
                 "2:23: expected \"toggle\", found \"answer\""},
        LineCase{"in_nothing", "node 16 at 1 s: no answer in 0x6041/0",
                 "2:30: expected \"transfers\", \"reads\" or \"writes\", found \"0x6041/0\""},
        LineCase{"for_no_time", "node 16 at 1 s: no answer for 0 s",
                 "2:31: expected a time of 1 ms or more, found \"0s\""},
        LineCase{"for_no_transfers", "node 16 at 1 s: no answer for 0 transfers",
                 "2:31: expected a number of transfers, 1 or more, found \"0\""},
        LineCase{"held_for_transfers", "node 16 at 1 s: hold 0x6041/0 for 2 transfers",
                 "2:35: " + no_time + "\"2\""},
        LineCase{"from_now_on", "node 16 at 1 s: no heartbeat from now on",
                 "2:35: expected \"then\", found \"now\""},
        LineCase{"error_code_too_large", "node 16 at 1 s: drive fault 0x12310",
                 "2:29: expected an error code such as 0x2310, found \"0x12310\""},
        LineCase{"drive_without_fault", "node 16 at 1 s: drive 0x2310",
                 "2:23: expected \"fault\", found \"0x2310\""},
        LineCase{"drive_without_name", "node 16 at 1 s: drive fault 0x2310 of",
                 "2:38: expected the name of a device with a drive, found the end of the line"},
        LineCase{"no_drive", "node 18 at 1 s: drive fault 0x2310", "2:17: node 0x12 has no drive"},
        LineCase{"which_drive", "node 17 at 1 s: drive fault 0x2310",
                 "2:17: node 0x11 has several drives, name one behind \"of\": \"left wheel\" or "
                 "\"right\""},
        LineCase{"another_drive", "node 17 at 1 s: drive fault 0x2310 of left",
                 "2:39: node 0x11 has no drive \"left\", expected \"left wheel\" or \"right\""},
        LineCase{"too_much", "node 16 at 1 s: restart twice",
                 "2:25: expected the end of the line, found \"twice\""},
        LineCase{"control_character", "node 16 at 1 s: restart \x1B[2J",
                 "2:25: expected the end of the line, found \"\\x1B[2J\""}),
    [](const auto& row) { return row.param.name; });

TEST(FaultScriptTest, keeps_the_order_of_its_lines) {
  EXPECT_THAT(read("\xEF\xBB\xBFnode 16 at 2 s: restart\r\n\r\n# then\r\nnode 17 at 1 s: restart"),
              ElementsAre("0x10 @2000 restart", "0x11 @1000 restart"));
}

TEST(FaultScriptTest, may_be_empty) {
  EXPECT_THAT(read(""), IsEmpty());
  EXPECT_THAT(read("\n  \n# nothing\n"), IsEmpty());
}

TEST(FaultScriptTest, tells_all_mistakes_and_then_no_fault) {
  EXPECT_THAT(read("node 19 at 1 s: abort 0\nnode 16 at 1 s: restart\nnode 16 at 1 s: hold 1\n"),
              ElementsAre("1:6: no node 0x13 is simulated, expected 0x10, 0x11 or 0x12",
                          "1:23: expected an abort code such as 0x08000000, found \"0\"",
                          "3:22: expected an object such as 0x6041/0, found \"1\""));
}

TEST(FaultScriptTest, tells_a_hundred_mistakes) {
  std::string script;
  for (int line = 0; line < 101; ++line) {
    script += "nonsense\n";
  }
  EXPECT_EQ(read(script).size(), 101U);
  EXPECT_EQ(read(script).back(), "0:0: 1 more mistake is not listed");
  EXPECT_EQ(read(script + "x\n").back(), "0:0: 2 more mistakes are not listed");
}

TEST(FaultScriptTest, keeps_line_and_text_for_reports) {
  const SimulatedBusNode node(0x10);
  const FaultScript faults =
      parse_fault_script("\n  node 16  at 1 s: restart  # brown-out\n", {&node});
  ASSERT_TRUE(faults && faults->size() == 1);
  EXPECT_EQ(faults->front().line, 2U);
  EXPECT_EQ(faults->front().text, "node 16  at 1 s: restart");
}

TEST(FaultScriptTest, strikes_no_drive_for_one_whose_name_a_comment_cuts) {
  const SimulatedBusNode arms(
      5, {{}, {{"arm", {"ci402", 0x6040, 0}}, {"arm #2", {"ci402", 0x6840, 0}}}});
  const FaultScript faults =
      parse_fault_script("node 5 at 1 s: drive fault 0x2310 of arm #2", {&arms});
  ASSERT_FALSE(faults);
  EXPECT_THAT(
      mistakes(faults.error()),
      ElementsAre("1:38: node 0x05 has a drive \"arm #2\" as well, and no line can tell them "
                  "apart: # begins a comment"));
}

}  // namespace
}  // namespace velmora_can_bridge
