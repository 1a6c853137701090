#include <map>

#include "commands.hpp"
#include "ground/device_need.hpp"
#include "ground/number_text.hpp"
#include "json_line.hpp"
#include "report.hpp"
#include "table.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {
namespace {

/// The devices in the order of their names.
std::map<std::string, DeviceOdEntry> sorted_devices(const BoardConfig& board) {
  return {board.device_od_map.begin(), board.device_od_map.end()};
}

/// The first device, by name, that the kind can be run on; empty where there is none.
std::string suitable_device(const NodeConfig& node, const std::string& kind) {
  for (const auto& [name, entry] : sorted_devices(node.board)) {
    if (suits(entry, device_need(kind))) {
      return name;
    }
  }
  return "";
}

nlohmann::ordered_json count_json(Count count) {
  return count.is_negative() ? nlohmann::ordered_json(static_cast<std::int64_t>(count.bits()))
                             : nlohmann::ordered_json(count.bits());
}

/// What the operation takes on a device that suits.
Expected<PayloadLayout> layout_of(const NodeConfig& node, const OperationConfig& op) {
  const std::string device = suitable_device(node, op.kind);
  return payload_layout({node, device, op});
}

std::string payload_text(const NodeConfig& node, const OperationConfig& op) {
  const Expected<PayloadLayout> layout = layout_of(node, op);
  return layout ? payload_layout_text(*layout) : "none can be right: " + layout.error();
}

nlohmann::ordered_json value_json(const PayloadValue& value) {
  nlohmann::ordered_json json{{"name", value.name}, {"type", value_type_text(value.type)}};
  if (value.length != 0) {
    json["length"] = value.length;
  }
  if (is_integer(value.type)) {
    json["minimum"] = count_json(value.range.minimum);
    json["maximum"] = count_json(value.range.maximum);
  }
  if (!value.unit.empty()) {
    json["unit"] = value.unit;
  }
  if (value.scale) {
    json["scale"] = *value.scale;
  }
  for (const NamedCode& code : value.values) {
    json["values"][code.name] = count_json(code.code);
  }
  json["optional"] = value.is_optional;
  return json;
}

nlohmann::ordered_json values_json(const NodeConfig& node, const OperationConfig& op) {
  auto values = nlohmann::ordered_json::array();
  if (const Expected<PayloadLayout> layout = layout_of(node, op)) {
    for (const PayloadValue& value : layout->values) {
      values.push_back(value_json(value));
    }
  }
  return values;
}

void print_node_text(const CommandLineHost& host, const NodeConfig& node) {
  Table devices;
  devices.add({"device", "profile", "base_index", "homing_record"});
  for (const auto& [name, entry] : sorted_devices(node.board)) {
    devices.add({name, entry.profile, hex<4>(entry.base_index),
                 entry.homing_record == 0 ? "" : hex<4>(entry.homing_record)});
  }
  Table operations;
  operations.add({"operation", "kind", "payload", "label"});
  operations.give_up(1);
  for (const auto& [name, op] : node.operations) {
    operations.add({name, op.kind, payload_text(node, op), op.label});
  }
  host.out << "node " << hex<2>(node.node_id) << '\n';
  devices.print(host);
  host.out << '\n';
  operations.print(host);
}

void print_node_json(const CommandLineHost& host, const NodeConfig& node) {
  for (const auto& [name, entry] : sorted_devices(node.board)) {
    print_json_line(host, {{"node_id", node.node_id},
                           {"device", name},
                           {"profile", entry.profile},
                           {"base_index", entry.base_index},
                           {"homing_record", entry.homing_record}});
  }
  for (const auto& [name, op] : node.operations) {
    print_json_line(host, {{"node_id", node.node_id},
                           {"operation", name},
                           {"kind", op.kind},
                           {"payload", payload_text(node, op)},
                           {"values", values_json(node, op)},
                           {"label", op.label},
                           {"description", op.description}});
  }
}

}  // namespace

ExitStatus operations_command(const CommandLineHost& host, const std::string& board, bool json) {
  const std::optional<BoardFile> file = load_board(host, board);
  if (!file) {
    return ExitStatus::bad_input;
  }
  bool first = true;
  for (const NodeConfig& node : file->nodes) {
    if (!first && !json) {
      host.out << '\n';
    }
    first = false;
    (json ? print_node_json : print_node_text)(host, node);
  }
  return ExitStatus::success;
}

}  // namespace velmora_can_bridge
