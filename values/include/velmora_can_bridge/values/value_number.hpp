/// The numbers that objects and fields hold, for people and for programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "velmora_can_bridge/config/value_description.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// A whole number without or with a sign, or that of a `float32`.
using ValueNumber = std::variant<std::uint64_t, std::int64_t, double>;

/// The lowest `bit_length` bits, at least 1 and all 64 for more than those, as a number of the
/// type: in two's complement where the type has a sign, without one where it has none or is not
/// known.
///
/// A `float32` of 32 bits is the decimal number with the fewest digits that stands for it, so that
/// 0.1 is 0.1; of another length it counts as a whole number.
ValueNumber number_of_bits(std::uint64_t bits, unsigned bit_length, std::optional<ValueType> type);

/// "-500", "0.25"; "nan" and "inf" for what is no number.
std::string number_text(const ValueNumber& number);

/// A count of something that is `scale` of its unit, as a decimal number of 15 digits at most:
/// 3 counts of 0.1 are "0.3".
std::string scaled_text(const ValueNumber& count, double scale);

/// Whether so many bytes may be a number: 1, 2, 4 or 8.
bool is_number_size(std::size_t size);

/// The number as a value of `Json`, which is one of the library nlohmann-json.
template <typename Json>
Json number_json(const ValueNumber& number) {
  return std::visit([](const auto value) { return Json(value); }, number);
}

}  // namespace velmora_can_bridge
