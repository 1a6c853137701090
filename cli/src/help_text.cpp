#include "help_text.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "wrapped_text.hpp"

namespace velmora_can_bridge {
namespace {

using Strings = std::vector<std::string>;

constexpr std::size_t line_width = 80;

/// "--bus BUS", "PAYLOAD...".
std::string typed_argument(const ArgumentHelp& argument) {
  std::string text(argument.name);
  if (!argument.value.empty()) {
    text += (argument.value.front() == '[' ? "" : " ") + std::string(argument.value);
  }
  return argument.repeats ? text + "..." : text;
}

std::string in_synopsis(const ArgumentHelp& argument) {
  return argument.is_required ? typed_argument(argument) : "[" + typed_argument(argument) + "]";
}

Strings synopsis_words(const CommandHelp& command) {
  Strings words;
  for (const ArgumentHelp& argument : command.arguments) {
    words.push_back(in_synopsis(argument));
  }
  return words;
}

/// Lines that begin with `first`, the others with as many blanks.
std::string hanging(const std::string& first, const Strings& words) {
  std::string text;
  std::string begin = first;
  for (const std::string& line : wrapped(words, line_width - first.size())) {
    text += begin + line + '\n';
    begin.assign(first.size(), ' ');
  }
  return text;
}

std::string paragraphs(std::string_view text) {
  std::string lines;
  while (!text.empty()) {
    const std::string_view paragraph = text.substr(0, text.find('\n'));
    lines += '\n' + hanging("", words_of(paragraph));
    text.remove_prefix(std::min(paragraph.size() + 1, text.size()));
  }
  return lines;
}

struct Entry {
  std::string name;
  std::string_view help;
};

/// A headed list in two columns; nothing for no entries.
std::string list(const std::string& heading, const std::vector<Entry>& entries) {
  std::size_t widest = 0;
  for (const Entry& entry : entries) {
    widest = std::max(widest, entry.name.size());
  }
  std::string text = entries.empty() ? "" : '\n' + heading + ":\n";
  for (const Entry& entry : entries) {
    const std::string first = "  " + entry.name + std::string(widest + 2 - entry.name.size(), ' ');
    text += hanging(first, words_of(entry.help));
  }
  return text;
}

std::vector<Entry> arguments(const CommandHelp& command, bool options) {
  std::vector<Entry> entries;
  for (const ArgumentHelp& argument : command.arguments) {
    if (argument.is_option() == options) {
      entries.push_back({typed_argument(argument), argument.help});
    }
  }
  if (options) {
    entries.push_back({typed_argument(help_option), help_option.help});
  }
  return entries;
}

std::string examples(const CommandHelp& command) {
  std::string text = "\nExamples:\n";
  for (const ExampleHelp& example : command.examples) {
    text += hanging("  ", words_of(std::string(example.purpose) + ":"));
    text += "    " + example_line(example) + '\n';
  }
  return text;
}

std::string exit_statuses(const std::vector<ExitStatusHelp>& rows) {
  std::string words;
  for (const ExitStatusHelp& row : rows) {
    words += (words.empty() ? "" : "; ") + std::to_string(static_cast<int>(row.status)) + " " +
             std::string(row.help);
  }
  return '\n' + hanging("Exit status: ", words_of(words + "."));
}

/// The sub-commands of `parent`; those of the program for an empty one.
std::vector<Entry> commands_of(std::string_view parent) {
  std::vector<Entry> entries;
  for (const CommandHelp* const command : subcommands(parent)) {
    entries.push_back({std::string(command->name), command->summary});
  }
  return entries;
}

std::string usage(std::string_view command, Strings words, const std::vector<Entry>& subcommands) {
  if (!subcommands.empty()) {
    words.insert(words.begin(), "COMMAND ...");
  }
  std::string first = "Usage: " + std::string(program_name);
  first += command.empty() ? "" : " " + std::string(command);
  return words.empty() ? first + '\n' : hanging(first + " ", words);
}

}  // namespace

std::string synopsis(const CommandHelp& command) {
  std::string text;
  for (const std::string& word : synopsis_words(command)) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

std::string help_text(const CommandHelp& command) {
  const std::vector<Entry> subcommands = commands_of(command.name);
  return usage(command.name, synopsis_words(command), subcommands) +
         paragraphs(command.description) + list("Commands", subcommands) +
         list("Arguments", arguments(command, false)) + list("Options", arguments(command, true)) +
         examples(command) + exit_statuses(exit_status_helps_of(command));
}

std::string program_help_text() {
  const std::vector<Entry> commands = commands_of("");
  const std::vector<Entry> options{{typed_argument(help_option), help_option.help},
                                   {typed_argument(version_option), version_option.help}};
  return usage("", {}, commands) + paragraphs(program_description) + list("Commands", commands) +
         list("Options", options) + '\n' +
         hanging("", words_of("\"velmora-can-bridge COMMAND --help\" tells what a command "
                              "takes, with examples.")) +
         exit_statuses(exit_status_helps());
}

}  // namespace velmora_can_bridge
