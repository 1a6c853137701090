#include "requested_operation.hpp"

#include <algorithm>
#include <string>
#include <utility>

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

/// What is wrong with the device or the operation that the arguments name; no value when nothing
/// is.
std::optional<std::string> unknown_name(const BoardFile& file,
                                        const OperationArguments& arguments) {
  const auto node = std::find_if(file.nodes.begin(), file.nodes.end(), [&](const auto& config) {
    return config.board.device_od_map.count(arguments.device) != 0;
  });
  if (node == file.nodes.end()) {
    return "unknown device \"" + arguments.device + "\"; " + arguments.board +
           " has: " + devices_text(file);
  }
  if (node->operations.count(arguments.operation) == 0) {
    return "unknown operation \"" + arguments.operation + "\"; the node of \"" + arguments.device +
           "\" has: " + joined(keys(node->operations));
  }
  return std::nullopt;
}

}  // namespace

std::optional<RequestedOperation> read_operation(const CommandLineHost& host,
                                                 const OperationArguments& arguments) {
  std::optional<BoardFile> file = load_board(host, arguments.board);
  if (!file) {
    return std::nullopt;
  }
  if (const auto unknown = unknown_name(*file, arguments)) {
    print_diagnostic(host, *unknown);
    return std::nullopt;
  }
  auto payload = or_diagnostic(host, parse_payload_words(arguments.payload));
  if (!payload) {
    return std::nullopt;
  }
  return RequestedOperation{*std::move(file), *std::move(payload)};
}

}  // namespace velmora_can_bridge
