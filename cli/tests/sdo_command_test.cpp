#include <gtest/gtest.h>

#include "command_line_fixture.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

class Sdo : public CommandLine {
 protected:
  Sdo() { plug_in(); }

  NodeOnBus node{can0, 0x22};
};

TEST_F(Sdo, read_prints_bytes_and_what_they_may_mean) {
  struct Case {
    std::vector<std::uint8_t> bytes;
    std::string text;
  };
  const std::vector<Case> cases{
      {{}, "data: no bytes\n"},
      {{0xFF}, "data: FF\nunsigned: 255\nsigned: -1\n"},
      {{0x01, 0x80}, "data: 01 80\nunsigned: 32769\nsigned: -32767\n"},
      {{1, 2, 3}, "data: 01 02 03\n"},
      {{0xFF, 0xFF, 0xFF, 0xFF}, "data: FF FF FF FF\nunsigned: 4294967295\nsigned: -1\n"},
      {{0, 0, 0, 0, 0, 0, 0, 1}, "data: 00 00 00 00 00 00 00 01\nunsigned: 72057594037927936\n"},
      {{'w', 'h', 'e', 'e', 'l'}, "data: 77 68 65 65 6C\ntext: wheel\n"},
      {{'w', 'h', 'e', 'e', '\n'}, "data: 77 68 65 65 0A\n"},
  };
  for (const Case& row : cases) {
    node.node.device().add_object(0x2000, 3, object_of(row.bytes));
    EXPECT_EQ(run({"sdo", "read", "0x22", "0x2000", "3", "--bus", "can0"}), ExitStatus::success);
    EXPECT_EQ(out, row.text);
  }
}

/// The wheel of the board file on the interface.
class SdoOfWheel : public CommandLine {
 protected:
  SdoOfWheel() { plug_in(); }

