#include "velmora_can_bridge/values/value_number.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace velmora_can_bridge {
namespace {

constexpr unsigned word_bits = 64;
constexpr unsigned float_bits = 32;

std::uint64_t lowest(std::uint64_t bits, unsigned bit_length) {
  return bits & (~std::uint64_t{0} >> (word_bits - bit_length));
}

std::int64_t with_sign(std::uint64_t bits, unsigned bit_length) {
  const bool is_negative = (bits >> (bit_length - 1) & 1U) != 0;
  return static_cast<std::int64_t>(
      is_negative ? bits | ~(~std::uint64_t{0} >> (word_bits - bit_length)) : bits);
}

/// Enough for every number that is written here.
using Digits = std::array<char, 64>;

/// With as few digits as tell the number from all others of its type.
template <typename Float>
std::string shortest_text(Float number) {
  Digits digits{};
  return {digits.data(), std::to_chars(digits.begin(), digits.end(), number).ptr};
}

double as_float(std::uint64_t bits) {
  static_assert(sizeof(float) == sizeof(std::uint32_t));
  const auto word = static_cast<std::uint32_t>(bits);
  float number = 0;
  std::memcpy(&number, &word, sizeof(number));
  const std::string text = shortest_text(number);
  double decimal = 0;
  std::from_chars(text.data(), text.data() + text.size(), decimal);
  return decimal;
}

}  // namespace

ValueNumber number_of_bits(std::uint64_t bits, unsigned bit_length, std::optional<ValueType> type) {
  bit_length = std::min(bit_length, word_bits);
  const std::uint64_t all = lowest(bits, bit_length);
  if (type == ValueType::float32 && bit_length == float_bits) {
    return as_float(all);
  }
  if (type && is_signed(*type)) {
    return with_sign(all, bit_length);
  }
  return all;
}

std::string number_text(const ValueNumber& number) {
  if (const auto* const decimal = std::get_if<double>(&number)) {
    return shortest_text(*decimal);
  }
  const auto* const whole = std::get_if<std::int64_t>(&number);
  return whole != nullptr ? std::to_string(*whole)
                          : std::to_string(std::get<std::uint64_t>(number));
}

std::string scaled_text(const ValueNumber& count, double scale) {
  constexpr int significant = 15;
  const double product =
      std::visit([scale](const auto number) { return static_cast<double>(number) * scale; }, count);
  Digits digits{};
  return {digits.data(), std::to_chars(digits.begin(), digits.end(), product,
                                       std::chars_format::general, significant)
                             .ptr};
}

bool is_number_size(std::size_t size) { return size == 1 || size == 2 || size == 4 || size == 8; }

}  // namespace velmora_can_bridge
