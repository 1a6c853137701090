// UTF-8 texts from files and arguments on their way to people.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "ground/number_text.hpp"

namespace velmora_can_bridge {

/// The well-formed characters whose first byte is `first` to `last`: the range of their second
/// byte, and how many bytes they have. RFC 3629, section 4.
struct CharacterForm {
  unsigned char first;
  unsigned char last;
  unsigned char second_low;
  unsigned char second_high;
  std::size_t length;
};

inline constexpr CharacterForm character_forms[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

inline bool is_between(char character, unsigned char low, unsigned char high) {
  const auto byte = static_cast<unsigned char>(character);
  return low <= byte && byte <= high;
}

inline bool is_form(std::string_view character, const CharacterForm& form) {
  if (character.size() != form.length) {
    return false;
  }
  if (form.length > 1 && !is_between(character[1], form.second_low, form.second_high)) {
    return false;
  }
  return std::all_of(character.begin() + 1, character.end(),
                     [](char next) { return is_between(next, 0x80, 0xBF); });
}

/// Bytes of the UTF-8 character with which `text`, which is not empty, begins; 0 when it is none.
inline std::size_t character_length(std::string_view text) {
  for (const CharacterForm& form : character_forms) {
    if (is_between(text[0], form.first, form.last)) {
      return is_form(text.substr(0, form.length), form) ? form.length : 0;
    }
  }
  return 0;
}

/// The number in Unicode of a character of `character_length` bytes.
inline std::uint32_t code_point(std::string_view character) {
  const auto first = static_cast<std::uint8_t>(character[0]);
  std::uint32_t value = character.size() == 1 ? first : first & (0x7FU >> character.size());
  for (const char next : character.substr(1)) {
    value = value << 6U | (static_cast<std::uint8_t>(next) & 0x3FU);
  }
  return value;
}

struct CodePointRange {
  std::uint32_t first;
  std::uint32_t last;
};

/// What nobody sees and what changes how the text around it looks: control and format characters,
/// marks of direction, separators of lines, fillers and variation selectors. A terminal may obey
/// them, and two names that differ in them alone look the same.
inline constexpr CodePointRange hidden_characters[] = {
    {0x0000, 0x001F},   {0x007F, 0x009F},   {0x00AD, 0x00AD},   {0x034F, 0x034F},
    {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},   {0x070F, 0x070F},
    {0x08E2, 0x08E2},   {0x115F, 0x1160},   {0x17B4, 0x17B5},   {0x180B, 0x180F},
    {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0x3164, 0x3164},
    {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},   {0xFFF9, 0xFFFB},
    {0x110BD, 0x110BD}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE01EF},
};

inline bool is_hidden(std::uint32_t code_point) {
  return std::any_of(std::begin(hidden_characters), std::end(hidden_characters),
                     [=](const CodePointRange& range) {
                       return range.first <= code_point && code_point <= range.last;
                     });
}

/// `text` with `escape(code point)` in the place of each hidden character, and `escape_byte(byte)`
/// in that of each byte that is no UTF-8.
template <typename Escape, typename EscapeByte>
std::string with_hidden_escaped(std::string_view text, const Escape& escape,
                                const EscapeByte& escape_byte) {
  std::string visible;
  while (!text.empty()) {
    const std::size_t length = character_length(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    text.remove_prefix(character.size());
    if (length == 0) {
      visible += escape_byte(static_cast<std::uint8_t>(character[0]));
    } else if (is_hidden(code_point(character))) {
      visible += escape(code_point(character));
    } else {
      visible += character;
    }
  }
  return visible;
}

inline std::string escaped_byte(std::uint8_t byte) { return "\\x" + hex<2>(byte).substr(2); }

/// "\\u202E": a unit of UTF-16.
inline std::string escaped_unit(std::uint32_t unit) { return "\\u" + hex<4>(unit).substr(2); }

inline std::string escaped_code_point(std::uint32_t code_point) {
  if (code_point < 0x80) {
    return escaped_byte(static_cast<std::uint8_t>(code_point));
  }
  return code_point <= 0xFFFF ? escaped_unit(code_point) : "\\U" + hex<8>(code_point).substr(2);
}

/// `text` on one line, hidden characters as "\\x1B", "\\u202E" or "\\U000E0041", bytes that are no
/// UTF-8 as "\\xFF".
inline std::string visible_text(std::string_view text) {
  return with_hidden_escaped(text, escaped_code_point, escaped_byte);
}

/// "\\u202E"; above 0xFFFF two units of UTF-16. RFC 8259, section 7.
inline std::string escaped_in_json(std::uint32_t code_point) {
  if (code_point <= 0xFFFF) {
    return escaped_unit(code_point);
  }
  const std::uint32_t rest = code_point - 0x10000;
  return escaped_unit(0xD800U | rest >> 10U) + escaped_unit(0xDC00U | (rest & 0x3FFU));
}

/// A JSON text without line ends, with the characters that `visible_text` escapes as JSON escapes
/// them: it holds the same values.
inline std::string visible_json(std::string_view json) {
  return with_hidden_escaped(json, escaped_in_json, escaped_in_json);
}

}  // namespace velmora_can_bridge
