// Whole numbers as people type them.
#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

namespace velmora_can_bridge {

/// The magnitude of a number, and its sign.
struct TypedNumber {
  std::uint64_t magnitude = 0;
  bool is_negative = false;
  /// The number has more than 64 bits; the magnitude is the greatest then.
  bool is_too_large = false;
};

/// The number that the digits write, all of them and at least one; no value for anything else.
inline std::optional<TypedNumber> parse_digits(std::string_view digits, int base) {
  TypedNumber number;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number.magnitude, base);
  if (stop != end || error == std::errc::invalid_argument) {
    return std::nullopt;
  }
  if (error == std::errc::result_out_of_range) {
    return TypedNumber{std::numeric_limits<std::uint64_t>::max(), false, true};
  }
  return number;
}

/// The number that the whole of `text` writes: decimal, a "-" before it or not, or hexadecimal
/// after "0x". No value for anything else.
inline std::optional<TypedNumber> parse_number(std::string_view text) {
  if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
    return parse_digits(text.substr(2), 16);
  }
  const bool is_negative = text.substr(0, 1) == "-";
  std::optional<TypedNumber> number = parse_digits(text.substr(is_negative ? 1 : 0), 10);
  if (number) {
    number->is_negative = is_negative && number->magnitude != 0;
  }
  return number;
}

/// Whether the text begins with a 0 that some read as the sign of an octal number.
inline bool looks_octal(std::string_view text) {
  return text.size() > 1 && text.front() == '0' && text.find_first_of("xX") != 1;
}

}  // namespace velmora_can_bridge
