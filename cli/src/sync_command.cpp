#include "commands.hpp"
#include "interface_channel.hpp"
#include "producer_loop.hpp"
#include "velmora_can_bridge/bus/sync_producer.hpp"

namespace velmora_can_bridge {

ExitStatus sync_command(const CommandLineHost& host, const SyncArguments& arguments) {
  if (!is_interface(host, arguments.bus)) {
    return ExitStatus::bad_input;
  }
  const std::unique_ptr<CanChannel> channel = interface_channel(host, arguments.bus);
  SyncProducer producer(*channel, std::chrono::milliseconds(arguments.period));
  const std::string what =
      "the SYNC on " + arguments.bus + " every " + std::to_string(arguments.period) + " ms";
  return ProducerLoop(host, *channel, producer, {what, arguments.count, arguments.json}).run();
}

}  // namespace velmora_can_bridge
