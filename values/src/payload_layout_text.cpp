#include <algorithm>
#include <cstddef>

#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "payload_value.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

CountRange whole_range(const PayloadValue& value) {
  return range_of_bits(static_cast<unsigned>(value.length) * 8, is_signed(value.type));
}

std::string range_text(const PayloadValue& value) {
  return count_text(value.range.minimum) + " to " + count_text(value.range.maximum);
}

std::string codes_text(const std::vector<NamedCode>& codes) {
  constexpr std::size_t most_codes = 10;
  std::string text;
  for (std::size_t position = 0; position < std::min(codes.size(), most_codes); ++position) {
    const NamedCode& code = codes[position];
    text += (text.empty() ? " (" : ", ") + code.name + " " + count_text(code.code);
  }
  const std::string rest = codes.size() > most_codes ? ", ..." : "";
  return text.empty() ? text : text + rest + ")";
}

/// Of bytes nobody can tell whether they are meant signed, where nobody tells the type.
std::optional<std::string> bytes_refusal(const PayloadValue& value, const Bytes& bytes) {
  if (!is_integer(value.type)) {
    return std::nullopt;
  }
  const Count count = count_of(value, bytes);
  const auto refusal = range_refusal(value, count);
  return refusal ? std::make_optional(count_text(count) + " is " + *refusal) : std::nullopt;
}

std::string size_text(const Bytes& payload) {
  return "the payload has " + counted(payload.size(), "byte");
}

}  // namespace

Count count_of(const PayloadValue& value, const std::vector<std::uint8_t>& bytes) {
  const std::uint64_t bits = little_endian_number(bytes);
  const Count greatest = range_of_bits(static_cast<unsigned>(value.length) * 8, true).maximum;
  if (!is_signed(value.type) || !(greatest < Count::of_unsigned(bits))) {
    return Count::of_unsigned(bits);
  }
  // All bits above the highest of the value are those of its sign.
  return Count::of(static_cast<std::int64_t>(bits | ~(greatest.bits() * 2 + 1)));
}

bool has_whole_range(const PayloadValue& value) {
  const CountRange whole = whole_range(value);
  return value.range.minimum == whole.minimum && value.range.maximum == whole.maximum;
}

std::string out_of_range_text(const PayloadValue& value) {
  return "out of range, " + range_text(value);
}

std::optional<std::string> range_refusal(const PayloadValue& value, Count count) {
  if (value.range.contains(count)) {
    return std::nullopt;
  }
  return out_of_range_text(value);
}

std::string payload_type_text(const PayloadValue& value) {
  const std::string type(value_type_text(value.type));
  const bool is_shorter = value.length != length_of(value.type).value_or(value.length);
  return type + (is_shorter ? " in " + counted(value.length, "byte") : "");
}

std::optional<std::string> payload_refusal(const PayloadLayout& layout,
                                           const std::vector<std::uint8_t>& payload) {
  std::size_t position = 0;
  for (const PayloadValue& value : layout.values) {
    if (value.length == 0) {
      return std::nullopt;  // the rest, whatever it is
    }
    const std::size_t left = payload.size() - position;
    if (left == 0 && value.is_optional) {
      return std::nullopt;
    }
    if (left < value.length) {
      return size_text(payload) + ", too few for " + value.name;
    }
    const auto first = payload.begin() + static_cast<std::ptrdiff_t>(position);
    const Bytes bytes(first, first + static_cast<std::ptrdiff_t>(value.length));
    if (auto refusal = bytes_refusal(value, bytes)) {
      return value.name + ": " + *refusal;
    }
    position += value.length;
  }
  if (position < payload.size() && !layout.more_may_follow) {
    return size_text(payload) + ", " + std::to_string(payload.size() - position) + " too many";
  }
  return std::nullopt;
}

std::string payload_value_text(const PayloadValue& value) {
  std::string text = value.name + " " + payload_type_text(value);
  if (is_integer(value.type) && !has_whole_range(value)) {
    text += ", " + range_text(value);
  }
  return text + (value.unit.empty() ? "" : " in " + value.unit) + codes_text(value.values);
}

std::string payload_layout_text(const PayloadLayout& layout) {
  std::string text;
  for (const PayloadValue& value : layout.values) {
    const std::string one = payload_value_text(value);
    text += (text.empty() ? "" : "; ") + (value.is_optional ? "[" + one + "]" : one);
  }
  text = text.empty() ? "nothing" : text;
  return text + (layout.remark.empty() ? "" : " (" + layout.remark + ")");
}

}  // namespace velmora_can_bridge
