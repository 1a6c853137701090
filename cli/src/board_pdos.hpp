// The PDOs of a board file as the bus sees them.
#pragma once

#include <cstdint>
#include <string>

#include "dispatch/lookups.hpp"
#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {

inline bool is_rpdo(const PdoConfig& pdo) { return pdo.direction == rpdo_direction; }

/// "RPDO 3".
inline std::string pdo_text(bool rpdo, std::uint8_t number) {
  return (rpdo ? "RPDO " : "TPDO ") + std::to_string(number);
}

}  // namespace velmora_can_bridge
