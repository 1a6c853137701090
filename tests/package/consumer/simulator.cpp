#include <cstdio>

#include "velmora_can_bridge/simulator/simulated_node.hpp"

int main() {
  const velmora_can_bridge::SimulatedNode node(7);
  std::printf("node %d\n", node.object_value(0x1018, 4)->at(0));
}
