#include "can_channel_contract.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {

std::vector<ChannelCase> channels_under_test() {
  return {{"in_process_real_time", "some bus",
           [] { return std::make_unique<InProcessBus>(BusTime::real, "some bus"); }},
          {"in_process_simulated_time", "some bus",
           [] { return std::make_unique<InProcessBus>(BusTime::simulated, "some bus"); }}};
}

}  // namespace velmora_can_bridge
