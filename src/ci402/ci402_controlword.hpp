// The commands that operations give to CiA 402 drives.
#pragma once

#include <cstdint>

namespace velmora_can_bridge {

/// What operations write to the controlword (CiA 402, device control commands).
enum class Ci402Controlword : std::uint16_t {
  quick_stop = 0x0002,
  shutdown = 0x0006,
  enable_operation = 0x000F,
  start_homing = 0x001F,  ///< enable operation with bit 4, homing operation start
};

}  // namespace velmora_can_bridge
