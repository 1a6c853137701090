// Trying an operation on a bus that holds back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "called_operation.hpp"
#include "held_back_bus.hpp"
#include "known_fields.hpp"
#include "velmora_can_bridge/bridge/explanation.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// Runs the call on a copy of `controller`, of whose images `known` tells what is known, reads by
/// `read`, and holds everything else back. With `force` it sends what carries unknown fields.
Explanation explain_operation(const CalledOperation& call, CanOpenNodeController& controller,
                              const KnownFields& known, bool force, HeldBackBus::Read read);

}  // namespace velmora_can_bridge
