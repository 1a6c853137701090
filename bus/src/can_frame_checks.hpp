// What makes a frame one that a bus carries.
#pragma once

#include "ground/pdo.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

inline bool is_can_frame(const CanFrame& frame) {
  return frame.id <= highest_can_id && frame.length <= frame.data.size();
}

inline bool passes(const CanFilter& filter, const CanFrame& frame) {
  return (frame.id & filter.mask) == (filter.id & filter.mask);
}

}  // namespace velmora_can_bridge
