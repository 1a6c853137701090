// A board with one lamp.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/node_on_bus.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {

inline BoardConfig lamp_board() {
  BoardConfig board;
  board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 8, "level"}, {0x2000, 2, 8, "mode"}}}};
  board.device_od_map["lamp"].base_index = 0x2000;
  return board;
}

/// Node 0x10 has "set_level" (RPDO), "refresh_level" (RPDO, its image loaded each time),
/// "write_level" (SDO), "read_level" (SDO).
inline BoardFile lamp_file() {
  OperationConfig set_level;
  set_level.kind = "pdo_write";
  set_level.pdo_number = 1;
  set_level.field = "level";
  OperationConfig refresh_level = set_level;
  refresh_level.refresh_shadow = 1;
  OperationConfig write_level;
  write_level.kind = "sdo_write";
  write_level.index = 0x2000;
  write_level.sub_index = 1;
  write_level.data_type = "u16";
  OperationConfig read_level = write_level;
  read_level.kind = "sdo_read";
  BoardFile file;
  file.nodes.push_back({0x10,
                        lamp_board(),
                        {{"set_level", set_level},
                         {"refresh_level", refresh_level},
                         {"write_level", write_level},
                         {"read_level", read_level}}});
  return file;
}

/// What the transfers of the report were, in words.
inline std::vector<std::string> lines_of(const std::vector<Transfer>& transfers) {
  std::vector<std::string> lines;
  lines.reserve(transfers.size());
  for (const Transfer& transfer : transfers) {
    lines.push_back(transfer_text(transfer));
  }
  return lines;
}

}  // namespace velmora_can_bridge
