#include "help_table.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "command_line_fixture.hpp"
#include "command_parser.hpp"
#include "example_board.hpp"
#include "help_text.hpp"
#include "wrapped_text.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;

using Strings = std::vector<std::string>;

/// The commands of the parser by the names that the table has for them, sub-commands included.
void add_commands(const CLI::App& parent, const std::string& prefix,
                  std::vector<std::pair<std::string, const CLI::App*>>& commands) {
  for (const CLI::App* const command : parent.get_subcommands({})) {
    commands.emplace_back(prefix + command->get_name(), command);
    add_commands(*command, prefix + command->get_name() + " ", commands);
  }
}

std::vector<std::pair<std::string, const CLI::App*>> commands_of(const CLI::App& parser) {
  std::vector<std::pair<std::string, const CLI::App*>> commands;
  add_commands(parser, "", commands);
  return commands;
}

/// What the parser knows of an argument, as the row of the table would say it.
std::string described(const CLI::Option& option) {
  const bool is_option = !option.get_lnames().empty();
  const std::string name = is_option ? "--" + option.get_lnames().front() : option.get_name();
  const bool repeats = option.get_expected_max() > 1;
  const bool has_value = is_option && option.get_items_expected_min() != 0;
  return name + (has_value ? " with value" : "") + (option.get_required() ? " required" : "") +
         (repeats ? " repeats" : "");
}

std::string described(const ArgumentHelp& argument) {
  const bool has_value = !argument.value.empty() && argument.value.front() != '[';
  return std::string(argument.name) + (has_value ? " with value" : "") +
         (argument.is_required ? " required" : "") + (argument.repeats ? " repeats" : "");
}

TEST(HelpTable, has_the_commands_of_the_parser) {
  Arguments parsed;
  const auto parser = command_parser(parsed);
  std::set<std::string> known;
  for (const auto& [name, command] : commands_of(*parser)) {
    known.insert(name);
  }
  std::set<std::string> told;
  for (const CommandHelp& command : command_helps()) {
    told.insert(std::string(command.name));
  }
  EXPECT_EQ(told, known);
}

TEST(HelpTable, has_the_arguments_of_every_command) {
  Arguments parsed;
  const auto parser = command_parser(parsed);
  for (const auto& [name, command] : commands_of(*parser)) {
    SCOPED_TRACE(name);
    std::set<std::string> known;
    for (const CLI::Option* const option : command->get_options()) {
      known.insert(described(*option));
    }
    const CommandHelp* const help = find_command_help(name);
    ASSERT_NE(help, nullptr);
    std::set<std::string> told{described(help_option)};
    for (const ArgumentHelp& argument : help->arguments) {
      told.insert(described(argument));
    }
    EXPECT_EQ(told, known);
  }
}

TEST(HelpTable, tells_something_of_everything) {
  for (const CommandHelp& command : command_helps()) {
    SCOPED_TRACE(command.name);
    EXPECT_NE(command.summary, "");
    EXPECT_NE(command.description, "");
    for (const ArgumentHelp& argument : command.arguments) {
      EXPECT_NE(argument.help, "") << argument.name;
    }
    EXPECT_GE(command.examples.size(), 2U);
    for (const ExampleHelp& example : command.examples) {
      EXPECT_NE(example.purpose, "");
      EXPECT_TRUE(example.arguments.rfind(command.name, 0) == 0 ||
                  example.arguments == version_option.name)
          << example.arguments;
    }
  }
}

TEST(HelpTable, has_every_exit_status_once) {
  std::vector<int> statuses;
  for (const ExitStatusHelp& row : exit_status_helps()) {
    statuses.push_back(static_cast<int>(row.status));
  }
  EXPECT_EQ(statuses, (std::vector<int>{0, 1, 2, 3, 4, 130}));
}

struct StatusRow {
  const char* command;
  std::vector<int> statuses;
};

class ExitStatuses : public testing::TestWithParam<StatusRow> {};

TEST_P(ExitStatuses, are_told_of_a_bus_where_there_may_be_one) {
  std::vector<int> statuses;
  for (const ExitStatusHelp& row : exit_status_helps_of(*find_command_help(GetParam().command))) {
    statuses.push_back(static_cast<int>(row.status));
  }
  EXPECT_EQ(statuses, GetParam().statuses);
}

INSTANTIATE_TEST_SUITE_P(Rows, ExitStatuses,
                         testing::Values(StatusRow{"run", {0, 1, 2, 3, 4, 130}},
                                         StatusRow{"check", {0, 1, 2, 3, 4, 130}},
                                         StatusRow{"sdo", {0, 1, 2, 3, 4, 130}},
                                         StatusRow{"operations", {0, 1, 2, 130}},
                                         StatusRow{"demo", {0, 1, 2, 130}}),
                         [](const auto& row) { return std::string(row.param.command); });

TEST(HelpTable, examples_parse) {
  for (const CommandHelp& command : command_helps()) {
    for (const ExampleHelp& example : command.examples) {
      SCOPED_TRACE(example.arguments);
      if (example.arguments == version_option.name) {
        continue;  // ends the parser
      }
      Arguments parsed;
      const auto parser = command_parser(parsed);
      EXPECT_NO_THROW(parser->parse(parser_arguments(words_of(example.arguments))));
      EXPECT_EQ(parsed_command(*parser).rfind(command.name, 0), 0U);
    }
  }
}

