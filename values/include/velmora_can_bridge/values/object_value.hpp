/// What is known of the value of an object.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/config/value_description.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// What the board file says of the object's value; for what it leaves out the drive profile
/// (CiA 402-2), where the object is one of a drive's, and CiA 301, where it is one that every node
/// has under this meaning. Without `type` when none of them tells. `node` may be null.
///
/// A range never comes from a profile.
ValueDescription object_value(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index);

}  // namespace velmora_can_bridge
