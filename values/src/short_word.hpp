// Words of people in messages.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora_can_bridge {

/// The word; of a long one the first 40 bytes, or a few fewer where that would cut a character of
/// UTF-8 in two, and "...".
inline std::string short_word(std::string_view word) {
  constexpr std::size_t most_bytes = 40;
  if (word.size() <= most_bytes) {
    return std::string(word);
  }
  std::size_t length = most_bytes;
  const auto continues = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
  };
  while (length > 0 && continues(word[length])) {
    --length;
  }
  return std::string(word.substr(0, length)) + "...";
}

/// `short_word` in double quotes.
inline std::string in_quotes(std::string_view word) { return '"' + short_word(word) + '"'; }

}  // namespace velmora_can_bridge
