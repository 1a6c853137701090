/// What operations take as payload, for people.
#pragma once

#include <string>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// What the operation takes as payload, in a few words: "none", "u16 (2 bytes)"; "unknown" when its
/// kind is none of `operation_kinds`. Never empty.
///
/// The operation may be any, also one that a board file would refuse.
std::string describe_payload(const OperationConfig& op, const BoardConfig& board);

}  // namespace velmora_can_bridge
