/// COB-IDs taken apart, and those of the predefined connection set (CiA 301, 7.3.3).
#pragma once

#include <cstdint>

#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/node_id.hpp"
#include "velmora_can_bridge/predefined_cob_id.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Selects the function of a COB-ID, without the node id.
inline constexpr std::uint16_t function_mask = 0x780;

/// The node id in a COB-ID of the predefined connection set; 0 in one that is for all nodes.
inline constexpr std::uint8_t node_id_of(std::uint16_t cob_id) {
  return static_cast<std::uint8_t>(cob_id & highest_node_id);
}

}  // namespace velmora_can_bridge
