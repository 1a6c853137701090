// The manual pages of the program and its commands, of the table that --help shows.
#pragma once

#include <string>

#include "help_table.hpp"

namespace velmora_can_bridge {

/// "velmora-can-bridge-sdo-read": the page of a command; that of the program for an empty name.
std::string man_page_name(std::string_view command);

/// The page of the format of board files.
inline constexpr const char* board_page_name = "velmora-can-bridge-board";

/// The page in roff.
std::string man_page(const CommandHelp& command);

/// That of the program, which lists the commands.
std::string program_man_page();

}  // namespace velmora_can_bridge
