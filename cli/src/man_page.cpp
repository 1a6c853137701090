#include "man_page.hpp"

#include <algorithm>
#include <vector>

#include "ground/nearest_name.hpp"
#include "roff.hpp"

namespace velmora_can_bridge {
namespace {

struct VariableHelp {
  std::string_view name;
  std::string_view help;
};

constexpr VariableHelp variables[] = {
    {"COLUMNS", "how wide tables may be; the width of the terminal where it is not set"},
    {"NO_COLOR", "nothing is coloured where it is set and not empty"},
    {"TERM", "nothing is coloured where it is dumb"}};

/// As `help_option`, for a reader of the page.
constexpr ArgumentHelp help_option_of_page{help_option.name, "",
                                           "print the usage in short and end"};

/// What follows where there are commands below.
constexpr const char* command_place = "\\fICOMMAND\\fR ...\n";

/// "--bus BUS", "--wait[=SECONDS]", "PAYLOAD...": what is typed as it stands is bold.
std::string argument_text(const ArgumentHelp& argument) {
  std::string text = argument.is_option() ? roff_bold(argument.name) : roff_italic(argument.name);
  if (!argument.value.empty() && argument.value.front() == '[') {
    const std::string_view value = argument.value.substr(2, argument.value.size() - 3);
    text += "[=" + roff_italic(value) + "]";
  } else if (!argument.value.empty()) {
    text += "\\ " + roff_italic(argument.value);  // a blank that ends no line
  }
  // Without the sign of no width the line would end a sentence, and two blanks would follow.
  return argument.repeats ? text + "...\\&" : text;
}

/// A command line, without its arguments.
std::string typed_command(std::string_view command) {
  const std::string name = command.empty() ? "" : " " + std::string(command);
  return roff_bold(program_name + name) + '\n';
}

/// Each argument on a line of the source.
std::string synopsis_arguments(const CommandHelp& command) {
  std::string text;
  for (const ArgumentHelp& argument : command.arguments) {
    const std::string typed = argument_text(argument);
    text += (argument.is_required ? typed : "[" + typed + "]") + '\n';
  }
  return text;
}

/// What stands behind the name of a page: without the capital.
std::string summary_of(std::string_view text) {
  return in_lower_case(text.substr(0, 1)) + std::string(text.substr(1));
}

std::string roff_paragraphs(std::string_view text) {
  std::string roff;
  while (!text.empty()) {
    const std::string_view paragraph = text.substr(0, text.find('\n'));
    roff += (roff.empty() ? "" : ".PP\n") + roff_text(paragraph) + '\n';
    text.remove_prefix(std::min(paragraph.size() + 1, text.size()));
  }
  return roff;
}

std::string argument_section(std::string_view title, const std::vector<ArgumentHelp>& arguments) {
  std::string entries;
  for (const ArgumentHelp& argument : arguments) {
    entries += roff_entry(argument_text(argument), roff_text(argument.help));
  }
  return entries.empty() ? "" : roff_section(title) + entries;
}

/// The options, or the words in their places.
std::vector<ArgumentHelp> arguments_of(const CommandHelp& command, bool options) {
  std::vector<ArgumentHelp> arguments;
  std::copy_if(command.arguments.begin(), command.arguments.end(), std::back_inserter(arguments),
               [=](const ArgumentHelp& argument) { return argument.is_option() == options; });
  return arguments;
}

std::string command_section(std::string_view parent) {
  std::string entries;
  for (const CommandHelp* const command : subcommands(parent)) {
    entries +=
        roff_entry(roff_reference(man_page_name(command->name), 1), roff_text(command->summary));
  }
  return entries.empty() ? "" : roff_section("commands") + entries;
}

std::string exit_status_section(const std::vector<ExitStatusHelp>& rows) {
  std::string text = roff_section("exit status");
  for (const ExitStatusHelp& row : rows) {
    text +=
        roff_entry(roff_bold(std::to_string(static_cast<int>(row.status))), roff_text(row.help));
  }
  return text;
}

std::string environment_section() {
  std::string text = roff_section("environment");
  for (const VariableHelp& variable : variables) {
    text += roff_entry(roff_bold(variable.name), roff_text(variable.help));
  }
  return text;
}

std::string files_section(std::string_view board) {
  return roff_section("files") +
         roff_entry(roff_italic(board), "a board file, whose format " +
                                            roff_reference(board_page_name, 5) + " describes");
}

std::string example_section(const CommandHelp& command) {
  std::string text;
  for (const ExampleHelp& example : command.examples) {
    text += (text.empty() ? "" : ".PP\n") + roff_text(example.purpose) + ":\n.PP\n" +
            roff_example(example_line(example));
  }
  return roff_section("examples") + text;
}

std::string see_also_section(const std::vector<std::string>& references) {
  std::string text;
  for (const std::string& reference : references) {
    text += (text.empty() ? "" : ",\n") + reference;
  }
  return roff_section("see also") + text + '\n';
}

/// What stands for a board file in the command's arguments; empty where it takes none.
std::string_view board_argument(const CommandHelp& command) {
  for (const ArgumentHelp& argument : command.arguments) {
    if (argument.name == "BOARD" || argument.name == "--board") {
      return argument.is_option() ? argument.value : argument.name;
    }
  }
  return "";
}

std::string parent_of(std::string_view command) {
  const std::size_t blank = command.find(' ');
  return std::string(command.substr(0, blank == std::string_view::npos ? 0 : blank));
}

std::string see_also(const CommandHelp& command, bool has_board) {
  std::vector<std::string> references{roff_reference(program_name, 1)};
  const std::string parent = parent_of(command.name);
  if (!parent.empty()) {
    references.push_back(roff_reference(man_page_name(parent), 1));
  }
  if (has_board) {
    references.push_back(roff_reference(board_page_name, 5));
  }
  return see_also_section(references);
}

std::string synopsis_section(const CommandHelp& command) {
  const bool has_commands = !subcommands(command.name).empty();
  return roff_section("synopsis") + typed_command(command.name) +
         (has_commands ? command_place : synopsis_arguments(command));
}

}  // namespace

std::string man_page_name(std::string_view command) {
  std::string name = program_name;
  name += command.empty() ? "" : "-" + std::string(command);
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

std::string man_page(const CommandHelp& command) {
  std::vector<ArgumentHelp> options = arguments_of(command, true);
  options.push_back(help_option_of_page);
  const std::string_view board = board_argument(command);
  return roff_head({man_page_name(command.name), 1, summary_of(command.summary)}) +
         synopsis_section(command) + roff_section("description") +
         roff_paragraphs(command.description) + command_section(command.name) +
         argument_section("arguments", arguments_of(command, false)) +
         argument_section("options", options) + exit_status_section(exit_status_helps_of(command)) +
         environment_section() + (board.empty() ? "" : files_section(board)) +
         example_section(command) + see_also(command, !board.empty());
}

std::string program_man_page() {
  return roff_head({program_name, 1, summary_of(program_summary)}) + roff_section("synopsis") +
         typed_command("") + command_place + roff_section("description") +
         roff_paragraphs(program_description) + ".PP\nEach command has a page of its own. " +
         roff_bold(program_name) + " " + roff_italic("COMMAND") + " " +
         roff_bold(help_option.name) + " tells the same in short.\n" + command_section("") +
         argument_section("options", {help_option_of_page, version_option}) +
         exit_status_section(exit_status_helps()) + environment_section() + files_section("BOARD") +
         see_also_section({roff_reference(board_page_name, 5)});
}

}  // namespace velmora_can_bridge
