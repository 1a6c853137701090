// Texts from files and arguments on their way to a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace velmora_can_bridge {

/// `text` on one line: control characters as "\\x1B".
std::string printable(const std::string& text);

/// Columns that `text`, which is UTF-8, takes on a terminal; wide characters count as one.
std::size_t display_width(const std::string& text);

}  // namespace velmora_can_bridge
