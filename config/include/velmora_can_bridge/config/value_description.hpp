/// What the value of an object means: type, range, unit and names of codes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

enum class ValueType : std::uint8_t { u8, s8, u16, s16, u32, s32, u64, s64, float32, text, bytes };

/// "u8", "float32", "bytes", as board files and typed words spell it.
std::string_view value_type_text(ValueType type);

/// The type of that name, exactly so spelled.
std::optional<ValueType> find_value_type(std::string_view text);

/// Bytes that a value of the type has: 1, 2, 4 or 8; no value for `text` and `bytes`, which have
/// any number.
std::optional<std::size_t> length_of(ValueType type);

/// Whether it is one of the whole numbers, `u8` to `s64`.
bool is_integer(ValueType type);

/// Whether it is one of `s8` to `s64`.
bool is_signed(ValueType type);

/// A whole number that an object of up to 8 bytes can hold: -2^63 to 2^64 - 1.
class Count {
 public:
  constexpr Count() = default;

  static constexpr Count of(std::int64_t number) {
    return {static_cast<std::uint64_t>(number), number < 0};
  }
  static constexpr Count of_unsigned(std::uint64_t number) { return {number, false}; }

  /// In two's complement.
  constexpr std::uint64_t bits() const { return bits_; }
  constexpr bool is_negative() const { return is_negative_; }

  friend constexpr bool operator==(Count one, Count other) {
    return one.bits_ == other.bits_ && one.is_negative_ == other.is_negative_;
  }
  friend constexpr bool operator!=(Count one, Count other) { return !(one == other); }
  friend constexpr bool operator<(Count one, Count other) {
    return one.is_negative_ != other.is_negative_ ? one.is_negative_ : one.bits_ < other.bits_;
  }

 private:
  constexpr Count(std::uint64_t bits, bool is_negative) : bits_(bits), is_negative_(is_negative) {}

  std::uint64_t bits_ = 0;
  bool is_negative_ = false;
};

/// "-300", decimal.
std::string count_text(Count count);

/// Counts from `minimum` to `maximum`, both among them.
struct CountRange {
  Count minimum{};
  Count maximum{};

  constexpr bool contains(Count count) const { return !(count < minimum) && !(maximum < count); }
};

/// All numbers of so many bits, at least 1 and 64 for more than those, in two's complement where
/// they have a sign.
CountRange range_of_bits(unsigned bit_length, bool has_sign);

/// A code and what people call it.
struct NamedCode {
  std::string name{};
  Count code{};
};

/// What a board file says of an object's value. Everything may be left out.
struct ValueDescription {
  std::optional<ValueType> type{};
  /// What counts are counted in, or what `scale` makes of them: "mm/s"; empty when not known.
  std::string unit{};
  /// The least and the greatest that are meant, in counts.
  std::optional<Count> minimum{};
  std::optional<Count> maximum{};
  /// One count is so much of `unit`. Above 0 and finite.
  std::optional<double> scale{};
  /// In the order of the file. Names and codes stand once each.
  std::vector<NamedCode> values{};
};

/// Where an object of a node stands.
struct ValueAddress {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;

  friend constexpr bool operator<(ValueAddress one, ValueAddress other) {
    return one.index != other.index ? one.index < other.index : one.sub_index < other.sub_index;
  }
};

}  // namespace velmora_can_bridge
