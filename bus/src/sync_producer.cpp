#include "velmora_can_bridge/bus/sync_producer.hpp"

#include <optional>
#include <string>

#include "can_frame_checks.hpp"
#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

std::optional<std::string> refusal_of(std::uint16_t cob_id) {
  if (cob_id >= 1 && cob_id <= highest_can_id) {
    return std::nullopt;
  }
  return "COB-ID " + hex<4>(cob_id) + " of the SYNC is not one of 0x0001 to 0x07FF";
}

}  // namespace

SyncProducer::SyncProducer(CanChannel& channel, std::chrono::milliseconds period,
                           std::uint16_t cob_id)
    : PeriodicProducer(channel, {cob_id, 0, {}}, period, refusal_of(cob_id)) {}

}  // namespace velmora_can_bridge
