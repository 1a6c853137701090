#include <map>

#include "commands.hpp"
#include "ground/number_text.hpp"
#include "json_line.hpp"
#include "report.hpp"
#include "table.hpp"
#include "velmora_can_bridge/config/payload_description.hpp"

namespace velmora_can_bridge {
namespace {

/// The devices in the order of their names.
std::map<std::string, DeviceOdEntry> sorted_devices(const BoardConfig& board) {
  return {board.device_od_map.begin(), board.device_od_map.end()};
}

void print_text(const CommandLineHost& host, const NodeConfig& node) {
  Table devices;
  devices.add({"device", "profile", "base_index", "homing_record"});
  for (const auto& [name, entry] : sorted_devices(node.board)) {
    devices.add({name, entry.profile, hex<4>(entry.base_index),
                 entry.homing_record == 0 ? "" : hex<4>(entry.homing_record)});
  }
  Table operations;
  operations.add({"operation", "kind", "payload", "label"});
  for (const auto& [name, op] : node.operations) {
    operations.add({name, op.kind, describe_payload(op, node.board), op.label});
  }
  host.out << "node " << hex<2>(node.node_id) << '\n';
  devices.print(host.out);
  host.out << '\n';
  operations.print(host.out);
}

void print_json(const CommandLineHost& host, const NodeConfig& node) {
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
                           {"payload", describe_payload(op, node.board)},
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
    (json ? print_json : print_text)(host, node);
  }
  return ExitStatus::success;
}

}  // namespace velmora_can_bridge
