// Small numbers as the program shows them.
#pragma once

#include <cstdint>
#include <string>

#include "dispatch/hex_u16.hpp"

namespace velmora_can_bridge {
namespace {

/// `value` as "0x" and two upper-case hexadecimal digits.
inline std::string hex_u8(std::uint8_t value) { return "0x" + hex_u16(value).substr(4); }

/// `value` as "0x" and eight upper-case hexadecimal digits.
inline std::string hex_u32(std::uint32_t value) {
  return hex_u16(static_cast<std::uint16_t>(value >> 16U)) +
         hex_u16(static_cast<std::uint16_t>(value)).substr(2);
}

}  // namespace
}  // namespace velmora_can_bridge
