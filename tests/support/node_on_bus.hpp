// A simulated node on a bus of a test.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {

/// Switched on from the beginning.
struct NodeOnBus {
  NodeOnBus(InProcessBus& bus, std::uint8_t node_id, const BoardConfig& board = {})
      : node(node_id, board), on_bus(bus, node) {
    on_bus.boot();
  }

  SimulatedBusNode node;
  InProcessNode on_bus;
};

}  // namespace velmora_can_bridge
