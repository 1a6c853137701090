/// Saying that something must not wait behind the rest.
#pragma once

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// While it lives, what its thread does goes before everything that waits: stops, above all.
///
/// An SDO transfer goes right after the one that is under way with the node, an RPDO write or a
/// mirror right after the one that works on the images; neither is cut off. Among themselves urgent
/// ones go in the order in which they came. "ci402_quick_stop" and "ci402_disable" open one
/// themselves. Scopes may be nested. Keep it short: what is urgent all the time lets others starve.
///
/// Belongs to the thread that made it, and ends on it. A `CanOpenBackend` of your own reads
/// `is_active` on the thread of the call.
class UrgentScope {
 public:
  UrgentScope() noexcept;
  ~UrgentScope();
  UrgentScope(const UrgentScope&) = delete;
  UrgentScope(UrgentScope&&) = delete;
  UrgentScope& operator=(const UrgentScope&) = delete;
  UrgentScope& operator=(UrgentScope&&) = delete;

  /// Whether the calling thread is inside such a scope.
  static bool is_active() noexcept;
};

}  // namespace velmora_can_bridge
