#include "number.hpp"

#include <charconv>
#include <limits>

namespace velmora_can_bridge {

std::optional<std::int64_t> parse_digits(std::string_view text, int base) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error == std::errc::result_out_of_range && stop == end) {
    return text.front() == '-' ? std::numeric_limits<std::int64_t>::min()
                               : std::numeric_limits<std::int64_t>::max();
  }
  if (error != std::errc() || stop != end) {
    return std::nullopt;
  }
  return number;
}

std::optional<std::int64_t> parse_number(std::string_view text) {
  if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
    const std::string_view digits = text.substr(2);
    // from_chars would take a sign here.
    return digits.substr(0, 1) == "-" ? std::nullopt : parse_digits(digits, 16);
  }
  return parse_digits(text, 10);
}

}  // namespace velmora_can_bridge
