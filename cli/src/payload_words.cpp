#include "payload_words.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <string_view>

#include "ground/little_endian.hpp"
#include "number.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct ValueType {
  std::string_view name;
  std::size_t size;
  std::int64_t minimum;
  std::int64_t maximum;
};

template <typename Value>
constexpr ValueType value_type(std::string_view name) {
  return {name, sizeof(Value), std::numeric_limits<Value>::min(),
          std::numeric_limits<Value>::max()};
}

constexpr std::array<ValueType, 6> value_types{
    value_type<std::uint8_t>("u8"),   value_type<std::int8_t>("s8"),
    value_type<std::uint16_t>("u16"), value_type<std::int16_t>("s16"),
    value_type<std::uint32_t>("u32"), value_type<std::int32_t>("s32")};

Expected<Bytes> parse_typed_value(std::string_view type_name, std::string_view text) {
  const auto* const type =
      std::find_if(value_types.begin(), value_types.end(),
                   [&](const ValueType& candidate) { return candidate.name == type_name; });
  if (type == value_types.end()) {
    return Unexpected{"unknown type \"" + std::string(type_name) +
                      "\", expected u8, s8, u16, s16, u32 or s32"};
  }
  const auto number = parse_number(text);
  if (!number) {
    return Unexpected{"\"" + std::string(text) + "\" is not a decimal or 0x hexadecimal number"};
  }
  if (*number < type->minimum || *number > type->maximum) {
    return Unexpected{"out of range, " + std::string(type_name) + " is " +
                      std::to_string(type->minimum) + " to " + std::to_string(type->maximum)};
  }
  return little_endian_bytes(static_cast<std::uint64_t>(*number), type->size);
}

Expected<Bytes> parse_hex_bytes(std::string_view word) {
  constexpr std::string_view digits = "0123456789abcdefABCDEF";
  if (word.substr(0, 2) == "0x" || word.substr(0, 2) == "0X") {
    return Unexpected{"bytes are written without 0x (0F00), numbers with their type (u16:0x0F)"};
  }
  if (word.empty() || word.find_first_not_of(digits) != std::string_view::npos) {
    return Unexpected{"expected hexadecimal bytes (0F00) or a typed value (u16:500)"};
  }
  if (word.size() % 2 != 0) {
    return Unexpected{"odd number of hexadecimal digits, every byte takes two"};
  }
  Bytes bytes;
  for (std::size_t position = 0; position < word.size(); position += 2) {
    bytes.push_back(static_cast<std::uint8_t>(*parse_digits(word.substr(position, 2), 16)));
  }
  return bytes;
}

Expected<Bytes> parse_word(std::string_view word) {
  const std::size_t colon = word.find(':');
  return colon == std::string_view::npos
             ? parse_hex_bytes(word)
             : parse_typed_value(word.substr(0, colon), word.substr(colon + 1));
}

}  // namespace

Expected<Bytes> parse_payload_words(const std::vector<std::string>& words) {
  Bytes payload;
  for (const std::string& word : words) {
    const Expected<Bytes> bytes = parse_word(word);
    if (!bytes) {
      return Unexpected{"payload word \"" + word + "\": " + bytes.error()};
    }
    payload.insert(payload.end(), bytes->begin(), bytes->end());
  }
  return payload;
}

}  // namespace velmora_can_bridge
