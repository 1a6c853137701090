// How numbers and bytes are written for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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

/// `value` as "0x" and two upper-case hexadecimal digits.
inline std::string hex_u8(std::uint8_t value) { return "0x" + hex_u16(value).substr(4); }

/// `value` as "0x" and eight upper-case hexadecimal digits.
inline std::string hex_u32(std::uint32_t value) {
  return hex_u16(static_cast<std::uint16_t>(value >> 16U)) +
         hex_u16(static_cast<std::uint16_t>(value)).substr(2);
}

/// `bytes` as "0F 00": two upper-case hexadecimal digits each, a blank between them.
inline std::string hex_bytes(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += (text.empty() ? "" : " ") + hex_u8(byte).substr(2);
  }
  return text;
}

/// An object as messages name it: `hex_u16(index)`, "/" and the sub-index in decimal.
inline std::string object_text(std::uint16_t index, std::uint8_t sub_index) {
  return hex_u16(index) + "/" + std::to_string(sub_index);
}

}  // namespace
}  // namespace velmora_can_bridge
