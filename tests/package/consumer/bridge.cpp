#include "velmora_can_bridge/bridge/bridge.hpp"

#include <cstdio>

#include "velmora_can_bridge/bridge/simulated_board.hpp"

int main() {
  const auto loaded = velmora_can_bridge::parse_board(
      "nodes: [{node_id: 1, device_od_map: {board: {profile: io, base_index: 0x2000}}, "
      "operations: {identify: {kind: sdo_read, index: 0x1018, sub_index: 4}}}]");
  velmora_can_bridge::SimulatedBoard channel(*loaded.file);
  velmora_can_bridge::Bridge bridge(channel, *loaded.file);
  std::puts(explanation_text(bridge.explain("board", "identify", {})).c_str());
}
