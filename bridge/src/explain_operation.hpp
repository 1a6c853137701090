// Trying an operation on a bus that holds back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "called_operation.hpp"
#include "held_back_bus.hpp"
#include "velmora_can_bridge/bridge/explanation.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// Runs the call on a copy of `controller`, reads by `read`, and holds everything else back.
Explanation explain_operation(const CalledOperation& call, CanOpenNodeController& controller,
                              HeldBackBus::Read read);

}  // namespace velmora_can_bridge
