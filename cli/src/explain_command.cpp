#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "ground/visible_text.hpp"
#include "json_line.hpp"
#include "requested_operation.hpp"

namespace velmora_can_bridge {
namespace {

ExitStatus exit_status_of(const Explanation& explanation) {
  return exit_status_of(OperationReport{{}, {}, explanation.result, explanation.error, {}, {}});
}

void print_lines(const CommandLineHost& host, const std::string& text) {
  std::size_t begin = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    host.out << visible_text(text.substr(begin, end - begin)) << '\n';
    begin = end + 1;
  }
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
  const Explanation explanation =
      bridge->explain(operation.device, operation.operation, call->payload);
  const ExitStatus status = exit_status_of(explanation);
  if (arguments.candump) {
    print_lines(host, explanation_frames(explanation, arguments.bus.bus));
  } else if (arguments.json) {
    auto line = nlohmann::ordered_json::parse(explanation_json(explanation));
    line["code"] = exit_status_word(status);
    print_json_line(host, line);
  } else {
    print_lines(host, explanation_text(explanation));
  }
  bridge.await_late_answers();
  return bus->finish(status);
}

}  // namespace velmora_can_bridge
