#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "command_line_fixture.hpp"
#include "example_board.hpp"
#include "line_completion.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Strings = std::vector<std::string>;

Strings lines_of(const std::string& text) {
  Strings lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// A script over the example board.
class Script : public CommandLine {
 protected:
  Script() : robot(write_file("robot.yaml", std::string(example_board()))) {}

  ExitStatus run_script(const std::string& text, const Strings& options = {}) {
    file = write_file("lines.txt", text);
    Strings arguments{"script", robot, file};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }

  std::string robot;
  std::string file;
};

TEST_F(Script, runs_its_lines_on_one_board_that_keeps_modes_and_images) {
  EXPECT_EQ(run_script("# Put the wheel into velocity mode.\n"
                       "left_wheel set_mode velocity\n"
                       "\n"
                       "run left_wheel enable  # re-asserts the mode\n"
                       "left_wheel set_target 200\n",
                       {"--transfers"}),
            ExitStatus::success);
  EXPECT_EQ(out, file + ":2: left_wheel set_mode velocity\nok: Mode set to 3\n" + file +
                     ":4: run left_wheel enable  # re-asserts the mode\nok: Motor enabled\n" +
                     file +
                     ":5: left_wheel set_target 200\nok: Target set via RPDO 0x60FF value=200\n");
  EXPECT_THAT(err, StartsWith("node 0x10  SDO write  0x6060/0 <- 03\n"));
  EXPECT_THAT(err, HasSubstr("node 0x10  RPDO 1     <- C8 00 00 00 00 00 00 00\n"));
}

TEST_F(Script, ends_at_the_first_line_that_fails_and_says_which) {
  EXPECT_EQ(run_script("pumps set_pump 3 100\npumps set_pump_raw 77 u16:1\npumps set_pump 3 200\n"),
            ExitStatus::operation_failed);
  EXPECT_EQ(err, file +
                     ":2: failed: SDO write failed at 0x2200/77 (abort 0x06090011, no such "
                     "sub-index at this index)\n");
  EXPECT_THAT(out, Not(HasSubstr("set_pump 3 200")));
}

TEST_F(Script, goes_on_when_asked_to_and_has_the_gravest_status) {
  EXPECT_EQ(run_script("led nonsense\npumps set_pump_raw 77 u16:1\npumps set_pump 3 200\n",
                       {"--keep-going"}),
            ExitStatus::bad_input);
  EXPECT_THAT(out, EndsWith("set_pump 3 200\nok: Pump duty set\n"));
}

struct RefusedRow {
  const char* name;
  const char* line;
  const char* message;
};

class RefusedLine : public Script, public testing::WithParamInterface<RefusedRow> {};

TEST_P(RefusedLine, is_named_with_what_is_wrong) {
  EXPECT_EQ(run_script(std::string("\n") + GetParam().line + "\n"), ExitStatus::bad_input);
  EXPECT_THAT(err, StartsWith("velmora-can-bridge: " + file + ":2: " + GetParam().message));
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RefusedLine,
    testing::Values(
        RefusedRow{"device", "ledd set_led", "unknown device \"ledd\", did you mean \"led\"?"},
        RefusedRow{"operation", "led set_lde",
                   "unknown operation \"set_lde\", did you mean \"set_led"},
        RefusedRow{"payload", "pumps set_pump three", "set_pump: "},
        RefusedRow{"syntax", "led", "expected \"DEVICE OPERATION [PAYLOAD...]\"\n"},
        RefusedRow{"split_pause", "wait 5 s",
                   "expected \"wait TIME\" or \"wait DEVICE CONDITION [TIME]\", did you mean "
                   "\"5s\"?\n"},
        RefusedRow{"split_patience", "wait left_wheel fault 5 s",
                   "expected \"wait TIME\" or \"wait DEVICE CONDITION [TIME]\", did you mean "
                   "\"5s\"?\n"},
        RefusedRow{"device_without_drive", "wait led fault", "\"led\" is no drive of the board\n"},
        RefusedRow{"unknown_drive", "wait left_whel fault",
                   "\"left_whel\" is no drive of the board, did you mean \"left_wheel\"?\n"},
        RefusedRow{"condition", "wait left_wheel faulty",
                   "unknown condition \"faulty\", did you mean \"fault\"?; expected "
                   "target_reached, "},
        RefusedRow{"hidden_characters", "\x1B[31m x", "unknown device \"\\x1B[31m\""}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Script, explains_a_line_and_changes_nothing) {
  EXPECT_EQ(run_script("explain led set_led_blue 9\nled read_object 0 3\n"), ExitStatus::success);
  EXPECT_THAT(out, HasSubstr("would answer ok: OK\n"));
  EXPECT_THAT(out, HasSubstr("led read_object 0 3\nok: OK\ndata: 00\n"));
}

TEST_F(Script, waits_in_simulated_time) {
  EXPECT_EQ(run_script("left_wheel set_mode velocity\nleft_wheel enable\n"
                       "left_wheel drive 300 0\nwait 500ms\nleft_wheel read_object 0x2C\n"),
            ExitStatus::success);
  EXPECT_THAT(out, HasSubstr(":4: wait 500ms\n  ... 500 ms later\n"));
  EXPECT_THAT(out, HasSubstr("read_object 0x2C\nok: OK\ndata: 2C 01 00 00\n"));
}

TEST_F(Script, waits_until_the_drive_has_reached_its_target) {
  EXPECT_EQ(run_script("left_wheel set_mode velocity\nleft_wheel enable\n"
                       "wait left_wheel operation_enabled\nleft_wheel drive 300 0\n"
                       "wait left_wheel target_reached 5s\nleft_wheel read_object 0x2C\n"),
            ExitStatus::success);
  EXPECT_THAT(out, ContainsRegex(":5: wait left_wheel target_reached 5s\n  [.]{3} [1-9][0-9]+ ms "
                                 "later\n"));
  EXPECT_THAT(out, HasSubstr("read_object 0x2C\nok: OK\ndata: 2C 01 00 00\n"));
}

TEST_F(Script, wait_that_is_in_vain_tells_the_state) {
  EXPECT_EQ(run_script("wait left_wheel operation_enabled 100ms\n"), ExitStatus::operation_failed);
  EXPECT_EQ(err, file +
                     ":1: failed: left_wheel is not operation_enabled after 100 ms (Switch on "
                     "disabled, statusword 0x0250)\n");
}

TEST_F(Script, may_begin_with_a_byte_order_mark) {
  EXPECT_EQ(run_script("\xEF\xBB\xBFled set_led_blue 9\n"), ExitStatus::success);
  EXPECT_EQ(out, file + ":1: led set_led_blue 9\nok: OK\n");
}

TEST_F(Script, lets_a_simulated_hour_pass_in_long_steps) {
  EXPECT_EQ(run_script("wait 3600s\n"), ExitStatus::success);
  EXPECT_THAT(out, EndsWith("  ... 3600000 ms later\n"));
}

TEST_F(Script, takes_the_real_time_of_a_wait_where_a_person_watches) {
  milliseconds slept{0};
  sleep = [&](milliseconds time) { slept += time; };
  run_script("wait 130ms\n");
  EXPECT_EQ(slept, milliseconds(130));
}

TEST_F(Script, prints_json_with_the_number_of_the_line) {
  EXPECT_EQ(run_script("\nled set_led_blue 9\nwait 20ms\nled nonsense\nwait left_wheel fault 0ms\n"
                       "explain led set_led_blue 9\n",
                       {"--json", "--keep-going"}),
            ExitStatus::bad_input);
  const Strings lines = lines_of(out);
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0], R"({"line":2,"operation":"set_led_blue","device":"led","ok":true,)"
                      R"("code":"done","data":[],"message":"OK"})");
  EXPECT_EQ(lines[1], R"({"line":3,"wait":"","ok":true,"code":"done","milliseconds":20})");
  EXPECT_THAT(lines[2], StartsWith(R"({"line":4,"ok":false,"code":"usage","message":"unknown )"));
  EXPECT_EQ(lines[3],
            R"({"line":5,"wait":"left_wheel fault","ok":false,"code":"failed","milliseconds":0,)"
            R"("message":"left_wheel is not fault",)"
            R"("reason":"Switch on disabled, statusword 0x0250"})");
  EXPECT_THAT(lines[4], StartsWith(R"({"line":6,"operation":"set_led_blue","device":"led",)"
                                   R"("node_id":16,"ok":true,)"));
  EXPECT_THAT(lines[4], EndsWith(R"("code":"done"})"));
}

TEST_F(Script, comes_from_the_standard_input_too) {
  for (const Strings& arguments : {Strings{"script", robot, "-"}, Strings{"script", robot}}) {
    std::istringstream input("led set_led_blue 9\nled set_led_blue\n");
    in = &input;
    EXPECT_EQ(run(arguments), ExitStatus::bad_input);
    EXPECT_THAT(out, StartsWith("-:1: led set_led_blue 9\nok: OK\n"));
    EXPECT_THAT(err, StartsWith("velmora-can-bridge: -:2: set_led_blue: "));
  }
}

TEST_F(Script, that_cannot_be_read_is_named) {
  EXPECT_EQ(run({"script", robot, "/nowhere"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: cannot read /nowhere: No such file or directory\n");
  EXPECT_EQ(run({"script", robot, folder.string()}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: cannot read " + folder.string() + ": it is a folder\n");
  EXPECT_EQ(run({"script", robot, ""}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: the name of the script is empty\n");
  EXPECT_EQ(run({"script", robot}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: there is no standard input; name a script\n");
  EXPECT_EQ(run({"script", "/nowhere", "-"}), ExitStatus::bad_input);
}

TEST_F(Script, without_its_trace_is_not_begun) {
  EXPECT_EQ(run_script("led set_led_blue 9\n", {"--trace", "/nowhere/log"}), ExitStatus::bad_input);
  EXPECT_EQ(out, "");
}

TEST_F(Script, trace_holds_the_frames_of_all_lines) {
  const std::string log = (folder / "frames.log").string();
  EXPECT_EQ(run_script("pumps set_pump 3 1\npumps set_pump 4 2\n", {"--trace", log}),
            ExitStatus::success);
  std::ifstream stream(log);
  const std::string frames(std::istreambuf_iterator<char>(stream), {});
  EXPECT_THAT(frames, HasSubstr("610#2B00220301000000"));
  EXPECT_THAT(frames, HasSubstr("610#2B00220402000000"));
}

TEST_F(Script, is_ended_by_an_interruption) {
  sleep = [&](milliseconds /*time*/) { interrupted = true; };
  EXPECT_EQ(run_script("wait 1s\nled set_led_blue 9\n", {"--keep-going"}), ExitStatus::interrupted);
  EXPECT_EQ(out, file + ":1: wait 1s\n");
  EXPECT_EQ(err, file + ":1: failed: not waited to the end after 20 ms (interrupted)\n");
}

TEST_F(Script, gives_the_results_of_the_tour) {
  run({"demo"});
  std::string script;
  std::string query;
  for (const std::string& line : lines_of(out)) {
    constexpr std::string_view step = "$ velmora-can-bridge run robot_board.yaml ";
    constexpr std::string_view wait = "  ... ";
    if (line.rfind(step, 0) == 0) {
      script += query;
      query = line.substr(step.size()) + "\n";
    } else if (line.rfind(wait, 0) == 0) {
      const std::string pause = "wait " + line.substr(6, line.find(" ms") - 6) + "ms\n";
      // A query waits for its answer, what moves is given the time behind it.
      query = query.find("_query") != std::string::npos ? pause + query : query + pause;
    }
  }
  script += query;
  run({"demo", "--json"});
  Strings expected;
  for (const std::string& line : lines_of(out)) {
    if (!nlohmann::json::parse(line).contains("transfers")) {
      expected.push_back(line);
    }
  }
  run_script(script, {"--json", "--keep-going"});
  Strings actual;
  for (const std::string& line : lines_of(out)) {
    auto result = nlohmann::ordered_json::parse(line);
    result.erase("line");
    if (!result.contains("wait")) {
      actual.push_back(result.dump());
    }
  }
  EXPECT_EQ(actual, expected);
  EXPECT_EQ(actual.size(), 34U);
}

TEST_F(CommandLine, run_of_a_mode_says_who_remembers_it) {
  const std::string path = write_file(
      "drive.yaml",
      "nodes: [{node_id: 1, device_od_map: {d: {profile: ci402, base_index: 0x6040}}, operations: "
      "{set_mode: {kind: ci402_set_mode}, enable: {kind: ci402_enable}}}]");
  EXPECT_EQ(run({"run", path, "d", "set_mode", "velocity"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: Mode set to 3\n");
  EXPECT_EQ(
      err,
      "velmora-can-bridge: the mode is known to this run alone; \"velmora-can-bridge script\" "
      "keeps it for the operations behind it\n");
  run({"run", path, "d", "set_mode", "velocity", "--json"});
  EXPECT_EQ(err, "");
  run({"run", path, "d", "enable"});
  EXPECT_EQ(err, "");
}

constexpr const char* script_lamp_board = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      lamp: {base_index: 0x2000}
      wheel: {profile: ci402, base_index: 0x6040}
    pdos:
      - number: 1
        direction: RPDO
        mappings: [{index: 0x2000, sub_index: 1, bit_length: 16, field: level}]
      - number: 2
        direction: RPDO
        mappings:
          - {index: 0x2001, sub_index: 1, bit_length: 8, field: low}
          - {index: 0x2001, sub_index: 2, bit_length: 8, field: high}
    operations:
      set_level: {kind: pdo_write, pdo_number: 1, field: level, refresh_shadow: true}
      set_low: {kind: pdo_write, pdo_number: 2, field: low, refresh_shadow: true}
      keep_level: {kind: pdo_write, pdo_number: 1, field: level}
      read_level: {kind: sdo_read, index: 0x2000, sub_index: 1}
)";

class ScriptOnBus : public CommandLine {
 protected:
  ScriptOnBus() : path(write_file("lamp.yaml", script_lamp_board)) { plug_in(); }

  ExitStatus run_script(const std::string& text) {
    file = write_file("lines.txt", text);
    return run({"script", path, file, "--bus", "can0"});
  }

  /// The user interrupts the program so long after now.
  void interrupt_after(milliseconds time) {
    can0.set_fault_rule([time](const CanFrame& frame) {
      return std::vector<CanDelivery>{{frame, time}};
    });
    user->send({0x7FF, 0, {}}, milliseconds(0));
    can0.set_fault_rule({});
  }

  std::string path;
  std::string file;
  const std::unique_ptr<CanEndpoint> user = can0.open({});
  const std::unique_ptr<CanEndpoint> alarm =
      can0.open({{0x7FF}}, [this](const CanFrame& /*frame*/, std::vector<CanFrame>& /*answers*/) {
        interrupted = true;
      });
};

/// A pipe whose writer pauses: a signal ends the wait for the line behind `lines`.
class InterruptedPipe : public std::stringbuf {
 public:
  InterruptedPipe(const std::string& lines, std::atomic<bool>& interrupted)
      : std::stringbuf(lines), interrupted_(&interrupted) {}

 protected:
  int_type underflow() override {
    const int_type next = std::stringbuf::underflow();
    if (next == traits_type::eof()) {
      *interrupted_ = true;
    }
    return next;
  }

 private:
  std::atomic<bool>* const interrupted_;
};

TEST_F(Script, is_interrupted_while_it_waits_for_a_line) {
  InterruptedPipe pipe("led set_led_blue 9\n", interrupted);
  std::istream input(&pipe);
  in = &input;
  EXPECT_EQ(run({"script", robot, "-"}), ExitStatus::interrupted);
  EXPECT_EQ(out, "-:1: led set_led_blue 9\nok: OK\n");
  EXPECT_EQ(err, "velmora-can-bridge: interrupted; the lines that follow are not run\n");
}

struct LastLineRow {
  const char* name;
  const char* script;
  ExitStatus status;
  const char* message;
};

class InterruptedLine : public ScriptOnBus, public testing::WithParamInterface<LastLineRow> {};

TEST_P(InterruptedLine, that_succeeds_all_the_same_is_done_and_no_other_is_begun) {
  NodeOnBus lamp(can0, 0x10, load_board_file(path).file->nodes.front().board);
  lamp.node.device().add_object(0x2000, 1, object_of({7, 0}));
  can0.set_fault_rule([this](const CanFrame& frame) {
    interrupted = interrupted || frame.id == 0x590;
    return std::vector<CanDelivery>{{frame}};
  });
  EXPECT_EQ(run_script(GetParam().script), GetParam().status);
  EXPECT_EQ(out, file + ":1: lamp read_level\nok: OK\ndata: 07 00\n");
  EXPECT_EQ(err, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, InterruptedLine,
    testing::Values(LastLineRow{"last", "lamp read_level\n", ExitStatus::success, ""},
                    LastLineRow{"not_last", "lamp read_level\nlamp read_level\n",
                                ExitStatus::interrupted,
                                "velmora-can-bridge: interrupted; the lines that follow are not "
                                "run\n"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ScriptOnBus, looks_at_a_drive_a_slice_after_the_command_before) {
  NodeOnBus wheel(can0, 0x10, load_board_file(path).file->nodes.front().board);
  wheel.node.device().add_object(0x6041, 0, object_of({0x37, 0x06}));
  const auto start = user->now();
  EXPECT_EQ(run_script("wait wheel target_reached\n"), ExitStatus::success);
  EXPECT_EQ(user->now() - start, milliseconds(20));
  EXPECT_THAT(out, EndsWith("  ... 20 ms later\n"));
}

TEST_F(ScriptOnBus, drive_in_fault_ends_a_wait_early) {
  NodeOnBus wheel(can0, 0x10, load_board_file(path).file->nodes.front().board);
  wheel.node.device().add_object(0x6041, 0, object_of({0x18, 0x02}));
  EXPECT_EQ(run_script("wait wheel operation_enabled 9s\n"), ExitStatus::operation_failed);
  EXPECT_EQ(err, file +
                     ":1: failed: wheel is not operation_enabled after 20 ms (Fault, statusword "
                     "0x0218)\n");
}

TEST_F(ScriptOnBus, explains_with_force_what_is_held_back_otherwise) {
  for (const auto& [option, status] : {std::pair{"--force", ExitStatus::success},
                                       std::pair{"--keep-going", ExitStatus::no_answer}}) {
    file = write_file("lines.txt", "explain lamp set_low 1\n");
    EXPECT_EQ(run({"script", path, file, "--bus", "can0", option}), status) << option;
  }
}

TEST_F(ScriptOnBus, wait_takes_no_other_time_than_that_of_the_bus) {
  int slept = 0;
  sleep = [&](milliseconds /*time*/) { ++slept; };
  run_script("wait 250ms\n");
  EXPECT_EQ(slept, 0);
}

TEST_F(ScriptOnBus, wait_takes_the_time_of_the_bus) {
  const auto listener = can0.open({{0, 0}});
  const auto start = listener->now();
  EXPECT_EQ(run_script("wait 250ms\n"), ExitStatus::success);
  EXPECT_EQ(listener->now() - start, milliseconds(250));
}

TEST_F(ScriptOnBus, silence_ends_a_wait_with_its_status) {
  EXPECT_EQ(run_script("wait wheel fault 9s\n"), ExitStatus::no_answer);
  EXPECT_EQ(err, file +
                     ":1: failed: wheel is not fault after 520 ms (node 0x10, object 0x6041/0: no "
                     "answer within 500 ms)\n");
}

TEST_F(ScriptOnBus, refusal_that_an_operation_tolerates_has_its_line) {
  NodeOnBus lamp(can0, 0x10, load_board_file(path).file->nodes.front().board);
  ObjectEntry level = object_of({0, 0});
  level.access = ObjectAccess::write_only;
  lamp.node.device().add_object(0x2000, 1, level);
  run_script("lamp set_level 5\n");
  EXPECT_THAT(err, HasSubstr(file + ":1: failed"));
}

/// A person types lines at a prompt.
class TypedScript : public ScriptOnBus {
 protected:
  TypedScript() {
    type_line = [this](const std::string& prompt,
                       const LineCompletion& completion) -> std::optional<std::string> {
      prompts += prompt;
      candidates = completion("wait ");
      if (typed == lines.size()) {
        return std::nullopt;
      }
      const std::string line = lines[typed++];
      interrupted = interrupted || line == "^C";
      return line == "^C" ? "" : line;
    };
    resume = [this] {
      ++resumed;
      interrupted = false;
    };
    lamp.node.device().add_object(0x2000, 1, object_of({7, 0}));
  }

  ExitStatus type(Strings these) {
    lines = std::move(these);
    return run({"script", path, "--bus", "can0"});
  }

  NodeOnBus lamp{can0, 0x10, load_board_file(path).file->nodes.front().board};
  Strings lines;
  std::size_t typed = 0;
  std::string prompts;
  Strings candidates;
  int resumed = 0;
};

TEST_F(TypedScript, goes_on_behind_failures_and_names_no_lines) {
  EXPECT_EQ(type({"lamp read_level", "lamp nonsense", "wait wheel fault 0ms", "lamp read_level"}),
            ExitStatus::success);
  EXPECT_EQ(out, "ok: OK\ndata: 07 00\nok: OK\ndata: 07 00\n");
  EXPECT_THAT(err, StartsWith("velmora-can-bridge: unknown operation \"nonsense\"; "));
  EXPECT_THAT(err, HasSubstr("\nfailed: wheel is not fault after 0 ms ("));
  EXPECT_EQ(prompts, "> > > > > ");
  EXPECT_EQ(candidates, Strings{"wheel"});
}

TEST_F(TypedScript, survives_an_interruption_of_a_line) {
  can0.set_fault_rule([this](const CanFrame& frame) {
    interrupted = interrupted || (frame.id == 0x590 && resumed == 0);
    return std::vector<CanDelivery>{{frame, milliseconds(0)}};
  });
  type({"lamp set_level 5", "lamp read_level"});
  EXPECT_EQ(resumed, 1);
  EXPECT_THAT(err, HasSubstr("failed: RPDO send failed (interrupted)\n"
                             "velmora-can-bridge: modes of operation and images of RPDOs start "
                             "anew behind the interruption\n"));
  EXPECT_THAT(out, HasSubstr("ok: OK\ndata: 07 00\n"));
}

TEST_F(TypedScript, keeps_modes_and_images_when_a_mere_pause_is_interrupted) {
  int reads = 0;
  interrupt_after(milliseconds(3000));
  can0.set_fault_rule([&](const CanFrame& frame) {
    reads += frame.id == 0x610 ? 1 : 0;
    return std::vector<CanDelivery>{{frame}};
  });
  type({"lamp keep_level 5", "wait 10s", "lamp keep_level 6"});
  EXPECT_EQ(resumed, 1);
  EXPECT_EQ(reads, 1) << "the image is loaded once";
  EXPECT_EQ(out, "ok: OK\nok: OK\n");
  EXPECT_EQ(err, "failed: not waited to the end after 3000 ms (interrupted)\n");
}

TEST_F(TypedScript, ends_with_a_word) {
  for (const char* const word : {"exit", "quit"}) {
    typed = 0;
    EXPECT_EQ(type({word, "lamp read_level"}), ExitStatus::success);
    EXPECT_EQ(typed, 1U);
    EXPECT_EQ(out + err, "");
  }
}

TEST_F(TypedScript, shows_the_forms_of_lines) {
  for (const char* const word : {"help", "?"}) {
    typed = 0;
    type({word});
    EXPECT_THAT(out, HasSubstr("wait DEVICE CONDITION [TIME]"));
    EXPECT_EQ(err, "");
  }
}

TEST_F(TypedScript, ends_when_the_program_is_to_end) {
  type_line = [this](const std::string& /*prompt*/,
                     const LineCompletion& /*completion*/) -> std::optional<std::string> {
    ++typed;
    terminated = true;
    interrupted = true;
    return "";
  };
  EXPECT_EQ(type({}), ExitStatus::interrupted);
  EXPECT_EQ(typed, 1U);
  EXPECT_EQ(resumed, 0);
}

TEST_F(TypedScript, tells_of_answers_that_may_come_late_before_it_starts_anew) {
  can0.set_fault_rule([this](const CanFrame& frame) {
    interrupted = interrupted || (frame.id == 0x610 && resumed == 0);
    return frame.id == 0x590 ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
  });
  type({"lamp read_level"});
  EXPECT_EQ(resumed, 1);
  EXPECT_THAT(err, HasSubstr("not listening for the late answer of node 0x10"));
}

TEST_F(TypedScript, survives_an_interruption_at_the_prompt) {
  type({"^C", "lamp read_level"});
  EXPECT_EQ(resumed, 1);
  EXPECT_EQ(out, "ok: OK\ndata: 07 00\n");
  EXPECT_EQ(err, "");
}

TEST_F(TypedScript, is_not_asked_for_where_a_file_is_named) {
  run_script("lamp read_level\n");
  EXPECT_EQ(prompts, "");
}

}  // namespace
}  // namespace velmora_can_bridge
