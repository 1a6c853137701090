// The one procedure by which operations write through the image of an RPDO.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

/// Which image an operation writes through, and how it is made usable first.
struct CanOpenNodeController::RpdoUpdate {
  std::uint8_t rpdo = 0;
  const std::string& device;
  /// Named by the message when the image cannot be made usable.
  const std::string& culprit;
  /// Load the image in any case and go on whatever the node answers.
  bool refresh = false;
};

template <typename Modify, typename Deliver>
OperationResult CanOpenNodeController::update_rpdo(const RpdoUpdate& update, const Modify& modify,
                                                   const Deliver& deliver) {
  const TurnQueue::Turn turn = lock_images();
  if (update.refresh) {
    sync_rpdo_shadow_from_device(update.rpdo, update.device, false);
    rpdo_shadow_synced_[update.rpdo] = true;
  } else if (!ensure_rpdo_shadow_synced(update.rpdo, update.device)) {
    return {false, {}, "RPDO shadow sync failed for " + update.culprit};
  }
  std::string refusal = modify();
  if (!refusal.empty()) {
    return {false, {}, std::move(refusal)};
  }
  return deliver();
}

}  // namespace velmora_can_bridge
