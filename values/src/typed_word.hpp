// Numbers, bytes and texts that say their own type.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/config/value_description.hpp"
#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// The whole number that `text` writes: decimal, or hexadecimal after "0x". No value for anything
/// else, and for what no object can hold.
std::optional<Count> parse_count(std::string_view text);

/// The finite decimal number that the whole of `text` writes: "0.5", "-3e2".
std::optional<double> parse_decimal(std::string_view text);

/// The bytes of a number of that type, which is none of `text` and `bytes`; or why `text` is none.
Expected<std::vector<std::uint8_t>> number_bytes(ValueType type, std::string_view text);

/// The bytes of the float32 nearest to the number; or that there is none.
Expected<std::vector<std::uint8_t>> float_bytes(double number);

/// Whether the word is hexadecimal digits alone, at least one.
bool is_hexadecimal(std::string_view word);

/// Two hexadecimal digits a byte; none for no bytes.
Expected<std::vector<std::uint8_t>> hex_digits_bytes(std::string_view digits);

}  // namespace velmora_can_bridge
