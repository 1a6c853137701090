// What makes a frame one that a bus carries, and a node id one that frames can have.
#pragma once

#include <cstdint>
#include <string>

#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

inline constexpr std::uint16_t highest_can_id = 0x7FF;

inline bool is_can_frame(const CanFrame& frame) {
  return frame.id <= highest_can_id && frame.length <= frame.data.size();
}

inline bool passes(const CanFilter& filter, const CanFrame& frame) {
  return (frame.id & filter.mask) == (filter.id & filter.mask);
}

inline std::string no_node_id_text(std::uint8_t node_id) {
  return "node id " + std::to_string(node_id) + " is not one of 1 to 127";
}

}  // namespace velmora_can_bridge
