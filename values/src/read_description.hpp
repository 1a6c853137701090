// What is known of an object whose value is read.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/config/value_description.hpp"

namespace velmora_can_bridge {

/// As `object_value`. What has no type there may be a state of a claw, which has names, or has the
/// type of the operations that write it.
///
/// Good enough to read by. It binds nobody who writes: another operation may write other bytes.
ValueDescription read_description(const NodeConfig* node, std::uint16_t index,
                                  std::uint8_t sub_index);

}  // namespace velmora_can_bridge
