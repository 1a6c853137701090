/// A CAN frame as CANopen uses it.
#pragma once

#include <array>
#include <cstdint>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// A classical data frame with an 11-bit identifier.
struct CanFrame {
  /// CAN identifier, in CANopen the COB-ID; 0 to 0x7FF.
  std::uint16_t id = 0;
  /// Number of data bytes, 0 to 8.
  std::uint8_t length = 0;
  /// The data; bytes from `length` on are 0 in a frame that was received. Aligned, so that copies
  /// of a frame that was just put together move whole words of it.
  alignas(8) std::array<std::uint8_t, 8> data{};
};

/// Which frames an endpoint receives: those with `(frame.id & mask) == (id & mask)`.
struct CanFilter {
  std::uint16_t id = 0;
  std::uint16_t mask = 0x7FF;
};

}  // namespace velmora_can_bridge
