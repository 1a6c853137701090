#include "velmora_can_bridge/cli/command_line.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "command_line_fixture.hpp"
#include "example_board.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

TEST_F(CommandLine, run_prints_the_result_to_the_standard_output) {
  EXPECT_EQ(run({"run", board, "wheel", "read_identity"}), ExitStatus::success);
  EXPECT_THAT(out, StartsWith("ok: OK\ndata: 04 "));
  EXPECT_EQ(err, "");
}

TEST_F(CommandLine, run_of_an_operation_that_fails_says_why_the_bus_refused) {
  EXPECT_EQ(run({"run", board, "wheel", "read_nothing"}), ExitStatus::operation_failed);
  EXPECT_EQ(err,
            "failed: SDO read failed at 0x5FFF/0 (abort 0x06020000, no object at this index)\n");
  EXPECT_EQ(out, "");
}

TEST_F(CommandLine, run_that_fails_before_the_bus_names_no_refusal) {
  EXPECT_EQ(run({"run", board, "wheel", "set_acceleration", "--raw", "u8:1"}),
            ExitStatus::operation_failed);
  EXPECT_EQ(err, "failed: payload too short for sdo_write\n");
}

TEST_F(CommandLine, run_finds_the_node_by_its_device) {
  EXPECT_EQ(run({"run", board, "claw", "read_name", "--transfers"}), ExitStatus::success);
  EXPECT_THAT(err, StartsWith("node 0x11  SDO read   0x1008/0 -> "));
}

TEST_F(CommandLine, run_prints_transfers_to_the_standard_error) {
  EXPECT_EQ(run({"run", "--transfers", board, "wheel", "set_acceleration", "u32:5000"}),
            ExitStatus::success);
  EXPECT_EQ(out, "ok: OK\n");
  EXPECT_EQ(err, "node 0x10  SDO write  0x6083/0 <- 88 13 00 00\n");
}

TEST_F(CommandLine, run_prints_json_on_one_line) {
  run({"run", "--json", board, "wheel", "read_nothing"});
  EXPECT_EQ(out,
            R"({"operation":"read_nothing","device":"wheel","ok":false,"code":"failed","data":[],)"
            R"("message":"SDO read failed at 0x5FFF/0",)"
            R"("reason":"abort 0x06020000, no object at this index"})"
            "\n");
}

TEST_F(CommandLine, json_survives_names_that_are_no_utf8) {
  const std::string path = write_file(
      "odd.yaml",
      "nodes: [{node_id: 1, device_od_map: {d: {base_index: 1}}, operations: {\"r\\xC3\": "
      "{kind: sdo_read, index: 0x1000}}}]");
  EXPECT_EQ(run({"run", "--json", path, "d", "r\xC3\x83"}), ExitStatus::success);
  EXPECT_EQ(nlohmann::json::parse(out)["operation"], "r\xC3\x83");
}

TEST_F(CommandLine, unknown_device_is_named_beside_those_that_there_are) {
  EXPECT_EQ(run({"run", board, "Wheel", "read_identity"}), ExitStatus::bad_input);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "velmora-can-bridge: unknown device \"Wheel\", did you mean \"wheel\"? (" + board +
                     " has: claw, wheel)\n");
}

