/// The heartbeat of the host, by which nodes notice that it has died.
#pragma once

#include <chrono>
#include <cstdint>

#include "velmora_can_bridge/bus/periodic_producer.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Sends the heartbeat of a node (CiA 301, 7.2.8.3.2.2) that is always operational: this host.
///
/// A node that has the host among its heartbeat consumers (object 0x1016: node id and time) begins
/// to watch with the first heartbeat, and reports an error when they stay away for that time; what
/// it does then tells its object 0x1029, usually to leave operational. So let the producer run as
/// long as nodes shall obey, and choose a period of a third of that time or less.
///
/// No boot-up message is sent: other masters would take it for a restart.
class HeartbeatProducer : public PeriodicProducer {
 public:
  /// `channel` outlives the producer. `node_id`, 1 to 127, is the host's own, which no node of the
  /// bus has; `period` is 1 ms or more. Else `poll` fails with `not_configured`.
  HeartbeatProducer(CanChannel& channel, std::uint8_t node_id, std::chrono::milliseconds period);
};

}  // namespace velmora_can_bridge
