// How messages write object-dictionary addresses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velmora_can_bridge {
namespace {

/// `value` as "0x" and exactly four upper-case hexadecimal digits: 0x6040 gives "0x6040".
inline std::string hex_u16(std::uint16_t value) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text = "0x0000";
  for (std::size_t position = 5; position > 1; --position) {
    text[position] = digits[value & 0xFU];
    value = static_cast<std::uint16_t>(value >> 4U);
  }
  return text;
}

/// An object as messages name it: `hex_u16(index)`, "/" and the sub-index in decimal.
inline std::string object_text(std::uint16_t index, std::uint8_t sub_index) {
  return hex_u16(index) + "/" + std::to_string(sub_index);
}

}  // namespace
}  // namespace velmora_can_bridge
