#include "command_completion.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "command_line_fixture.hpp"
#include "help_table.hpp"

namespace velmora_can_bridge {
namespace {

using testing::Contains;
using testing::Not;

using Words = std::vector<std::string>;

constexpr const char* board_of_devices = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      lamp: {profile: io, base_index: 0x2000}
      -spare: {profile: io, base_index: 0x2100}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: lamp_mode, values: {off: 0, on: 1}}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: lamp_level}
    operations:
      enable: {kind: ci402_enable}
      set_lamp: {kind: pdo_write, pdo_number: 1, fields: [lamp_mode, lamp_level]}
      set_mode: {kind: ci402_set_mode}
)";

/// A node whose operations need no device, and which has none.
constexpr const char* board_without_devices = R"(
nodes:
  - node_id: 0x20
    operations:
      read_type: {kind: sdo_read, index: 0x1000}
)";

/// In a folder with board files, as the home and as the list of interfaces.
class CommandCompletion : public CommandLine {
 protected:
  CommandCompletion() {
    std::filesystem::current_path(folder);
    std::filesystem::remove(board);
    write_file("robot.yaml", board_of_devices);
    write_file("bare.yaml", board_without_devices);
    write_file("broken.yaml", "nodes: [");
    write_file("notes.txt", "");
    std::filesystem::create_directories(folder / "dashes");
    write_file("dashes/-a.yaml", board_of_devices);
    for (const char* const name : {"can0", "can1", "eth0"}) {
      std::filesystem::create_directories(folder / "net" / name);
      write_file(std::string("net/") + name + "/type", name[0] == 'c' ? "280" : "1");
    }
  }

  void TearDown() override {
    std::filesystem::current_path(before_);
    CommandLine::TearDown();
  }

  CommandCandidates candidates(const std::string& line) const {
    std::ostringstream nothing;
    CommandLineHost host{nothing, nothing};
    host.home = folder.string();
    host.network_folder = (folder / "net").string();
    const CommandCandidates found =
        command_candidates(parse_shell_line("velmora-can-bridge " + line, " =:", host.home), host);
    EXPECT_EQ(nothing.str(), "");
    return found;
  }

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
};

struct CommandRow {
  const char* name;
  const char* line;
  Words words;
};

class CommandWords : public CommandCompletion, public testing::WithParamInterface<CommandRow> {};

TEST_P(CommandWords, are_those_that_may_stand_there) {
  const CommandCandidates found = candidates(GetParam().line);
  EXPECT_EQ(found.words, GetParam().words);
  EXPECT_FALSE(found.are_files);
}

