// Whether the SYNCs come that nodes wait for.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "velmora_can_bridge/bridge/device_comparison.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// Listens for the SYNCs of all nodes that have synchronous RPDOs, once for all of them: `begin`
/// for each node, then `listen`, then `judge` for each.
class SyncCheck {
 public:
  /// Says why nobody listens any more; no value while somebody does.
  using StopReason = std::function<std::optional<std::string>()>;

  /// The channel outlives this object.
  SyncCheck(CanChannel& channel, StopReason stop_reason);

  /// From now on the SYNC of that node counts. Does nothing for a node that waits for none, or for
  /// one that cannot be received.
  void begin(const DeviceComparison& comparison);

  /// Waits until every SYNC has come, at most until a second after the last `begin` that had one.
  /// Ends early when the bus does not work, or there is a reason to stop.
  void listen();

  /// Adds what is to be said of the node's SYNC: a warning that none came or can be received, or a
  /// gap when that is not known.
  void judge(DeviceComparison& comparison) const;

 private:
  struct Sync {
    std::unique_ptr<CanEndpoint> endpoint;
    bool has_come = false;
  };

  bool await(Sync& sync);
  bool fail(BusErrorKind kind, CanStatus status, std::string text);

  CanChannel* const channel_;
  const StopReason stop_reason_;
  // By COB-ID, 11 bits.
  std::map<std::uint16_t, Sync> syncs_;
  std::chrono::steady_clock::time_point end_;
  // Why not all was listened to.
  std::optional<BusError> failure_;
};

}  // namespace velmora_can_bridge
