// What a text must be before it is given to the YAML parser.
#pragma once

#include <cstddef>
#include <string_view>

#include "problem_list.hpp"

namespace velmora_can_bridge {

/// Bytes that a board file may have.
inline constexpr std::size_t longest_file = 2'000'000;

/// True when the text is UTF-8 (RFC 3629) of at most `longest_file` bytes without control
/// characters other than tab and line ends. Else reports the first offending place.
///
/// The parser would replace broken UTF-8, and take one of the control characters for the end of
/// the file.
bool check_text(std::string_view text, ProblemList& problems);

/// True unless the text is one of the other files of the field, an EDS or a candump log, which it
/// then reports by its name.
bool check_is_board(std::string_view text, ProblemList& problems);

/// Reports a file of more than `longest_file` bytes.
void report_long_file(ProblemList& problems);

}  // namespace velmora_can_bridge
