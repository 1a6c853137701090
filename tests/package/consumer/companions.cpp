#include <cstdio>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

int main() {
  const auto loaded = velmora_can_bridge::parse_board("nodes: 3");
  velmora_can_bridge::SimulatedNode node(1);
  std::puts(loaded.problems.size() == 1 && node.object_value(0x1000, 0) ? "companions work" : "no");
}
