/// The SYNC, with which synchronous PDOs take effect.
#pragma once

#include <chrono>
#include <cstdint>

#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/periodic_producer.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Sends the SYNC (CiA 301, 7.2.5), a frame without data: RPDOs whose transmission type is 0 to 240
/// take effect with the next one, and TPDOs of types 1 to 240 are sent after so many.
///
/// A bus has one producer. The counter that object 0x1019 of a consumer may ask for is not sent:
/// such a node reports this SYNC as one of an unexpected length.
class SyncProducer : public PeriodicProducer {
 public:
  /// `channel` outlives the producer. `period` is 1 ms or more; `cob_id`, an identifier of 11 bits
  /// but not 0, is what the nodes have in object 0x1005. Else `poll` fails with `not_configured`.
  SyncProducer(CanChannel& channel, std::chrono::milliseconds period,
               std::uint16_t cob_id = sync_cob_id);
};

}  // namespace velmora_can_bridge
