#include "typed_word.hpp"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "ground/little_endian.hpp"
#include "ground/parse_number.hpp"
#include "short_word.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t lowest_magnitude = std::uint64_t{1} << 63U;

Expected<Bytes> float_number_bytes(std::string_view text) {
  const std::optional<double> number = parse_decimal(text);
  if (!number) {
    return Unexpected{in_quotes(text) + " is not a decimal number"};
  }
  return float_bytes(*number);
}

}  // namespace

std::optional<Count> parse_count(std::string_view text) {
  const std::optional<TypedNumber> number = parse_number(text);
  if (!number || number->is_too_large) {
    return std::nullopt;
  }
  if (!number->is_negative) {
    return Count::of_unsigned(number->magnitude);
  }
  if (number->magnitude > lowest_magnitude) {
    return std::nullopt;
  }
  return Count::of(static_cast<std::int64_t>(~number->magnitude + 1));
}

std::optional<double> parse_decimal(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  const bool is_number = error == std::errc() && stop == end && std::isfinite(number);
  return is_number ? std::make_optional(number) : std::nullopt;
}

Expected<std::vector<std::uint8_t>> float_bytes(double number) {
  constexpr auto greatest = static_cast<double>(std::numeric_limits<float>::max());
  if (!(std::abs(number) <= greatest)) {
    return Unexpected{std::string("out of range, a float32 is no greater than 3.4e38")};
  }
  const auto narrow = static_cast<float>(number);
  std::uint32_t bits = 0;
  static_assert(sizeof(bits) == sizeof(narrow) && std::numeric_limits<float>::is_iec559);
  std::memcpy(&bits, &narrow, sizeof(bits));
  return little_endian_bytes(bits, sizeof(bits));
}

Expected<std::vector<std::uint8_t>> number_bytes(ValueType type, std::string_view text) {
  if (type == ValueType::float32) {
    return float_number_bytes(text);
  }
  if (!parse_number(text)) {
    return Unexpected{in_quotes(text) + " is not a decimal or 0x hexadecimal number"};
  }
  const std::size_t length = *length_of(type);
  const CountRange range = range_of_bits(static_cast<unsigned>(length) * 8, is_signed(type));
  const std::optional<Count> count = parse_count(text);
  if (!count || !range.contains(*count)) {
    return Unexpected{"out of range, " + std::string(value_type_text(type)) + " is " +
                      count_text(range.minimum) + " to " + count_text(range.maximum)};
  }
  return little_endian_bytes(count->bits(), length);
}

bool is_hexadecimal(std::string_view word) {
  return !word.empty() &&
         word.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

Expected<std::vector<std::uint8_t>> hex_digits_bytes(std::string_view digits) {
  if (!digits.empty() && !is_hexadecimal(digits)) {
    return Unexpected{std::string("expected hexadecimal digits")};
  }
  if (digits.size() % 2 != 0) {
    return Unexpected{std::string("odd number of hexadecimal digits, every byte takes two")};
  }
  Bytes bytes;
  for (std::size_t position = 0; position < digits.size(); position += 2) {
    bytes.push_back(
        static_cast<std::uint8_t>(parse_digits(digits.substr(position, 2), 16)->magnitude));
  }
  return bytes;
}

}  // namespace velmora_can_bridge
