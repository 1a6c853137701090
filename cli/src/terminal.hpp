// What is known of the terminal.
#pragma once

#include <cstddef>

namespace velmora_can_bridge {

/// Whether a stream may carry colours. `no_color` and `term` are the variables NO_COLOR and TERM of
/// the environment, null when not set: a NO_COLOR that is empty counts as not set
/// (https://no-color.org), and a terminal that is "dumb" has no colours.
bool has_colour(bool is_terminal, const char* no_color, const char* term);

/// Columns of the terminal: `columns`, the variable COLUMNS or null, where it is a number from 1 to
/// 9999, else `window`, what the terminal says itself. 0: not known.
std::size_t terminal_width(const char* columns, std::size_t window);

}  // namespace velmora_can_bridge