  ExitStatus read(const std::string& index, const std::string& sub_index,
                  const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments{"sdo", "read", "0x10", index, sub_index, "--bus", "can0"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }

  NodeOnBus node{can0, 0x10};
};

TEST_F(SdoOfWheel, read_says_what_the_board_file_knows) {
  struct Case {
    const char* name;
    std::uint16_t index;
    std::vector<std::uint8_t> bytes;
    std::string text;
  };
  const std::vector<Case> cases{
      {"sign", 0x60FF, {0xB3, 0xFF, 0xFF, 0xFF}, "data: B3 FF FF FF\nsigned: -77\n"},
      {"no sign", 0x6083, {0xB3, 0xFF, 0xFF, 0xFF}, "data: B3 FF FF FF\nunsigned: 4294967219\n"},
      {"state",
       0x6041,
       {0x37, 0x06},
       "data: 37 06\nunsigned: 1591\nmeaning: Operation enabled, target reached\n"},
      {"command", 0x6040, {0x06, 0}, "data: 06 00\nunsigned: 6\nmeaning: shutdown\n"},
      {"mode", 0x6061, {3}, "data: 03\nsigned: 3\nmeaning: velocity\n"},
      {"error", 0x603F, {0x11, 0x86}, "data: 11 86\nunsigned: 34321\nmeaning: following error\n"},
      {"device type",
       0x1000,
       {0x92, 1, 2, 0},
       "data: 92 01 02 00\nunsigned: 131474\nmeaning: CiA 402 drive, servo\n"},
      {"short text", 0x1008, {'b', 'o', 'x'}, "data: 62 6F 78\ntext: box\n"},
      {"text for a terminal", 0x1008, {0x1B, '['}, "data: 1B 5B\ntext: \\x1B[\n"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    node.node.device().add_object(row.index, 0, object_of(row.bytes));
    const std::string index = std::to_string(row.index);
    EXPECT_EQ(read(index, "0", {"--board", board}), ExitStatus::success);
    EXPECT_EQ(out, row.text);
  }
}

TEST_F(SdoOfWheel, read_without_a_board_file_knows_what_all_nodes_have) {
  node.node.device().add_object(0x1001, 0, object_of({0x11}));
  read("0x1001", "0");
  EXPECT_EQ(out, "data: 11\nunsigned: 17\nmeaning: generic, communication\n");
}

TEST_F(SdoOfWheel, board_file_of_other_nodes_adds_nothing) {
  const std::string other = write_file("other.yaml", "nodes: [{node_id: 0x33}]");
  node.node.device().add_object(0x6041, 0, object_of({0x37, 0x06}));
  read("0x6041", "0", {"--board", other});
  EXPECT_EQ(out, "data: 37 06\nunsigned: 1591\n");
}

TEST_F(SdoOfWheel, json_has_number_and_words) {
  node.node.device().add_object(0x60FF, 0, object_of({0xB3, 0xFF, 0xFF, 0xFF}));
  read("0x60FF", "0", {"--board", board, "--json"});
  EXPECT_EQ(out, R"({"node_id":16,"index":24831,"sub_index":0,"ok":true,"code":"done",)"
                 R"("data":[179,255,255,255],"value":-77})"
                 "\n");
  node.node.device().add_object(0x6041, 0, object_of({0x37, 0x06}));
  read("0x6041", "0", {"--board", board, "--json"});
  EXPECT_EQ(out, R"({"node_id":16,"index":24641,"sub_index":0,"ok":true,"code":"done",)"
                 R"("data":[55,6],"value":1591,"words":"Operation enabled, target reached"})"
                 "\n");
}

TEST_F(Sdo, write_changes_the_object) {
  node.node.device().add_object(0x2000, 3, object_of({0, 0}));
  EXPECT_EQ(run({"sdo", "write", "34", "8192", "0x03", "u16:500", "--bus", "can0"}),
            ExitStatus::success);
  EXPECT_EQ(out, "ok: 0x2000/3 on node 0x22 written\n");
  EXPECT_EQ(node.node.device().object_value(0x2000, 3), (std::vector<std::uint8_t>{0xF4, 0x01}));
}

TEST_F(Sdo, failure_has_its_reason_and_exit_status) {
  EXPECT_EQ(run({"sdo", "read", "0x22", "0x5000", "0", "--bus", "can0"}),
            ExitStatus::operation_failed);
  EXPECT_EQ(err,
            "failed: SDO read of 0x5000/0 on node 0x22 (abort 0x06020000, no object at this "
            "index)\n");
  EXPECT_EQ(
      run({"sdo", "write", "0x23", "0x5000", "0", "hex:01", "--bus", "can0", "--timeout", "7"}),
      ExitStatus::no_answer);
  EXPECT_EQ(err,
            "failed: SDO write of 0x5000/0 on node 0x23 (no answer within 7 ms; whether the node "
            "has taken the value is unknown)\n");
}

/// A node 0x22 that answers so much later than it is asked.
class LateSdo : public Sdo {
 protected:
  LateSdo() { node.node.device().add_object(0x2000, 3, object_of({7})); }

  void answer_after(milliseconds delay) {
    can0.set_fault_rule([delay](const CanFrame& frame) {
      return std::vector<CanDelivery>{{frame, frame.id == 0x5A2 ? delay : milliseconds(0)}};
    });
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }

  const std::unique_ptr<CanEndpoint> bystander = can0.open({});
};

TEST_F(LateSdo, late_answer_is_not_taken_by_the_program_that_is_started_next) {
  answer_after(milliseconds(800));
  EXPECT_EQ(run({"sdo", "read", "0x22", "0x2000", "3", "--bus", "can0"}), ExitStatus::no_answer);
  node.node.device().add_object(0x2000, 3, object_of({8}));
  answer_after(milliseconds(100));
  EXPECT_EQ(run({"sdo", "read", "0x22", "0x2000", "3", "--bus", "can0"}), ExitStatus::success);
  EXPECT_EQ(out, "data: 08\nunsigned: 8\n");
}

TEST_F(LateSdo, late_answer_is_told_and_ends_the_listening) {
  answer_after(milliseconds(703));
  EXPECT_EQ(run({"sdo", "write", "0x22", "0x2000", "3", "u8:9", "--bus", "can0"}),
            ExitStatus::no_answer);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err,
            "failed: SDO write of 0x2000/3 on node 0x22 (no answer within 500 ms; whether the node "
            "has taken the value is unknown)\n"
            "velmora-can-bridge: node 0x22, object 0x2000/3: answered 203 ms after the time-out: "
            "the node has taken the value\n");
  EXPECT_LE(time(), milliseconds(713));
}

TEST_F(LateSdo, without_a_late_answer_the_listening_ends_with_the_quarantine) {
  EXPECT_EQ(run({"sdo", "read", "0x23", "0x2000", "3", "--bus", "can0", "--timeout", "70"}),
            ExitStatus::no_answer);
  EXPECT_EQ(err, "failed: SDO read of 0x2000/3 on node 0x23 (no answer within 70 ms)\n");
  EXPECT_EQ(time(), milliseconds(140));
}

TEST_F(LateSdo, after_a_refusal_nothing_is_listened_for) {
  EXPECT_EQ(run({"sdo", "read", "0x22", "0x5000", "3", "--bus", "can0"}),
            ExitStatus::operation_failed);
  EXPECT_EQ(time(), milliseconds(0));
}

TEST_F(LateSdo, run_and_check_listen_too) {
  EXPECT_EQ(run({"run", "--bus", "can0", board, "wheel", "set_acceleration", "u32:5"}),
            ExitStatus::no_answer);
  EXPECT_EQ(time(), milliseconds(1000));
  const std::string with_pdo = write_file("pdo.yaml", R"(
nodes:
  - node_id: 0x10
    pdos: [{number: 1, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}]
  - node_id: 0x11
    pdos: [{number: 1, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}]
)");
  EXPECT_EQ(run({"check", with_pdo, "--bus", "can0"}), ExitStatus::no_answer);
  EXPECT_EQ(time(), milliseconds(2500)) << "two time-outs, and once listening for both nodes";
}

TEST_F(Sdo, prints_json) {
  node.node.device().add_object(0x2000, 3, object_of({1, 2}));
  run({"sdo", "read", "0x22", "0x2000", "3", "--bus", "can0", "--json"});
  EXPECT_EQ(out, R"({"node_id":34,"index":8192,"sub_index":3,"ok":true,"code":"done",)"
                 R"("data":[1,2],"value":513})"
                 "\n");
  run({"sdo", "read", "0x23", "0x2000", "3", "--bus", "can0", "--json"});
  EXPECT_EQ(out, R"({"node_id":35,"index":8192,"sub_index":3,"ok":false,"code":"no_answer",)"
                 R"("data":[],"reason":"no answer within 500 ms"})"
                 "\n");
}

TEST_F(Sdo, works_on_a_simulated_board) {
  EXPECT_EQ(run({"sdo", "read", "0x11", "0x1018", "0", "--board", board}), ExitStatus::success);
  EXPECT_EQ(out, "data: 04\nunsigned: 4\n");
}

TEST_F(Sdo, names_what_is_wrong_with_its_arguments) {
  struct Case {
    std::vector<std::string> arguments;
    std::string text;
  };
  const std::vector<Case> cases{
      {{"sdo", "read", "0", "0x1000", "0"},
       "node id \"0\" is not a number from 1 to 127, decimal or 0x hexadecimal"},
      {{"sdo", "read", "1", "0x10000", "0"},
       "index \"0x10000\" is not a number from 0 to 65535, decimal or 0x hexadecimal"},
      {{"sdo", "read", "1", "1000h", "0"},
       "index \"1000h\" is not a number from 0 to 65535, decimal or 0x hexadecimal"},
      {{"sdo", "read", "1", "0x1000", "256"},
       "sub-index \"256\" is not a number from 0 to 255, decimal or 0x hexadecimal"},
      {{"sdo", "write", "1", "0x1000", "0", "5"},
       "value: \"5\" does not say its type; write a number as u16:5, bytes as hex:05, text as "
       "text:...; expected value bytes"},
      {{"sdo", "write", "1", "0x1000", "0"}, "VALUE is required (see --help)"},
      {{"sdo", "read", "1", "0x1000", "0"},
       "nothing to simulate: name a board file (--board FILE), or a CAN interface (--bus can0)"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(run(row.arguments), ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: " + row.text + "\n");
    EXPECT_EQ(out, "");
  }
}

}  // namespace
}  // namespace velmora_can_bridge
