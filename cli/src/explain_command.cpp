#include <chrono>
#include <utility>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "report.hpp"
#include "requested_operation.hpp"

namespace velmora_can_bridge {
namespace {

void print(const CommandLineHost& host, const ExplainArguments& arguments,
           const Explanation& explanation, ExitStatus status) {
  if (arguments.json) {
    print_explanation_json(host, explanation, status);
    return;
  }
  if (!arguments.candump) {
    host.out << explanation_text(explanation);
    return;
  }
  host.out << explanation_frames(explanation, arguments.bus.bus);
  if (!explanation.result.ok) {
    print_diagnostic(host, "would fail: " + explanation.result.message +
                               (explanation.error ? " (" + explanation.error->text + ")" : ""));
  }
}

/// That of the interface where the operation needs no answer: it would go unnoticed else that there
/// is none.
ExitStatus status_of_bus(const CommandLineHost& host, CanChannel& channel) {
  const auto endpoint = channel.open({});
  CanFrame none;
  const CanStatus status = endpoint->receive(none, std::chrono::nanoseconds(0));
  if (status == CanStatus::timed_out || exit_status_of(status) == ExitStatus::success) {
    return ExitStatus::success;
  }
  print_diagnostic(host, endpoint->explain(status));
  return exit_status_of(status);
}

}  // namespace

ExitStatus explain_command(const CommandLineHost& host, const ExplainArguments& arguments) {
  const OperationArguments& operation = arguments.operation;
  std::optional<RequestedOperation> call = read_operation(host, operation);
  const auto bus = call ? CommandBus::open(host, arguments.bus, &call->file) : nullptr;
  if (!bus) {
    return ExitStatus::bad_input;
  }
  CommandBridge bridge(host, bus->channel(), std::move(call->file), sdo_times(arguments.bus));
  const Explanation explanation = bridge.ask([&](Bridge& board) {
    return board.explain(operation.device, operation.operation, call->payload, arguments.force);
  });
  ExitStatus status = exit_status_of(explanation);
  if (status == ExitStatus::success) {
    status = status_of_bus(host, bus->channel());
  }
  print(host, arguments, explanation, status);
  bridge.await_late_answers();
  return bus->finish(status);
}

}  // namespace velmora_can_bridge
