#include "wrapped_text.hpp"

#include <algorithm>
#include <utility>

namespace velmora_can_bridge {
namespace {

/// Any byte of a UTF-8 character but its first.
bool is_continuation(char character) {
  return (static_cast<unsigned char>(character) & 0xC0U) == 0x80U;
}

/// Bytes of the first `width` characters.
std::size_t bytes_of_width(std::string_view text, std::size_t width) {
  std::size_t bytes = 0;
  while (bytes < text.size() && (is_continuation(text[bytes]) || width > 0)) {
    if (!is_continuation(text[bytes])) {
      --width;
    }
    ++bytes;
  }
  return bytes;
}

/// Adds the word to the last line, or to new ones behind it.
void append(std::vector<std::string>& lines, std::string_view word, std::size_t width) {
  const bool is_first = lines.back().empty();
  if (!is_first && display_width(lines.back()) + 1 + display_width(word) <= width) {
    lines.back() += ' ';
    lines.back() += word;
    return;
  }
  if (!is_first) {
    lines.emplace_back();
  }
  while (display_width(word) > width) {
    const std::size_t cut = bytes_of_width(word, width);
    lines.back() = word.substr(0, cut);
    lines.emplace_back();
    word.remove_prefix(cut);
  }
  lines.back() = word;
}

}  // namespace

std::size_t display_width(std::string_view text) {
  return text.size() -
         static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  while (true) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.empty()) {
      return words;
    }
    words.emplace_back(text.substr(0, text.find(' ')));
    text.remove_prefix(words.back().size());
  }
}

std::vector<std::string> wrapped(const std::vector<std::string>& words, std::size_t width) {
  std::vector<std::string> lines(1);
  for (const std::string& word : words) {
    append(lines, word, width);
  }
  return lines;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
  return wrapped(words_of(text), width);
}

}  // namespace velmora_can_bridge