TEST_F(CommandLine, unknown_operation_is_named_beside_those_of_the_node) {
  EXPECT_EQ(run({"run", board, "claw", "read_identity"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: unknown operation \"read_identity\"; the node of \"claw\" has: "
            "read_name\n");
}

TEST_F(CommandLine, misspelt_operation_is_guessed) {
  EXPECT_EQ(run({"run", board, "claw", "read_nam"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: unknown operation \"read_nam\", did you mean \"read_name\"? (the "
            "node of \"claw\" has: read_name)\n");
}

TEST_F(CommandLine, payload_word_that_does_not_parse_is_named) {
  EXPECT_EQ(run({"run", board, "wheel", "set_acceleration", "0F"}), ExitStatus::bad_input);
  EXPECT_EQ(
      err,
      "velmora-can-bridge: set_acceleration: profile_acceleration: \"0F\" is neither a number "
      "nor a name; write 0x0F for the number, hex:0F000000 for bytes; expected "
      "profile_acceleration u32\n");
  EXPECT_EQ(run({"run", board, "wheel", "set_acceleration", "--raw", "00", "0F0"}),
            ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: payload word \"0F0\": odd number of hexadecimal digits, every "
            "byte takes two\n");
}

TEST_F(CommandLine, node_id_stands_for_the_device_where_none_is_needed) {
  const std::string path =
      write_file("no_devices.yaml",
                 "nodes: [{node_id: 0x10, operations: {name: {kind: sdo_read, index: 0x1008}}}]");
  for (const char* node : {"0x10", "16"}) {
    EXPECT_EQ(run({"run", path, node, "name"}), ExitStatus::success) << err;
    EXPECT_THAT(out, HasSubstr("ok: OK\n"));
    EXPECT_EQ(run({"explain", path, node, "name"}), ExitStatus::success) << err;
  }
  EXPECT_EQ(run({"run", path, "0x11", "name"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: unknown device \"0x11\"; " + path + " has: none\n");
}

TEST_F(CommandLine, node_id_is_no_device_for_an_operation_that_needs_one) {
  const std::string path = write_file(
      "drive.yaml",
      "nodes: [{node_id: 0x10, device_od_map: {wheel: {profile: ci402, base_index: 0x6040}}, "
      "operations: {enable: {kind: ci402_enable}}}]");
  EXPECT_EQ(run({"run", path, "0x10", "enable"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: operation \"enable\" needs a device, not a node id; node 0x10 "
            "has: wheel\n");
}

TEST_F(CommandLine, broken_board_file_is_bad_input_for_every_command) {
  const std::string path = write_file("broken.yaml", "nodes: [{node_id: 0}]\n");
  const std::string expected_start = path + ":1:19: error: ";
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"run", path, "wheel", "read"},
        {"operations", path},
        {"check", path}}) {
    SCOPED_TRACE(arguments.front());
    EXPECT_EQ(run(arguments), ExitStatus::bad_input);
    EXPECT_THAT(err, StartsWith(expected_start));
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
  }
}

/// The text holds nothing that a terminal obeys or hides, but line ends.
void expect_visible(const std::string& text) {
  EXPECT_THAT(text, testing::Not(testing::AnyOf(HasSubstr("\u009B"), HasSubstr("\u202E"),
                                                HasSubstr("\x1B"), HasSubstr("\u2028"))));
}

TEST_F(CommandLine, hidden_characters_of_files_and_arguments_reach_no_terminal) {
  const std::string hidden = "\u009B31m\u202E\u2028";
  const std::string path =
      write_file("hidden\x1B.yaml",
                 "nodes:\n- node_id: 1\n  device_od_map: {\"" + hidden +
                     "\": {profile: x, base_index: 0x2000}}\n" + "  operations: {\"" + hidden +
                     "\": {kind: sdo_read, index: 0x1000, label: \"" + hidden + "\"}}\n");
  const std::string broken = write_file("broken" + hidden, "nodes: [\"" + hidden + "\"]\n");
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"operations", path},
        {"operations", path, "--json"},
        {"check", path},
        {"check", broken},
        {"check", broken, "--json"},
        {"operations", broken},
        {"run", path, hidden, hidden, "--transfers"},
        {"run", path, hidden, hidden, "--json"},
        {"run", path, "x" + hidden, "x"},
        {"run", path, hidden, hidden, "--bus", hidden, "--transfers"},
        {"run", path, hidden, hidden, "--bus", hidden, "--json"},
        {"run", path, hidden, hidden, hidden},
        {"simulate", path, "--bus", hidden},
        {"nmt", hidden, "all", "--bus", "can0"},
        {hidden}}) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    run(arguments);
    EXPECT_NE(out + err, "");
    expect_visible(out);
    expect_visible(err);
  }
}

TEST_F(CommandLine, json_holds_hidden_characters_as_escapes) {
  const std::string path = write_file("hidden\u009B31m\u202E.yaml", board_text);
  run({"check", path, "--json"});
  EXPECT_THAT(out, HasSubstr("hidden\\u009B31m\\u202E.yaml"));
  EXPECT_EQ(nlohmann::json::parse(out)["file"], path);
}

TEST_F(CommandLine, missing_board_file_is_one_line) {
  EXPECT_EQ(run({"operations", "/nowhere/board.yaml"}), ExitStatus::bad_input);
  EXPECT_THAT(err, StartsWith("/nowhere/board.yaml: error: "));
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
}

TEST_F(CommandLine, check_counts_what_it_found) {
  EXPECT_EQ(run({"check", board}), ExitStatus::success);
  EXPECT_EQ(out, board + ": 2 nodes, 2 devices, 0 PDOs, 4 operations; 0 errors, 0 warnings\n");
}

TEST_F(CommandLine, check_prints_json_problem_by_problem) {
  const std::string path = write_file("broken.yaml", "nodes: [{node_id: 0}]\n");
  EXPECT_EQ(run({"check", "--json", path}), ExitStatus::bad_input);
  std::istringstream lines(out);
  std::string line;
  std::getline(lines, line);
  const auto problem = nlohmann::json::parse(line);
  EXPECT_EQ(problem["severity"], "error");
  EXPECT_EQ(problem["line"], 1);
  EXPECT_EQ(problem["column"], 19);
  std::getline(lines, line);
  EXPECT_EQ(nlohmann::json::parse(line)["ok"], false);
  EXPECT_EQ(nlohmann::json::parse(line)["errors"], 1);
  EXPECT_EQ(err, "");
}

TEST_F(CommandLine, operations_lists_devices_and_payloads) {
  EXPECT_EQ(run({"operations", board}), ExitStatus::success);
  EXPECT_THAT(out, HasSubstr("node 0x10\n"));
  EXPECT_THAT(out, HasSubstr("claw    claw     0x7040      0x2100"));
  EXPECT_THAT(out, HasSubstr("set_acceleration  sdo_write   profile_acceleration u32"));
}

TEST_F(CommandLine, operations_leaves_the_kind_out_on_a_narrow_terminal) {
  width = 50;
  run({"operations", board});
  EXPECT_THAT(out, HasSubstr("\n  operation         payload"));
  EXPECT_THAT(out, HasSubstr("\n  set_acceleration  "));
}

TEST_F(CommandLine, operations_prints_json_line_by_line) {
  EXPECT_EQ(run({"operations", "--json", board}), ExitStatus::success);
  std::istringstream lines(out);
  std::size_t devices = 0;
  std::size_t operations = 0;
  for (std::string line; std::getline(lines, line);) {
    const auto object = nlohmann::json::parse(line);
    devices += object.count("device");
    operations += object.count("operation");
  }
  EXPECT_EQ(devices, 2U);
  EXPECT_EQ(operations, 4U);
}

TEST_F(CommandLine, bad_usage_is_one_line_with_status_2) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{},
        {"nonsense"},
        {"run"},
        {"run", board},
        {"run", board, "wheel"},
        {"check", board, "surplus"},
        {"check", "--nonsense", board},
        {"operations"},
        {"run", board, "wheel", "read_identity", "--timeout", "010"},
        {"run", board, "wheel", "read_identity", "--bus", "--json"},
        {"check", board, "--bus", "--json"},
        {"watch", board, "--bus", "--json"},
        {"run", board, "wheel", "set_acceleration", "-5"}}) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(run(arguments), ExitStatus::bad_input);
    EXPECT_EQ(out, "");
    EXPECT_THAT(err, StartsWith("velmora-can-bridge: "));
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
  }
}

