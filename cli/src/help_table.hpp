// What the program tells of its commands, in one table: --help shows it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// One argument of a command: a word in its place, such as BOARD, or an option, such as --bus.
struct ArgumentHelp {
  std::string_view name;
  /// What stands behind an option: "MS"; empty for a flag and for a word in its place. "[=SECONDS]"
  /// is one that may be left out.
  std::string_view value;
  std::string_view help;
  bool is_required = false;
  /// Whether it may be given several times.
  bool repeats = false;

  constexpr bool is_option() const { return name.front() == '-'; }
};

/// A line that a person may type.
struct ExampleHelp {
  /// What it is good for, without a full stop.
  std::string_view purpose;
  /// Separated by single blanks; the program's name is not among them.
  std::string_view arguments;
  /// What the shell needs around the call: "source <(" and ")".
  std::string_view before{};
  std::string_view behind{};
};

struct CommandHelp {
  /// As it is typed: "run", "sdo read".
  std::string_view name;
  /// One line, without a full stop.
  std::string_view summary;
  /// Paragraphs, a line feed between two.
  std::string_view description;
  /// Words in their order, then options.
  std::vector<ArgumentHelp> arguments;
  std::vector<ExampleHelp> examples;
};

struct ExitStatusHelp {
  ExitStatus status;
  std::string_view help;
};

inline constexpr const char* program_name = "velmora-can-bridge";

/// The program's name and version.
std::string program_version();

/// One line, without a full stop.
inline constexpr std::string_view program_summary =
    "Run configured operations on the CANopen nodes of a robot board";

inline constexpr std::string_view program_description =
    "Runs configured operations on the CANopen nodes of a robot board.";

/// Every command has it, and the program.
inline constexpr ArgumentHelp help_option{"--help", "", "print this help and end"};

/// The program has it.
inline constexpr ArgumentHelp version_option{"--version", "", "print the version and end"};

/// All commands, in the order of the program's help. A command with sub-commands stands before
/// them.
const std::vector<CommandHelp>& command_helps();

/// The rows directly below the command `parent`, in their order; those of the program for an empty
/// name.
std::vector<const CommandHelp*> subcommands(std::string_view parent);

/// The line that shows the example.
std::string example_line(const ExampleHelp& example);

/// The row of that name; null when there is none.
const CommandHelp* find_command_help(std::string_view name);

/// All exit statuses.
const std::vector<ExitStatusHelp>& exit_status_helps();

/// Those of the command: without those of a bus where it takes none.
std::vector<ExitStatusHelp> exit_status_helps_of(const CommandHelp& command);

}  // namespace velmora_can_bridge
