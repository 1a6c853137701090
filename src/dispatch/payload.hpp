// Values in payload bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora_can_bridge {
namespace {

/// The little-endian value at `position`; both bytes must be there.
inline std::uint16_t u16_at(const std::vector<std::uint8_t>& bytes, std::size_t position) {
  return static_cast<std::uint16_t>(bytes[position] | (bytes[position + 1] << 8));
}

/// The little-endian value at `position`; all four bytes must be there.
inline std::uint32_t u32_at(const std::vector<std::uint8_t>& bytes, std::size_t position) {
  return u16_at(bytes, position) | static_cast<std::uint32_t>(u16_at(bytes, position + 2)) << 16U;
}

/// The low `count` bytes of `value`, lowest first.
inline std::vector<std::uint8_t> little_endian(std::uint32_t value, std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(value);
    value >>= 8U;
  }
  return bytes;
}

}  // namespace
}  // namespace velmora_can_bridge
