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

}  // namespace
}  // namespace velmora_can_bridge
