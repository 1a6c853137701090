// The tabulator of the shell: the script that asks the program, and the answers.
#pragma once

#include <string>
#include <vector>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// The shells for which there is a script.
std::vector<std::string> completion_shells();

/// The command with which a script asks how a line may go on. No person types it.
inline constexpr const char* complete_words = "complete-words";

/// Prints the script for the shell.
ExitStatus completion_command(const CommandLineHost& host, const std::string& shell);

/// Answers a script. `arguments` are COMP_WORDBREAKS and the line up to the cursor. The first line
/// of the answer is an option for bash's `compopt` or empty, the others are words to put behind
/// what bash does not replace.
ExitStatus complete_words_command(const CommandLineHost& host,
                                  const std::vector<std::string>& arguments);

}  // namespace velmora_can_bridge