TEST_F(CommandLine, help_of_a_command_without_arguments_has_no_trailing_blank) {
  run({"version", "--help"});
  EXPECT_EQ(out.substr(0, out.find('\n')), "Usage: velmora-can-bridge version");
}

TEST_F(CommandLine, help_names_the_word_that_a_command_does_not_have) {
  EXPECT_EQ(run({"help", "run", "extra"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: \"run\" has no command \"extra\" (see --help)\n");
}

TEST_F(CommandLine, help_is_a_result) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--help"},
                                                    {"run", "--help"},
                                                    {"operations", "--help"},
                                                    {"check", "--help"},
                                                    {"demo", "--help"}}) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(run(arguments), ExitStatus::success);
    EXPECT_THAT(out, HasSubstr("Usage: velmora-can-bridge"));
    EXPECT_EQ(err, "");
  }
}

TEST_F(CommandLine, version_is_a_result) {
  EXPECT_EQ(run({"--version"}), ExitStatus::success);
  EXPECT_THAT(out, StartsWith("velmora-can-bridge "));
}

TEST_F(CommandLine, demo_shows_bus_and_results) {
  EXPECT_EQ(run({"demo"}), ExitStatus::success);
  EXPECT_THAT(out, HasSubstr("RPDO 3     <- 00 00 FF 02 20 03\n"));
  EXPECT_THAT(out, HasSubstr("ok: OK"));
  EXPECT_THAT(out, HasSubstr("failed: SDO write failed at 0x2200/77 (abort 0x06090011, "));
  EXPECT_EQ(err, "");
}

