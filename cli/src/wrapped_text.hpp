// Texts in lines of a bounded width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmora_can_bridge {

/// Columns that `text`, which is UTF-8, takes on a terminal; wide characters count as one.
std::size_t display_width(std::string_view text);

/// The words of the text, which blanks separate.
std::vector<std::string> words_of(std::string_view text);

/// The words in lines of at most `width` columns, 1 or more, one blank between two words. A word
/// that is wider is cut between two characters. At least one line, which may be empty.
std::vector<std::string> wrapped(const std::vector<std::string>& words, std::size_t width);

/// As above, of the words of the text.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

}  // namespace velmora_can_bridge
