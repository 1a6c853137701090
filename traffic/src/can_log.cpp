#include "velmora_can_bridge/traffic/can_log.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

std::string with_leading_zeros(long long number, std::size_t digits) {
  const std::string text = std::to_string(number);
  return std::string(text.size() < digits ? digits - text.size() : 0, '0') + text;
}

/// Takes those of `digits` with which `text` begins; answers how many there were.
std::size_t take_digits(std::string_view& text, std::string_view digits) {
  const std::size_t count = std::min(text.find_first_not_of(digits), text.size());
  text.remove_prefix(count);
  return count;
}

bool take(std::string_view& text, char character) {
  const bool is_there = !text.empty() && text.front() == character;
  text.remove_prefix(is_there ? 1 : 0);
  return is_there;
}

/// "(1700000000.123456) ".
bool take_time(std::string_view& line) {
  constexpr std::string_view digits = "0123456789";
  return take(line, '(') && take_digits(line, digits) >= 10 && take(line, '.') &&
         take_digits(line, digits) == 6 && take(line, ')') && take(line, ' ');
}

/// "can0 ".
bool take_interface(std::string_view& line) {
  const std::size_t length = std::min(line.find(' '), line.size());
  line.remove_prefix(length);
  return length != 0 && take(line, ' ');
}

}  // namespace

std::string can_log_line(std::chrono::microseconds time, const std::string& interface,
                         const CanFrame& frame) {
  constexpr long long per_second = 1000000;
  std::string line = "(" + with_leading_zeros(time.count() / per_second, 10) + "." +
                     with_leading_zeros(time.count() % per_second, 6) + ") " + interface + " " +
                     hex<4>(frame.id).substr(3) + "#";
  for (std::size_t position = 0; position < frame.length && position < frame.data.size();
       ++position) {
    line += hex<2>(frame.data.at(position)).substr(2);
  }
  return line;
}

bool is_can_log_line(std::string_view line) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  if (!take_time(line) || !take_interface(line)) {
    return false;
  }
  const bool is_standard = !line.empty() && line.front() <= '7';
  if (!is_standard || take_digits(line, digits) != 3 || !take(line, '#')) {
    return false;
  }
  const std::size_t data_digits = take_digits(line, digits);
  return line.empty() && data_digits % 2 == 0 && data_digits <= 16;
}

}  // namespace velmora_can_bridge
