// The help of the program, in lines of at most 80 columns.
#pragma once

#include <string>

#include "help_table.hpp"

namespace velmora_can_bridge {

/// "BOARD DEVICE [--bus BUS]": the arguments of a command as its usage shows them.
std::string synopsis(const CommandHelp& command);

/// What --help of a command shows.
std::string help_text(const CommandHelp& command);

/// What --help of the program shows.
std::string program_help_text();

}  // namespace velmora_can_bridge
