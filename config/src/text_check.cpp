#include "text_check.hpp"

#include <algorithm>
#include <string>

#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"

namespace velmora_can_bridge {
namespace {

/// Bytes of the allowed character with which `text` begins; 0 when there is none.
std::size_t allowed_length(std::string_view text) {
  const bool is_control = is_between(text[0], 0x00, 0x1F) || text[0] == '\x7F';
  const bool is_space = is_between(text[0], '\t', '\n') || text[0] == '\r';
  return is_control && !is_space ? 0 : character_length(text);
}

Position place_in(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const auto lines = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  const std::size_t line_end = before.rfind('\n');
  const std::size_t line_start = line_end == std::string_view::npos ? 0 : line_end + 1;
  return {lines + 1, offset - line_start + 1};
}

std::string byte_text(char character) { return hex<2>(static_cast<std::uint8_t>(character)); }

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
    const std::size_t length = allowed_length(text.substr(offset));
    if (length == 0) {
      problems.error(place_in(text, offset), message_about(text[offset]));
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