TEST_F(CommandLine, demo_runs_every_kind) {
  EXPECT_EQ(run({"demo", "--json"}), ExitStatus::success);
  const LoadedBoard example = parse_board(std::string(example_board()));
  ASSERT_TRUE(example.file.has_value());
  std::set<std::string> kinds;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    const std::string operation = nlohmann::json::parse(line)["operation"];
    kinds.insert(example.file->nodes.front().operations.at(operation).kind);
  }
  for (const OperationKind& row : operation_kinds) {
    EXPECT_EQ(kinds.count(std::string(row.kind)), 1U) << row.kind;
  }
}

TEST_F(CommandLine, demo_explains_a_step_before_it_runs_it) {
  run({"demo"});
  EXPECT_THAT(
      out,
      HasSubstr("# Both wheels in one frame, in opposite directions\n"
                "$ velmora-can-bridge explain robot_board.yaml left_wheel drive 0.3m/s -0.3m/s\n"
                "left_wheel drive on node 0x10; nothing is written or sent\n"
                "read         left_wheel 0x60FF/0 (left_target_velocity) = 00 00 00 00 (0 m/s)\n"));
  EXPECT_THAT(
      out, HasSubstr("would answer ok: OK\n"
                     "$ velmora-can-bridge run robot_board.yaml left_wheel drive 0.3m/s -0.3m/s\n"
                     "  node 0x10  SDO read   0x60FF/0 -> 00 00 00 00\n"));
}

TEST_F(CommandLine, demo_explains_in_json_as_the_command_does) {
  run({"demo", "--json"});
  EXPECT_THAT(out,
              ContainsRegex("\\{\"operation\":\"drive\",\"device\":\"left_wheel\",\"node_id\":16,"
                            ".*\"transfers\":\\[.*\"code\":\"done\"\\}\n"
                            "\\{\"operation\":\"drive\",\"device\":\"left_wheel\",\"ok\":true"));
}

TEST_F(CommandLine, demo_ends_with_a_table_of_its_steps) {
  width = 120;
  run({"demo"});
  const std::string table = out.substr(out.find("\n  operation  "));
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n') - 2,
            std::count(out.begin(), out.end(), '#'));
  EXPECT_THAT(table, ContainsRegex("set_led_color +led +5 SDO reads, 1 RPDO +ok: OK\n"));
  EXPECT_THAT(table, ContainsRegex("enable +claw +3 SDO writes +ok: Motor enabled\n"));
  EXPECT_THAT(table, ContainsRegex("set_pump_raw +pumps +1 SDO write +failed: SDO write failed at "
                                   "0x2200/77\n"));
}

TEST_F(CommandLine, demo_waits_in_simulated_time_when_nobody_watches) {
  run({"demo"});
  EXPECT_THAT(out, HasSubstr("\n  ... 500 ms later\n"));
  EXPECT_EQ(out.find('\r'), std::string::npos);
}

TEST_F(CommandLine, demo_ends_when_interrupted) {
  int sleeps = 0;
  sleep = [&](std::chrono::milliseconds /*time*/) { interrupted = ++sleeps == 2; };
  EXPECT_EQ(run({"demo"}), ExitStatus::interrupted);
  EXPECT_EQ(sleeps, 2);
}

TEST_F(CommandLine, demo_shows_how_far_a_wait_is_on_a_terminal) {
  std::chrono::milliseconds slept{0};
  sleep = [&](std::chrono::milliseconds time) { slept += time; };
  run({"demo"});
  EXPECT_THAT(out, HasSubstr("\r  ... 100 ms\r  ... 200 ms\r  ... 300 ms\r"));
  EXPECT_THAT(out, HasSubstr("\r  ... 500 ms later\n"));
  EXPECT_EQ(slept, std::chrono::milliseconds(500 + 300 + 1000 + 1500));
}

