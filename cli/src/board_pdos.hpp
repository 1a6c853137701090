// The PDOs of a board file as the bus sees them.
#pragma once

#include <cstdint>
#include <string>

#include "dispatch/lookups.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge {

inline bool is_rpdo(const PdoConfig& pdo) { return pdo.direction == rpdo_direction; }

/// "RPDO 3".
inline std::string pdo_text(bool rpdo, std::uint8_t number) {
  return (rpdo ? "RPDO " : "TPDO ") + std::to_string(number);
}

/// The COB-ID of the node's PDO: the file's, else the predefined one; 0 when it has neither.
inline std::uint16_t cob_id_of(std::uint8_t node_id, const PdoConfig& pdo) {
  if (pdo.cob_id != 0) {
    return pdo.cob_id;
  }
  return is_rpdo(pdo) ? predefined_rpdo_cob_id(node_id, pdo.number)
                      : predefined_tpdo_cob_id(node_id, pdo.number);
}

}  // namespace velmora_can_bridge
