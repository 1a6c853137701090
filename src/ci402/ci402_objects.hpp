// The objects, commands and modes of a CiA 402 drive that operations use.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {

/// Objects of a drive by their distance from its controlword (0x6040 for the first drive of a
/// node).
enum class Ci402Object : std::uint16_t {
  controlword = 0x00,
  modes_of_operation = 0x20,  ///< 0x6060
  target_torque = 0x31,       ///< 0x6071
  target_position = 0x3A,     ///< 0x607A
  target_velocity = 0xBF,     ///< 0x60FF
};

/// What operations write to the controlword (CiA 402, device control commands).
enum class Ci402Controlword : std::uint16_t {
  quick_stop = 0x0002,
  shutdown = 0x0006,
  enable_operation = 0x000F,
  start_homing = 0x001F,  ///< enable operation with bit 4, homing operation start
};

/// Modes of operation (CiA 402, object 0x6060).
enum class Ci402Mode : std::uint8_t {
  none = 0,
  profile_position = 1,
  profile_velocity = 3,
  profile_torque = 4,
  homing = 6,
};

/// The index of one of the drive's objects; the sum wraps at 16 bits.
inline std::uint16_t ci402_index(const DeviceOdEntry& drive, Ci402Object object) {
  return static_cast<std::uint16_t>(drive.base_index + static_cast<std::uint16_t>(object));
}

}  // namespace velmora_can_bridge
