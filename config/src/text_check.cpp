#include "text_check.hpp"

#include <algorithm>
#include <string>

#include "dispatch/hex_u16.hpp"

namespace velmora_can_bridge {
namespace {

/// The well-formed characters whose first byte is `first` to `last`: the range of their second
/// byte, and how many bytes they have. RFC 3629, section 4.
struct CharacterForm {
  unsigned char first;
  unsigned char last;
  unsigned char second_low;
  unsigned char second_high;
  std::size_t length;
};

constexpr CharacterForm character_forms[] = {
    {'\t', '\n', 0x00, 0x00, 1}, {'\r', '\r', 0x00, 0x00, 1}, {0x20, 0x7E, 0x00, 0x00, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

bool is_between(char character, unsigned char low, unsigned char high) {
  const auto byte = static_cast<unsigned char>(character);
  return low <= byte && byte <= high;
}

bool is_form(std::string_view character, const CharacterForm& form) {
  if (character.size() != form.length) {
    return false;
  }
  if (form.length > 1 && !is_between(character[1], form.second_low, form.second_high)) {
    return false;
  }
  return std::all_of(character.begin() + 1, character.end(),
                     [](char next) { return is_between(next, 0x80, 0xBF); });
}

/// Bytes of the allowed character at `offset`; 0 when there is none.
std::size_t character_length(std::string_view text, std::size_t offset) {
  for (const CharacterForm& form : character_forms) {
    if (is_between(text[offset], form.first, form.last)) {
      return is_form(text.substr(offset, form.length), form) ? form.length : 0;
    }
  }
  return 0;
}

Position position_of(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const auto lines = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  const std::size_t line_end = before.rfind('\n');
  const std::size_t line_start = line_end == std::string_view::npos ? 0 : line_end + 1;
  return {lines + 1, offset - line_start + 1};
}

std::string byte_text(char character) { return hex_u8(static_cast<std::uint8_t>(character)); }

std::string message_about(char character) {
  if (is_between(character, 0x80, 0xFF)) {
    return "the file is not UTF-8: byte " + byte_text(character) + " is out of place";
  }
  return "the file holds the control character " + byte_text(character);
}

}  // namespace

bool check_text(std::string_view text, ProblemList& problems) {
  if (text.size() > longest_file) {
    report_long_file(problems);
    return false;
  }
  std::size_t offset = 0;
  while (offset < text.size()) {
    const std::size_t length = character_length(text, offset);
    if (length == 0) {
      problems.error(position_of(text, offset), message_about(text[offset]));
      return false;
    }
    offset += length;
  }
  return true;
}

void report_long_file(ProblemList& problems) {
  problems.error({}, "the file is larger than " + std::to_string(longest_file) + " bytes");
}

}  // namespace velmora_can_bridge