/// Examples that need no interface.
TEST_F(CommandLine, examples_of_the_help_work_on_the_example_board) {
  const std::string path = write_file("robot.yaml", std::string(example_board()));
  std::istringstream no_lines;
  in = &no_lines;
  int run_so_far = 0;
  for (const CommandHelp& command : command_helps()) {
    for (const ExampleHelp& example : command.examples) {
      Strings words = words_of(example.arguments);
      if (std::find(words.begin(), words.end(), "--bus") != words.end()) {
        continue;
      }
      std::replace(words.begin(), words.end(), std::string("robot.yaml"), path);
      EXPECT_EQ(run(words), ExitStatus::success) << example.arguments << '\n' << err;
      ++run_so_far;
    }
  }
  EXPECT_GE(run_so_far, 12);
}

class Help : public CommandLine {
 protected:
  /// What --help and `help` show, for a command or the program.
  std::string help_of(const std::string& command) {
    Strings arguments = words_of(command);
    arguments.emplace_back("--help");
    EXPECT_EQ(run(arguments), ExitStatus::success) << err;
    EXPECT_EQ(err, "");
    const std::string shown = out;
    arguments = words_of(command);
    arguments.insert(arguments.begin(), "help");
    EXPECT_EQ(run(arguments), ExitStatus::success) << err;
    EXPECT_EQ(out, shown);
    return shown;
  }
};

TEST_F(Help, of_the_program_lists_its_commands_and_not_theirs) {
  const std::string help = help_of("");
  for (const CommandHelp& command : command_helps()) {
    const bool is_listed = help.find("\n  " + std::string(command.name) + " ") != std::string::npos;
    EXPECT_EQ(is_listed, command.name.find(' ') == std::string_view::npos) << command.name;
  }
  EXPECT_THAT(help, HasSubstr("Usage: velmora-can-bridge COMMAND ...\n"));
  EXPECT_THAT(help, HasSubstr("\n  --version "));
}

TEST_F(Help, of_a_command_has_its_usage_arguments_and_examples) {
  const std::string help = help_of("simulate");
  EXPECT_THAT(help, HasSubstr("Usage: velmora-can-bridge simulate BOARD --bus IFACE "
                              "[--trace FILE]\n                                   "
                              "[--script FILE] [--for SECONDS]\n"));
  EXPECT_THAT(help, HasSubstr("\n  BOARD  the board file (YAML)\n"));
  EXPECT_THAT(help, HasSubstr("\n  --for SECONDS  end after so many seconds, 1 to 31536000\n"));
  EXPECT_THAT(help, HasSubstr("Examples:\n  Simulate until Ctrl-C:\n"
                              "    velmora-can-bridge simulate robot.yaml --bus vcan0\n"));
  EXPECT_THAT(help, HasSubstr("Exit status: 0 done; 1 the operation failed; "));
}

TEST_F(Help, shows_a_value_that_may_be_left_out) {
  const std::string help = help_of("run");
  EXPECT_THAT(help, HasSubstr(" [--wait[=SECONDS]]"));
  EXPECT_THAT(help, HasSubstr("\n  --wait[=SECONDS]  wait until a drive "));
}

TEST_F(Help, of_simulate_asks_for_a_real_interface) {
  EXPECT_THAT(help_of("simulate"), testing::Not(HasSubstr("sim, the default")));
}

TEST_F(Help, of_a_command_lists_its_sub_commands) {
  const std::string help = help_of("sdo");
  EXPECT_THAT(help, HasSubstr("Usage: velmora-can-bridge sdo COMMAND ...\n"));
  EXPECT_THAT(help, HasSubstr("\n  sdo read   Read one object\n  sdo write  Write one object\n"));
}

TEST_F(Help, fits_80_columns) {
  Strings names{""};
  for (const CommandHelp& command : command_helps()) {
    names.emplace_back(command.name);
  }
  for (const std::string& name : names) {
    std::istringstream lines(help_of(name));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), 80U) << name << ": " << line;
    }
  }
}

struct MisspeltRow {
  const char* name;
  Strings arguments;
  const char* text;
};

class Misspelt : public CommandLine, public testing::WithParamInterface<MisspeltRow> {};

TEST_P(Misspelt, command_is_named_with_the_nearest_one) {
  EXPECT_EQ(run(GetParam().arguments), ExitStatus::bad_input);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "velmora-can-bridge: unknown command " + std::string(GetParam().text) +
                     " (see --help)\n");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Misspelt,
    testing::Values(
        MisspeltRow{"near", {"chekc", "board.yaml"}, "\"chekc\", did you mean \"check\"?"},
        MisspeltRow{"far", {"nonsense"}, "\"nonsense\""},
        MisspeltRow{
            "sub_command", {"sdo", "raed", "1"}, "\"sdo raed\", did you mean \"sdo read\"?"},
        MisspeltRow{"topic_of_help", {"help", "exlain"}, "\"exlain\", did you mean \"explain\"?"},
        MisspeltRow{"topic_of_two_words",
                    {"help", "sdo", "wrte"},
                    "\"sdo wrte\", did you mean \"sdo write\"?"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Help, version_is_that_of_the_option) {
  EXPECT_EQ(run({"--version"}), ExitStatus::success);
  const std::string shown = out;
  EXPECT_EQ(run({"version"}), ExitStatus::success);
  EXPECT_EQ(out, shown);
  EXPECT_THAT(out, testing::MatchesRegex("velmora-can-bridge [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
}  // namespace velmora_can_bridge
