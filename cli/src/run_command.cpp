#include <algorithm>
#include <utility>
#include <variant>

#include "commands.hpp"
#include "payload_words.hpp"
#include "report.hpp"
#include "simulated_board.hpp"

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

}  // namespace

ExitStatus run_command(const CommandLineHost& host, const RunArguments& arguments) {
  const std::optional<BoardFile> file = load_board(host, arguments.board);
  if (!file) {
    return ExitStatus::bad_input;
  }
  SimulatedBoard board(*file, [&](const Transfer& transfer) {
    if (arguments.trace) {
      host.err << transfer.line << '\n';
    }
  });
  SimulatedBoardNode* const node = board.find_node(arguments.device);
  if (node == nullptr) {
    return refuse(host, "unknown device \"" + arguments.device + "\"; " + arguments.board +
                            " has: " + devices_text(*file));
  }
  const auto& operations = node->config().operations;
  const auto operation = operations.find(arguments.operation);
  if (operation == operations.end()) {
    return refuse(host, "unknown operation \"" + arguments.operation + "\"; the node of \"" +
                            arguments.device + "\" has: " + joined(keys(operations)));
  }
  const auto payload = parse_payload_words(arguments.payload);
  if (const auto* const reason = std::get_if<std::string>(&payload)) {
    return refuse(host, *reason);
  }

  OperationReport report{arguments.operation, arguments.device, {}, {}};
  report.result =
      node->run(operation->second, arguments.device, std::get<std::vector<std::uint8_t>>(payload));
  report.refusal = report.result.ok ? std::nullopt : node->refusal();
  (arguments.json ? print_result_json : print_result)(host, report);
  return report.result.ok ? ExitStatus::success : ExitStatus::operation_failed;
}

}  // namespace velmora_can_bridge
