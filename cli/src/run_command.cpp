#include <utility>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "ground/visible_text.hpp"
#include "report.hpp"
#include "requested_operation.hpp"

namespace velmora_can_bridge {

ExitStatus run_command(const CommandLineHost& host, const RunArguments& arguments) {
  std::optional<RequestedOperation> call = read_operation(host, arguments.operation);
  const auto bus = call ? CommandBus::open(host, arguments.bus, &call->file) : nullptr;
  if (!bus) {
    return ExitStatus::bad_input;
  }
  CommandBridge bridge(host, bus->channel(), std::move(call->file), sdo_times(arguments.bus),
                       [&](const Transfer& transfer) {
                         if (arguments.transfers) {
                           host.err << visible_text(transfer_text(transfer)) << '\n';
                         }
                       });
  const OperationReport report = bridge.ask([&](Bridge& board) {
    return board.run(arguments.operation.device, arguments.operation.operation, call->payload);
  });
  if (report.result.ok && !report.tolerated.empty()) {
    print_diagnostic(host, "failed on the way: " + bus_error_text(report.tolerated.back()));
  }
  (arguments.json ? print_result_json : print_result)(host, report);
  bridge.await_late_answers();
  return bus->finish(exit_status_of(report));
}

}  // namespace velmora_can_bridge
