// Texts from files and arguments on their way to a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace velmora_can_bridge {

/// `text` on one line: control characters as "\\x1B", characters that nobody sees or that turn the
/// direction of writing as "\\u202E", bytes that are no UTF-8 as "\\xFF".
std::string printable(const std::string& text);

/// A JSON text without line ends, with the characters that `printable` escapes as JSON escapes
/// them: it holds the same values.
std::string printable_json(const std::string& json);

/// Columns that `text`, which is UTF-8, takes on a terminal; wide characters count as one.
std::size_t display_width(const std::string& text);

}  // namespace velmora_can_bridge
