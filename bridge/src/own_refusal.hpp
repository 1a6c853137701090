// Whether it was the operation that refused, or the bus.
#pragma once

#include "called_operation.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// Whether a failure is a check of the operation's own: on a bus on which every transfer succeeds
/// the call fails with the same message. So a transfer that has failed before it, and was
/// tolerated, is not its reason.
bool is_own_refusal(const CalledOperation& call, const OperationResult& failure);

}  // namespace velmora_can_bridge