const Words sdo_options{"--board", "--bus", "--help", "--json", "--timeout", "--trace"};

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandWords,
    testing::Values(CommandRow{"begun", "s", {"script", "sdo", "simulate", "sync"}},
                    CommandRow{"of_sdo", "sdo ", {"read", "write"}},
                    CommandRow{"unknown", "nonsense ", {}},
                    CommandRow{"unknown_of_sdo", "sdo nonsense ", {}},
                    CommandRow{"not_the_callback", "complete", {}},
                    CommandRow{"options_of_the_program", "-", {"--help", "--version"}},
                    CommandRow{"options_of_sdo", "sdo -", {"--help"}},
                    CommandRow{"topics_of_help", "help sd", {"sdo"}},
                    CommandRow{"second_topic_of_help", "help sdo ", {"read", "write"}},
                    CommandRow{"behind_the_topic", "help run ", {}},
                    CommandRow{"shells", "completion ", {"bash"}},
                    CommandRow{"version_takes_nothing_else", "version ", {"--help"}}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Options, CommandWords,
    testing::Values(
        CommandRow{"begun", "run --t", {"--timeout", "--trace", "--transfers"}},
        CommandRow{"behind_one_dash", "sdo read -", sdo_options},
        CommandRow{"behind_all_words", "sdo read 1 2 3 ", sdo_options},
        CommandRow{"not_those_given",
                   "sdo read --json --bus=sim --timeout 5 --",
                   {"--board", "--help", "--trace"}},
        CommandRow{"not_those_that_exclude_one_another", "explain --json --c", {}},
        CommandRow{"not_those_that_exclude_one_another_turned_round", "explain --candump --j", {}},
        CommandRow{"with_a_value_that_may_be_left_out", "run --w", {"--wait"}},
        CommandRow{"none_behind_two_dashes", "sdo read -- -", {}},
        CommandRow{"none_behind_two_dashes_and_all_words", "check -- robot.yaml ", {}},
        CommandRow{"unknown", "run --nonsense=", {}}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Values, CommandWords,
    testing::Values(CommandRow{"bus", "run --bus ", {"can0", "can1", "sim"}},
                    CommandRow{"bus_begun", "run --bus c", {"can0", "can1"}},
                    CommandRow{"bus_behind_equals", "run --bus=s", {"--bus=sim"}},
                    CommandRow{"interface", "watch --bus ", {"can0", "can1"}},
                    CommandRow{"interface_to_simulate_on", "simulate --bus ", {"can0", "can1"}},
                    CommandRow{"timeout", "run --timeout ", {}},
                    CommandRow{"timeout_behind_equals", "run --timeout=", {}},
                    CommandRow{"wait", "run --wait=", {}},
                    CommandRow{"seconds", "watch --for ", {}},
                    CommandRow{"value_that_looks_like_an_option", "run --bus -", {}}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Places, CommandWords,
    testing::Values(
        CommandRow{"devices", "run robot.yaml ", {"lamp", "wheel"}},
        CommandRow{
            "devices_behind_options", "run --bus can0 --json robot.yaml ", {"lamp", "wheel"}},
        CommandRow{"devices_behind_two_dashes", "run -- robot.yaml ", {"-spare", "lamp", "wheel"}},
        CommandRow{"device_with_a_dash_behind_two_dashes", "run -- robot.yaml -", {"-spare"}},
        CommandRow{"devices_of_a_board_in_quotes", "explain 'robot.yaml' w", {"wheel"}},
        CommandRow{"devices_of_a_board_at_home", "run ~/robot.yaml w", {"wheel"}},
        CommandRow{"node_ids_where_one_is_begun", "run robot.yaml 0", {"0x10"}},
        CommandRow{"decimal_node_ids", "run robot.yaml 1", {"16"}},
        CommandRow{"node_ids_without_devices", "run bare.yaml ", {"0x20", "32"}},
        CommandRow{"operations", "run robot.yaml wheel ", {"enable", "set_lamp", "set_mode"}},
        CommandRow{"operations_that_suit", "run robot.yaml lamp ", {"set_lamp"}},
        CommandRow{"operations_of_a_node_id", "run bare.yaml 0x20 ", {"read_type"}},
        CommandRow{"operations_of_nobody", "run robot.yaml nobody ", {}},
        CommandRow{"payload",
                   "run robot.yaml lamp set_lamp ",
                   {"lamp_level=", "lamp_mode=", "lamp_mode=off", "lamp_mode=on", "off", "on"}},
        CommandRow{
            "payload_behind_options", "run robot.yaml lamp --json set_lamp on ", {"lamp_level="}},
        CommandRow{"codes", "explain robot.yaml lamp set_lamp mode=o", {"mode=off", "mode=on"}},
        CommandRow{"raw_payload", "run robot.yaml lamp set_lamp --raw ", {}},
        CommandRow{"modes", "run robot.yaml wheel set_mode vel", {"velocity"}},
        CommandRow{"behind_the_payload", "run bare.yaml 32 read_type ", {}},
        CommandRow{"commands_of_nmt", "nmt reset", {"reset-communication", "reset-node"}},
        CommandRow{"nodes_of_nmt", "nmt start ", {"all"}},
        CommandRow{
            "nodes_of_nmt_on_a_board", "nmt start --board robot.yaml ", {"0x10", "16", "all"}},
        CommandRow{"nodes_of_sdo", "sdo read --board=robot.yaml ", {"0x10", "16"}},
        CommandRow{"index", "sdo read 16 ", {}},
        CommandRow{"board_that_is_broken", "run broken.yaml ", {}},
        CommandRow{"board_that_is_missing", "run nowhere.yaml ", {}},
        CommandRow{"board_that_is_a_folder", "run net ", {}},
        CommandRow{"program_itself",
                   "",
                   {"check", "completion", "demo", "explain", "heartbeat", "help", "nmt",
                    "operations", "run", "script", "sdo", "simulate", "sync", "version", "watch"}}),
    [](const auto& row) { return std::string(row.param.name); });

class FileCandidates : public CommandCompletion, public testing::WithParamInterface<CommandRow> {};

TEST_P(FileCandidates, are_paths) {
  const CommandCandidates found = candidates(GetParam().line);
  EXPECT_EQ(found.words, GetParam().words);
  EXPECT_TRUE(found.are_files);
}

const Words boards{"bare.yaml", "broken.yaml", "dashes", "net", "robot.yaml"};
const Words files{"bare.yaml", "broken.yaml", "dashes", "net", "notes.txt", "robot.yaml"};

INSTANTIATE_TEST_SUITE_P(
    Rows, FileCandidates,
    testing::Values(CommandRow{"boards", "run ", boards},
                    CommandRow{"boards_behind_two_dashes", "check -- ", boards},
                    CommandRow{"board_at_home", "run ~/r", {"~/robot.yaml"}},
                    CommandRow{"board_to_simulate", "sdo read --board r", {"robot.yaml"}},
                    CommandRow{"board_behind_equals", "sdo read --board=r", {"--board=robot.yaml"}},
                    CommandRow{"trace", "run --trace ", files},
                    CommandRow{"script_of_faults", "simulate --script ", files},
                    CommandRow{"script", "script robot.yaml n", {"net", "notes.txt"}},
                    CommandRow{"home_behind_equals", "sdo read --board=~/r", {}},
                    CommandRow{"home_in_quotes", "run \"~/r", {}},
                    CommandRow{"home_of_a_redirection", "demo >~/n", {"~/net", "~/notes.txt"}},
                    CommandRow{"redirection", "operations robot.yaml >n", {"net", "notes.txt"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(CommandCompletion, of_the_programs_name_is_the_shells) {
  std::ostringstream nothing;
  const CommandLineHost host{nothing, nothing};
  EXPECT_EQ(command_candidates(parse_shell_line("velm", "", ""), host).words, Words());
}

TEST_F(CommandCompletion, knows_the_options_of_every_command) {
  for (const CommandHelp& command : command_helps()) {
    if (!subcommands(command.name).empty()) {
      continue;
    }
    Words options{std::string(help_option.name)};
    for (const ArgumentHelp& argument : command.arguments) {
      if (argument.is_option()) {
        options.emplace_back(argument.name);
      }
    }
    std::sort(options.begin(), options.end());
    EXPECT_EQ(candidates(std::string(command.name) + " -").words, options) << command.name;
  }
}

TEST_F(CommandCompletion, offers_no_name_that_a_terminal_would_obey) {
  write_file("odd.yaml", R"(
nodes:
  - node_id: 0x10
    device_od_map:
      "two\nlines": {base_index: 0x2000}
      "\e[31m": {base_index: 0x2100}
      "my lamp": {base_index: 0x2200}
)");
  write_file("a\nb.yaml", board_of_devices);
  EXPECT_EQ(candidates("run odd.yaml ").words, Words{"my lamp"});
  EXPECT_THAT(candidates("run ").words, Not(Contains(testing::HasSubstr("\n"))));
}

TEST_F(CommandCompletion, waits_for_no_pipe) {
  ASSERT_EQ(mkfifo((folder / "pipe.yaml").c_str(), 0600), 0);
  EXPECT_EQ(candidates("run pipe.yaml ").words, Words());
}

struct DashRow {
  const char* name;
  const char* line;
  const char* word;
};

/// In a folder whose board file has a name that looks like an option.
class DashedFile : public CommandCompletion, public testing::WithParamInterface<DashRow> {};

TEST_P(DashedFile, is_offered_as_no_option) {
  std::filesystem::current_path(folder / "dashes");
  EXPECT_EQ(candidates(GetParam().line).words, Words{GetParam().word});
}

INSTANTIATE_TEST_SUITE_P(Rows, DashedFile,
                         testing::Values(DashRow{"board", "run ", "./-a.yaml"},
                                         DashRow{"script", "script ./-a.yaml ", "./-a.yaml"},
                                         DashRow{"value", "sdo read --board ", "./-a.yaml"},
                                         DashRow{"trace", "sdo read --trace=", "--trace=./-a.yaml"},
                                         DashRow{"behind_two_dashes", "run -- -", "-a.yaml"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(CommandCompletion, of_a_variable_is_the_shells) {
  write_file("$HOME", "");
  EXPECT_EQ(candidates("script robot.yaml $HO").words, Words());
  EXPECT_EQ(candidates("script robot.yaml '$HO").words, Words{"$HOME"});
}

TEST_F(CommandCompletion, reads_no_huge_board) {
  const auto padded = [](std::size_t size) {
    const std::string text = std::string(board_without_devices) + "#";
    return text + std::string(size - text.size(), 'x');
  };
  write_file("huge.yaml", padded(256001));
  EXPECT_EQ(candidates("run huge.yaml ").words, Words());
  write_file("large.yaml", padded(256000));
  EXPECT_EQ(candidates("run large.yaml ").words, (Words{"0x20", "32"}));
}

}  // namespace
}  // namespace velmora_can_bridge
