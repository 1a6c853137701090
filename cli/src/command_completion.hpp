// How a command line of the program may go on.
#pragma once

#include <string>
#include <vector>

#include "shell_line.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// What may stand at the cursor.
struct CommandCandidates {
  /// Whole words that begin with what is typed, sorted. None holds characters that nobody sees.
  std::vector<std::string> words;
  /// They are paths of files and folders.
  bool are_files = false;
};

/// Commands, options that are not given yet, values of options, board files and other files,
/// interfaces, and what the board file on the line offers. A board file with mistakes or of more
/// than 256000 bytes offers nothing, and nothing goes on a word with a variable of the shell.
CommandCandidates command_candidates(const ShellLine& line, const CommandLineHost& host);

}  // namespace velmora_can_bridge
