// Values in payload bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ground/little_endian.hpp"

namespace velmora_can_bridge {
namespace {

/// The little-endian value at `position`; both bytes must be there.
inline std::uint16_t u16_at(const std::vector<std::uint8_t>& bytes, std::size_t position) {
  return static_cast<std::uint16_t>(little_endian_number(&bytes[position], 2));
}

/// The little-endian value at `position`; all four bytes must be there.
inline std::uint32_t u32_at(const std::vector<std::uint8_t>& bytes, std::size_t position) {
  return static_cast<std::uint32_t>(little_endian_number(&bytes[position], 4));
}

}  // namespace
}  // namespace velmora_can_bridge
