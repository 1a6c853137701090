#include "velmora_can_bridge/config/value_description.hpp"

#include <algorithm>

namespace velmora_can_bridge {
namespace {

struct TypeRow {
  std::string_view text;
  ValueType type;
  /// In bytes; 0 for any number of them.
  std::uint8_t length;
  bool is_integer;
  bool is_signed;
};

constexpr TypeRow types[] = {
    {"u8", ValueType::u8, 1, true, false},           {"s8", ValueType::s8, 1, true, true},
    {"u16", ValueType::u16, 2, true, false},         {"s16", ValueType::s16, 2, true, true},
    {"u32", ValueType::u32, 4, true, false},         {"s32", ValueType::s32, 4, true, true},
    {"u64", ValueType::u64, 8, true, false},         {"s64", ValueType::s64, 8, true, true},
    {"float32", ValueType::float32, 4, false, true}, {"text", ValueType::text, 0, false, false},
    {"bytes", ValueType::bytes, 0, false, false},
};

const TypeRow& row_of(ValueType type) { return types[static_cast<std::size_t>(type)]; }

}  // namespace

std::string_view value_type_text(ValueType type) { return row_of(type).text; }

std::optional<ValueType> find_value_type(std::string_view text) {
  for (const TypeRow& row : types) {
    if (row.text == text) {
      return row.type;
    }
  }
  return std::nullopt;
}

std::optional<std::size_t> length_of(ValueType type) {
  const std::uint8_t length = row_of(type).length;
  return length == 0 ? std::nullopt : std::make_optional<std::size_t>(length);
}

bool is_integer(ValueType type) { return row_of(type).is_integer; }

bool is_signed(ValueType type) { return row_of(type).is_integer && row_of(type).is_signed; }

std::string count_text(Count count) {
  return count.is_negative() ? std::to_string(static_cast<std::int64_t>(count.bits()))
                             : std::to_string(count.bits());
}

CountRange range_of_bits(unsigned bit_length, bool has_sign) {
  const std::uint64_t all = ~std::uint64_t{0} >> (64 - std::min(bit_length, 64U));
  if (!has_sign) {
    return {Count(), Count::of_unsigned(all)};
  }
  const auto greatest = static_cast<std::int64_t>(all >> 1U);
  return {Count::of(-greatest - 1), Count::of(greatest)};
}

}  // namespace velmora_can_bridge
