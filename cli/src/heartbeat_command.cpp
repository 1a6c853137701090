#include "commands.hpp"
#include "ground/number_text.hpp"
#include "interface_channel.hpp"
#include "number_argument.hpp"
#include "producer_loop.hpp"
#include "report.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/heartbeat_producer.hpp"

namespace velmora_can_bridge {

ExitStatus heartbeat_command(const CommandLineHost& host, const HeartbeatArguments& arguments) {
  const std::optional<std::uint32_t> node =
      or_diagnostic(host, number_argument("node id", arguments.node, 1, highest_node_id));
  if (!node || !is_interface(host, arguments.bus)) {
    return ExitStatus::bad_input;
  }
  const std::unique_ptr<CanChannel> channel = interface_channel(host, arguments.bus);
  const auto node_id = static_cast<std::uint8_t>(*node);
  HeartbeatProducer producer(*channel, node_id, std::chrono::milliseconds(arguments.period));
  const std::string what = "the heartbeat of node " + hex<2>(node_id) + " on " + arguments.bus +
                           " every " + std::to_string(arguments.period) + " ms";
  return ProducerLoop(host, *channel, producer, {what, std::nullopt, arguments.json}).run();
}

}  // namespace velmora_can_bridge
