#include "requested_operation.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "ground/device_need.hpp"
#include "ground/nearest_name.hpp"
#include "ground/node_text.hpp"
#include "report.hpp"
#include "velmora_can_bridge/values/payload_words.hpp"

namespace velmora_can_bridge {
namespace {

/// "a, b, c", in the order of the alphabet.
std::string joined(std::vector<std::string_view> names) {
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string_view name : names) {
    text += (text.empty() ? "" : ", ") + std::string(name);
  }
  return text.empty() ? "none" : text;
}

template <typename Map>
void add_keys(std::vector<std::string_view>& names, const Map& map) {
  for (const auto& row : map) {
    names.push_back(row.first);
  }
}

/// "unknown device "ledd", did you mean "led"? (OWNER has: led, pumps)".
std::string unknown_name(std::string_view noun, std::string_view name, const std::string& owner,
                         std::vector<std::string_view> candidates) {
  const std::string_view nearest = nearest_name(name, candidates);
  const std::string there_are = owner + " has: " + joined(std::move(candidates));
  const std::string text = "unknown " + std::string(noun) + " \"" + std::string(name) + "\"";
  return nearest.empty()
             ? text + "; " + there_are
             : text + ", did you mean \"" + std::string(nearest) + "\"? (" + there_are + ")";
}

std::string unknown_device(const BoardFile& file, const std::string& path,
                           const std::string& device) {
  std::vector<std::string_view> names;
  for (const NodeConfig& node : file.nodes) {
    add_keys(names, node.board.device_od_map);
  }
  return unknown_name("device", device, path, std::move(names));
}

const NodeConfig* node_of_device(const BoardFile& file, const std::string& device) {
  const auto node = std::find_if(file.nodes.begin(), file.nodes.end(), [&](const auto& config) {
    return config.board.device_od_map.count(device) != 0;
  });
  return node == file.nodes.end() ? nullptr : &*node;
}

const NodeConfig* node_of_id(const BoardFile& file, const std::string& text) {
  const auto node = std::find_if(file.nodes.begin(), file.nodes.end(), [&](const auto& config) {
    return names_node(text, config.node_id);
  });
  return node == file.nodes.end() ? nullptr : &*node;
}

}  // namespace

const NodeConfig* node_of(const BoardFile& file, const std::string& device) {
  const NodeConfig* const owner = node_of_device(file, device);
  return owner != nullptr ? owner : node_of_id(file, device);
}

Expected<FoundOperation> find_operation(const BoardFile& file, const std::string& path,
                                        const std::string& device, const std::string& operation) {
  const NodeConfig* const owner = node_of_device(file, device);
  const NodeConfig* const node = node_of(file, device);
  if (node == nullptr) {
    return Unexpected{unknown_device(file, path, device)};
  }
  const auto found = node->operations.find(operation);
  if (found == node->operations.end()) {
    std::vector<std::string_view> names;
    add_keys(names, node->operations);
    const std::string whose =
        owner != nullptr ? "the node of \"" + device + "\"" : node_text(node->node_id);
    return Unexpected{unknown_name("operation", operation, whose, std::move(names))};
  }
  if (owner == nullptr && device_need(found->second.kind) != DeviceNeed::none) {
    std::vector<std::string_view> names;
    add_keys(names, node->board.device_od_map);
    return Unexpected{"operation \"" + operation + "\" needs a device, not a node id; " +
                      node_text(node->node_id) + " has: " + joined(names)};
  }
  return FoundOperation{node, &found->second};
}

Expected<std::vector<std::uint8_t>> requested_payload(const FoundOperation& found,
                                                      const OperationArguments& arguments,
                                                      std::uint8_t motor_mode) {
  if (arguments.raw) {
    return raw_payload_from_words(arguments.payload);
  }
  auto payload = payload_from_words({*found.node, arguments.device, *found.operation, motor_mode},
                                    arguments.payload);
  return payload ? payload : Unexpected{arguments.operation + ": " + payload.error()};
}

std::optional<RequestedOperation> read_operation(const CommandLineHost& host,
                                                 const OperationArguments& arguments) {
  std::optional<BoardFile> file = load_board(host, arguments.board);
  if (!file) {
    return std::nullopt;
  }
  const auto found = or_diagnostic(
      host, find_operation(*file, arguments.board, arguments.device, arguments.operation));
  auto payload = found ? or_diagnostic(host, requested_payload(*found, arguments)) : std::nullopt;
  if (!payload) {
    return std::nullopt;
  }
  return RequestedOperation{*std::move(file), *std::move(payload)};
}

}  // namespace velmora_can_bridge
