#include <algorithm>
#include <utility>
#include <variant>

#include "board_session.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "ground/visible_text.hpp"
#include "payload_words.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

std::string joined(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text.empty() ? "none" : text;
}

template <typename Map>
std::vector<std::string> keys(const Map& map) {
  std::vector<std::string> names;
  names.reserve(map.size());
  for (const auto& row : map) {
    names.push_back(row.first);
  }
  return names;
}

std::string devices_text(const BoardFile& file) {
  std::vector<std::string> names;
  for (const NodeConfig& node : file.nodes) {
    const std::vector<std::string> more = keys(node.board.device_od_map);
    names.insert(names.end(), more.begin(), more.end());
  }
  return joined(std::move(names));
}

ExitStatus refuse(const CommandLineHost& host, const std::string& text) {
  print_diagnostic(host, text);
  return ExitStatus::bad_input;
}

/// What is wrong with the device or the operation that the arguments name; empty when nothing is.
std::string unknown_name(const BoardFile& file, const NodeConfig* node,
                         const RunArguments& arguments) {
  if (node == nullptr) {
    return "unknown device \"" + arguments.device + "\"; " + arguments.board +
           " has: " + devices_text(file);
  }
  if (node->operations.count(arguments.operation) == 0) {
    return "unknown operation \"" + arguments.operation + "\"; the node of \"" + arguments.device +
           "\" has: " + joined(keys(node->operations));
  }
  return {};
}

TracingBackend::Sink transfer_printer(const CommandLineHost& host, bool wanted) {
  return [&host, wanted](const Transfer& transfer) {
    if (wanted) {
      host.err << visible_text(transfer.line) << '\n';
    }
  };
}

}  // namespace

ExitStatus run_command(const CommandLineHost& host, const RunArguments& arguments) {
  const std::optional<BoardFile> file = load_board(host, arguments.board);
  if (!file) {
    return ExitStatus::bad_input;
  }
  const NodeConfig* const node = find_node(*file, arguments.device);
  if (const std::string text = unknown_name(*file, node, arguments); !text.empty()) {
    return refuse(host, text);
  }
  const auto payload = parse_payload_words(arguments.payload);
  if (const auto* const reason = std::get_if<std::string>(&payload)) {
    return refuse(host, *reason);
  }
  const auto bus = CommandBus::open(host, arguments.bus, &*file);
  if (!bus) {
    return ExitStatus::bad_input;
  }

  BoardSession session(host, bus->channel(), *file, sdo_times(arguments.bus),
                       transfer_printer(host, arguments.transfers));
  const OperationReport report = session.run(arguments.device, arguments.operation,
                                             std::get<std::vector<std::uint8_t>>(payload));
  if (!report.remark.empty()) {
    print_diagnostic(host, "failed on the way: " + report.remark);
  }
  (arguments.json ? print_result_json : print_result)(host, report);
  session.await_late_answers();
  return bus->finish(report.status);
}

}  // namespace velmora_can_bridge
