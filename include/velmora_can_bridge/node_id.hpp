/// The node ids of CANopen (CiA 301).
#pragma once

#include <cstdint>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Highest CANopen node id; the lowest is 1.
inline constexpr std::uint8_t highest_node_id = 127;

inline constexpr bool is_node_id(std::uint8_t node_id) {
  return node_id >= 1 && node_id <= highest_node_id;
}

}  // namespace velmora_can_bridge
