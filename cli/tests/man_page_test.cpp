#include "man_page.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "board_page.hpp"
#include "help_text.hpp"
#include "man_pages.hpp"
#include "repository_paths.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;

using Strings = std::vector<std::string>;

std::string document(const std::string& name) {
  std::ifstream file(std::string(docs_path) + "/" + name);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The page without what roff needs: its requests and fonts.
std::string bare(std::string roff) {
  const std::map<std::string, std::string> signs{{"\\fB", ""},   {"\\fI", ""},    {"\\fR", ""},
                                                 {"\\-", "-"},   {"\\(aq", "'"},  {"\\(dq", "\""},
                                                 {"\\(ga", "`"}, {"\\(rs", "\\"}, {"\\(ti", "~"},
                                                 {"\\&", ""},    {"\\(ha", "^"},  {"\\ ", " "}};
  for (const auto& [sign, text] : signs) {
    for (std::size_t at = roff.find(sign); at != std::string::npos; at = roff.find(sign, at)) {
      roff.replace(at, sign.size(), text);
    }
  }
  return roff;
}

/// The lines of a section of the page.
std::string section(const std::string& page, const std::string& title) {
  const std::string heading = "\n.SH " + title + "\n";
  const std::size_t begin = page.find(heading);
  if (begin == std::string::npos) {
    return "";
  }
  const std::size_t text = begin + heading.size();
  const std::size_t end = page.find("\n.SH ", begin + 1);
  return page.substr(text, end == std::string::npos ? end : end + 1 - text);
}

bool is_open(const std::string& argument) {
  return argument.front() == '[' && argument.back() != ']' &&
         argument.find("]...") == std::string::npos;
}

/// Whether the word is the value of the option before it: "IFACE" behind "--bus".
bool is_value(const std::string& word, const std::string& before) {
  return before.rfind("--", 0) == 0 && before.find(' ') == std::string::npos &&
         std::isupper(static_cast<unsigned char>(word.front())) != 0;
}

/// "NODE|all" is "NODE", "[FILE|-]" is "[FILE]".
std::string first_alternative(const std::string& argument) {
  const std::size_t bar = argument.find('|');
  const std::string end = argument.front() == '[' ? "]" : "";
  return bar == std::string::npos ? argument : argument.substr(0, bar) + end;
}

/// The arguments of a usage, sorted, as they stand in brackets or not: "[--bus BUS]". Of
/// "[--json | --candump]" both.
Strings usage_arguments(const std::string& usage) {
  Strings arguments;
  std::istringstream words(usage);
  for (std::string word; words >> word;) {
    if (word == "|") {
      arguments.back() += "]";
      words >> word;
      arguments.push_back("[" + word);
    } else if (!arguments.empty() &&
               (is_open(arguments.back()) || is_value(word, arguments.back()))) {
      arguments.back() += " " + word;
    } else {
      arguments.push_back(word);
    }
  }
  std::transform(arguments.begin(), arguments.end(), arguments.begin(), first_alternative);
  std::sort(arguments.begin(), arguments.end());
  return arguments;
}

/// The usage of the command in the text, with the lines below it that are indented; without the
/// command.
std::string usage_behind(const std::string& text, const std::string& command) {
  const std::size_t begin = text.find(command);
  if (begin == std::string::npos) {
    return "no usage";
  }
  std::size_t end = text.find('\n', begin + command.size());
  while (end != std::string::npos && end + 1 < text.size() && text[end + 1] == ' ') {
    end = text.find('\n', end + 1);
  }
  return text.substr(begin + command.size(), end - begin - command.size());
}

class EveryCommand : public testing::TestWithParam<std::string_view> {
 protected:
  static const CommandHelp& help() { return *find_command_help(GetParam()); }

  static std::string call() { return std::string(program_name) + " " + std::string(GetParam()); }

  static bool has_commands() { return !subcommands(GetParam()).empty(); }

  /// As the table tells it.
  static Strings told() {
    return has_commands() ? Strings{"...", "COMMAND"} : usage_arguments(synopsis(help()));
  }

  static std::string page() { return bare(man_page(help())); }
};

TEST_P(EveryCommand, has_its_arguments_in_the_help) {
  EXPECT_EQ(usage_arguments(usage_behind(help_text(help()), "Usage: " + call())), told());
}

TEST_P(EveryCommand, has_its_arguments_in_the_synopsis_of_its_page) {
  const std::string lines = section(page(), "SYNOPSIS");
  ASSERT_EQ(lines.rfind(call() + "\n", 0), 0U) << lines;
  EXPECT_EQ(usage_arguments(lines.substr(call().size())), told());
}

TEST_P(EveryCommand, has_its_arguments_in_the_document_of_the_program) {
  if (has_commands()) {
    return;  // its commands have them
  }
  const std::string usage = usage_behind(document("command-line.md"), "\n" + call());
  EXPECT_EQ(usage_arguments(usage), told());
}

TEST_P(EveryCommand, has_what_the_table_tells_on_its_page) {
  const std::string lines = page();
  std::string entries = section(lines, "ARGUMENTS") + section(lines, "OPTIONS");
  for (const ArgumentHelp& argument : help().arguments) {
    const bool is_joined = argument.value.empty() || argument.value.front() == '[';
    const std::string tag = std::string(argument.name) + (is_joined ? "" : " ") +
                            std::string(argument.value) + (argument.repeats ? "..." : "");
    EXPECT_THAT(entries, HasSubstr(".TP\n" + tag + "\n" + std::string(argument.help) + "\n"));
  }
  EXPECT_THAT(entries, HasSubstr(".TP\n--help\nprint the usage in short and end\n"));
  for (const ExampleHelp& example : help().examples) {
    EXPECT_THAT(section(lines, "EXAMPLES"),
                HasSubstr(std::string(example.purpose) + ":\n.PP\n.RS 4\n.EX\n" +
                          example_line(example) + "\n.EE\n"));
  }
  for (const ExitStatusHelp& row : exit_status_helps_of(help())) {
    EXPECT_THAT(section(lines, "EXIT STATUS"),
                HasSubstr(".TP\n" + std::to_string(static_cast<int>(row.status)) + "\n" +
                          std::string(row.help) + "\n"));
  }
  EXPECT_THAT(section(lines, "ENVIRONMENT"), HasSubstr("NO_COLOR"));
  EXPECT_THAT(section(lines, "SEE ALSO"), HasSubstr("velmora-can-bridge(1)"));
}

TEST_P(EveryCommand, has_a_name_with_the_summary_on_its_page) {
  const std::string name = section(page(), "NAME");
  EXPECT_EQ(name.rfind(man_page_name(GetParam()) + " - ", 0), 0U) << name;
  const std::string summary = name.substr(name.find(" - ") + 3);
  EXPECT_EQ(summary.substr(1), std::string(help().summary.substr(1)) + "\n");
  EXPECT_NE(std::islower(static_cast<unsigned char>(summary.front())), 0);
}

TEST_P(EveryCommand, has_a_page_without_warnings) {
  EXPECT_EQ(PageFile(man_page_name(GetParam()), man_page(help())).warnings(), "");
}

TEST_P(EveryCommand, has_a_head_of_the_page_that_fits_80_columns) {
  const std::string shown = PageFile(man_page_name(GetParam()), man_page(help())).shown();
  const std::string head = shown.substr(0, shown.find('\n'));
  EXPECT_LE(head.size(), 80U);
  EXPECT_THAT(head, HasSubstr("(1)  ")) << "blanks between the words";
  EXPECT_THAT(head, HasSubstr("  Commands  "));
}

std::vector<std::string_view> all_commands() {
  std::vector<std::string_view> names;
  for (const CommandHelp& command : command_helps()) {
    names.push_back(command.name);
  }
  return names;
}

INSTANTIATE_TEST_SUITE_P(Rows, EveryCommand, testing::ValuesIn(all_commands()),
                         [](const auto& row) {
                           std::string name(row.param);
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

TEST(ProgramPage, lists_all_commands_and_has_no_warnings) {
  const std::string page = bare(program_man_page());
  for (const CommandHelp* const command : subcommands("")) {
    EXPECT_THAT(section(page, "COMMANDS"),
                HasSubstr(".TP\n" + man_page_name(command->name) + "(1)\n" +
                          std::string(command->summary) + "\n"));
  }
  EXPECT_THAT(section(page, "OPTIONS"), HasSubstr(".TP\n--version\n"));
  EXPECT_THAT(section(page, "SYNOPSIS"), HasSubstr("velmora-can-bridge\nCOMMAND ...\n"));
  EXPECT_THAT(section(page, "SEE ALSO"), HasSubstr("velmora-can-bridge-board(5)"));
  EXPECT_EQ(section(page, "NAME"),
            "velmora-can-bridge - run configured operations on the CANopen nodes of a robot "
            "board\n");
  EXPECT_EQ(PageFile("program", program_man_page()).warnings(), "");
}

TEST(ManPage, of_a_command_refers_to_that_above_and_to_its_files) {
  const std::string page = bare(man_page(*find_command_help("sdo read")));
  EXPECT_THAT(section(page, "SEE ALSO"), HasSubstr("velmora-can-bridge-sdo(1)"));
  EXPECT_THAT(section(page, "FILES"),
              HasSubstr(".TP\nFILE\na board file, whose format velmora-can-bridge-board(5) "));
  EXPECT_EQ(section(bare(man_page(*find_command_help("version"))), "FILES"), "");
}

/// The text of the document on one line, without the marks of code.
std::string running_text(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
  return text;
}

TEST(ProgramDocument, tells_what_a_device_may_be_as_the_help_does) {
  for (const char* const name : {"run", "explain"}) {
    const std::vector<ArgumentHelp>& arguments = find_command_help(name)->arguments;
    const auto device =
        std::find_if(arguments.begin(), arguments.end(),
                     [](const ArgumentHelp& argument) { return argument.name == "DEVICE"; });
    ASSERT_NE(device, arguments.end());
    EXPECT_THAT(std::string(device->help), HasSubstr("a node id where the operation needs none"));
    EXPECT_THAT(running_text(document("command-line.md")),
                HasSubstr("DEVICE is " + std::string(device->help)));
  }
}

TEST(CheckPage, tells_of_transmission_types_and_the_sync) {
  const std::string page = bare(man_page(*find_command_help("check")));
  EXPECT_THAT(section(page, "DESCRIPTION"), HasSubstr("transmission types"));
  EXPECT_THAT(section(page, "DESCRIPTION"), HasSubstr("warns when RPDOs wait for a SYNC"));
}

TEST(ProgramDocument, lists_the_commands_of_the_table) {
  const std::string text = document("command-line.md");
  Strings listed;
  for (std::size_t at = text.find("\n| [`"); at != std::string::npos;
       at = text.find("\n| [`", at + 1)) {
    listed.push_back(text.substr(at + 5, text.find('`', at + 5) - at - 5));
  }
  Strings told;
  for (const CommandHelp* const command : subcommands("")) {
    told.emplace_back(command->name);
  }
  EXPECT_THAT(listed, testing::UnorderedElementsAreArray(told));
}

/// The first cells of the rows of its tables.
Strings keys_of(const std::string& markdown) {
  Strings keys;
  std::istringstream lines(markdown);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("| ", 0) == 0) {
      std::string key = line.substr(2, line.find(" |", 2) - 2);
      key.erase(std::remove(key.begin(), key.end(), '`'), key.end());
      keys.push_back(key);
    }
  }
  return keys;
}

TEST(BoardPage, has_every_key_of_its_document) {
  const std::string markdown = document("board-file.md");
  const Expected<std::string> page = board_man_page(markdown);
  ASSERT_TRUE(page) << page.error();
  const PageFile file("board", *page);
  EXPECT_EQ(file.warnings(), "");
  const Strings keys = keys_of(markdown);
  EXPECT_GT(keys.size(), 60U);
  for (const std::string& key : keys) {
    EXPECT_TRUE(bare(*page).find("\n.TP\n" + key + "\n") != std::string::npos ||
                bare(*page).find("\n.SS " + key) != std::string::npos)
        << key;
  }
  EXPECT_THAT(file.shown(), HasSubstr("\nWHAT VALUES MEAN\n"));
  EXPECT_THAT(file.shown(), testing::Not(HasSubstr("\nTHREADS")));
}

TEST(BoardPage, refers_to_the_page_of_check_and_to_the_example) {
  const std::string page = bare(*board_man_page(document("board-file.md")));
  EXPECT_THAT(section(page, "PITFALLS"),
              HasSubstr("warns when no SYNC comes (velmora-can-bridge-check(1))"));
  EXPECT_THAT(section(page, "FILES"), HasSubstr("/examples/robot_board.yaml\nthe example board"));
}

TEST(BoardPage, fits_80_columns_but_for_its_examples) {
  const PageFile file("board_columns", *board_man_page(document("board-file.md")));
  std::istringstream lines(file.shown());
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("           ", 0) != 0) {
      EXPECT_LE(line.size(), 90U) << line;
    }
  }
}

}  // namespace
}  // namespace velmora_can_bridge