TEST_F(CommandLine, refusal_that_an_operation_tolerates_is_a_diagnostic) {
  const std::string path =
      write_file("claw.yaml",
                 "nodes: [{node_id: 1, device_od_map: {c: {profile: claw, base_index: "
                 "0x7040, homing_record: 0x2100}}, pdos: [{number: 1, direction: RPDO, "
                 "mappings: [{index: 0x2100, sub_index: 9, bit_length: 8, field: f}]}], "
                 "operations: {w: {kind: pdo_write, pdo_number: 1, field: f, "
                 "refresh_shadow: true}}}]");
  EXPECT_EQ(run({"run", path, "c", "w", "1"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: OK\n");
  EXPECT_EQ(err,
            "velmora-can-bridge: failed on the way: node 0x01, object 0x2100/9: abort 0x06010001, "
            "the object can only be written\n");
}

TEST_F(CommandLine, names_with_control_characters_stay_on_their_line) {
  EXPECT_EQ(run({"run", board, "a\x1B[31m\nb", "x"}), ExitStatus::bad_input);
  EXPECT_THAT(err, StartsWith("velmora-can-bridge: unknown device \"a\\x1B[31m\\x0Ab\""));
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
}

TEST(CommandLineColour, is_used_only_when_asked_for) {
  std::ostringstream out;
  std::ostringstream err;
  run_command_line({"demo"}, {out, err, true, {}});
  EXPECT_THAT(out.str(), HasSubstr("\033[32mok: \033[0m"));
  EXPECT_THAT(out.str(), HasSubstr("\033[31mfailed: \033[0m"));
}

class ErrorColour : public CommandLine {
 protected:
  /// What the standard error shows on a terminal with colours.
  static std::string shown(const std::vector<std::string>& arguments) {
    std::ostringstream out;
    std::ostringstream err;
    CommandLineHost host{out, err};
    host.err_colour = true;
    run_command_line(arguments, host);
    EXPECT_THAT(out.str(), testing::Not(HasSubstr("\033")));
    return err.str();
  }
};

TEST_F(ErrorColour, marks_failures) {
  EXPECT_THAT(shown({"run", board, "wheel", "read_nothing"}),
              StartsWith("\033[31mfailed: \033[0mSDO read failed at 0x5FFF/0 ("));
}

TEST_F(ErrorColour, marks_what_is_wrong_with_arguments_and_files) {
  EXPECT_THAT(shown({"nonsense"}), StartsWith("\033[31mvelmora-can-bridge: \033[0m"));
  EXPECT_THAT(shown({"operations", "/nowhere"}), StartsWith("\033[31m/nowhere: error: "));
  EXPECT_THAT(shown({"check", "/nowhere"}), StartsWith("\033[31m/nowhere: error: "));
}

/// A board file with so many warnings.
std::string board_with_warnings(int warnings) {
  std::string text = "nodes: [{node_id: 1, device_od_map: {d: {base_index: 0x2000}}, operations: {";
  for (int number = 0; number < warnings; ++number) {
    text += "r" + std::to_string(number) + ": {kind: sdo_read, index: 0x1000, data_type: u8}, ";
  }
  return text + "r: {kind: sdo_read, index: 0x1000}}}]";
}

TEST_F(CommandLine, warnings_of_the_board_file_are_counted) {
  const std::string path = write_file("odd.yaml", board_with_warnings(2));
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"run", path, "d", "r"},
        {"explain", path, "d", "r"},
        {"operations", path},
        {"sdo", "read", "1", "0x1000", "0", "--board", path}}) {
    SCOPED_TRACE(arguments.front());
    EXPECT_EQ(run(arguments), ExitStatus::success);
    EXPECT_EQ(err, "velmora-can-bridge: " + path + ": 2 warnings; \"velmora-can-bridge check " +
                       path + "\" shows them\n");
  }
}

TEST_F(CommandLine, one_warning_of_the_board_file_is_one) {
  const std::string path = write_file("odd.yaml", board_with_warnings(1));
  run({"operations", path});
  EXPECT_THAT(
      err, testing::EndsWith(": 1 warning; \"velmora-can-bridge check " + path + "\" shows it\n"));
}

TEST_F(CommandLine, check_shows_each_warning_of_the_board_file) {
  const std::string path = write_file("odd.yaml", board_with_warnings(2));
  run({"check", path});
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 2);
  EXPECT_THAT(err, ContainsRegex(": warning: "));
}

TEST_F(CommandLine, errors_of_the_board_file_stand_beside_the_number_of_its_warnings) {
  std::string text = board_with_warnings(1);
  text.replace(text.find("r: {kind: sdo_read, index: 0x1000}"), 1, "r: {}, s");
  const std::string path = write_file("odd.yaml", text);
  EXPECT_EQ(run({"operations", path}), ExitStatus::bad_input);
  EXPECT_THAT(err, ContainsRegex(": error: "));
  EXPECT_THAT(err, HasSubstr(path + ": 1 warning; "));
}

}  // namespace
}  // namespace velmora_can_bridge
