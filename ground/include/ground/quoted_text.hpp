// Text of a file in messages about it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ground/visible_text.hpp"

namespace velmora_can_bridge {

/// Bytes that `shortened` keeps.
inline constexpr std::size_t quoted_bytes = 40;

/// How many of the text's bytes are printed: whole UTF-8 characters only.
inline std::size_t printed_length(std::string_view text) {
  if (text.size() <= quoted_bytes) {
    return text.size();
  }
  std::size_t length = quoted_bytes;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  return length;
}

/// With a backslash before what ends a quoted text, or would look like an escape in it.
inline std::string with_quotes_escaped(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '"' || character == '\\') {
      escaped += '\\';
    }
    escaped += character;
  }
  return escaped;
}

inline std::string escaped_in_quotes(std::uint32_t code_point) {
  return code_point == '\n' ? "\\n" : escaped_code_point(code_point);
}

/// Text of the file for a message, without quotes: at most 40 bytes of it, whole characters, then
/// "..."; quotes, backslashes and hidden characters are escaped, so that it stays one line that
/// says what it holds.
inline std::string shortened(std::string_view text) {
  const std::size_t length = printed_length(text);
  const std::string printed = with_hidden_escaped(with_quotes_escaped(text.substr(0, length)),
                                                  escaped_in_quotes, escaped_byte);
  return length < text.size() ? printed + "..." : printed;
}

/// `shortened` in double quotes. The standard library has a function of that name in <iomanip>.
inline std::string quoted(std::string_view text) { return '"' + shortened(text) + '"'; }

}  // namespace velmora_can_bridge
