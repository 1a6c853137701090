#include <utility>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "report.hpp"
#include "requested_operation.hpp"

namespace velmora_can_bridge {

ExitStatus explain_command(const CommandLineHost& host, const ExplainArguments& arguments) {
  const OperationArguments& operation = arguments.operation;
  std::optional<RequestedOperation> call = read_operation(host, operation);
  const auto bus = call ? CommandBus::open(host, arguments.bus, &call->file) : nullptr;
  if (!bus) {
    return ExitStatus::bad_input;
  }
  CommandBridge bridge(host, bus->channel(), std::move(call->file), sdo_times(arguments.bus));
  const Explanation explanation =
      bridge->explain(operation.device, operation.operation, call->payload);
  if (arguments.candump) {
    print_lines(host, explanation_frames(explanation, arguments.bus.bus));
  } else {
    (arguments.json ? print_explanation_json : print_explanation)(host, explanation);
  }
  bridge.await_late_answers();
  return bus->finish(exit_status_of(explanation));
}

}  // namespace velmora_can_bridge
