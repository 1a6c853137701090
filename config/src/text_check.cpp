#include "text_check.hpp"

#include <algorithm>
#include <string>

#include "ground/nearest_name.hpp"
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

/// Takes the first line off `text`, without its end.
std::string_view take_line(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  const std::size_t first = line.find_first_not_of(" \t\r");
  const std::size_t last = line.find_last_not_of(" \t\r");
  return first == std::string_view::npos ? std::string_view()
                                         : line.substr(first, last - first + 1);
}

/// As "[FileInfo]": one of those with which an electronic data sheet begins (CiA 306).
bool is_section_of_eds(std::string_view line) {
  constexpr std::string_view sections[] = {"[fileinfo]", "[deviceinfo]", "[devicecomissioning]",
                                           "[comments]"};
  return std::find(std::begin(sections), std::end(sections), in_lower_case(line)) !=
         std::end(sections);
}

bool has_digit_at(std::string_view text, std::size_t position) {
  return position < text.size() && is_between(text[position], '0', '9');
}

/// As "(1700000000.000000) can0 123#0102".
bool is_line_of_log(std::string_view line) {
  const bool has_time = line.substr(0, 1) == "(" && has_digit_at(line, 1);
  const std::size_t end = line.find(") ");
  return has_time && end != std::string_view::npos && line.find('#', end) != std::string_view::npos;
}

/// As "can0  123   [8]  01 02".
bool is_line_of_dump(std::string_view line) {
  const std::size_t bracket = line.find("  [");
  return bracket != std::string_view::npos && has_digit_at(line, bracket + 3) &&
         line.substr(bracket + 4, 1) == "]" && line.find_first_of(":{,") == std::string_view::npos;
}

constexpr const char* board_is_yaml = ", a board file describes nodes in YAML";

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

bool check_is_board(std::string_view text, ProblemList& problems) {
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  if (text.substr(0, byte_order_mark.size()) == byte_order_mark) {
    text.remove_prefix(byte_order_mark.size());
  }
  std::size_t number = 0;
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    ++number;
    const bool is_remark = line.empty() || line[0] == ';' || line[0] == '#';
    if (is_remark) {
      continue;
    }
    if (is_section_of_eds(line)) {
      problems.error({number, 1},
                     std::string("this is an EDS file (an electronic data sheet)") + board_is_yaml);
      return false;
    }
    if (is_line_of_log(line) || is_line_of_dump(line)) {
      problems.error({number, 1}, std::string("this is a candump log") + board_is_yaml);
      return false;
    }
    return true;
  }
  return true;
}

void report_long_file(ProblemList& problems) {
  problems.error({}, "the file is larger than " + std::to_string(longest_file) + " bytes");
}

}  // namespace velmora_can_bridge
