#include "velmora_can_bridge/bus/heartbeat_producer.hpp"

#include <optional>
#include <string>

#include "ground/node_text.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/nmt_state.hpp"

namespace velmora_can_bridge {
namespace {

std::optional<std::string> refusal_of(std::uint8_t node_id) {
  return is_node_id(node_id) ? std::nullopt : std::make_optional(no_node_id_text(node_id));
}

CanFrame heartbeat_of(std::uint8_t node_id) {
  return {static_cast<std::uint16_t>(heartbeat_cob_id + node_id),
          1,
          {static_cast<std::uint8_t>(NmtState::operational)}};
}

}  // namespace

HeartbeatProducer::HeartbeatProducer(CanChannel& channel, std::uint8_t node_id,
                                     std::chrono::milliseconds period)
    : PeriodicProducer(channel, heartbeat_of(node_id), period, refusal_of(node_id)) {}

}  // namespace velmora_can_bridge
