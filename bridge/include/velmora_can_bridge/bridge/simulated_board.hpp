/// A board file with all of its nodes simulated.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// A bus with all nodes of a board file on it, freshly started and operational.
///
/// Waits for answers take no time; the nodes' own time passes by `tick` alone. So everything that
/// happens on it is repeatable. Safe to use from any thread.
class SimulatedBoard : public CanChannel {
 public:
  /// The nodes take all that they need from `file`, which may go.
  explicit SimulatedBoard(const BoardFile& file);

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return bus_.open(filters);
  }

  /// The nodes in the order of the file: to look at their devices, or to give them faults
  /// (`parse_fault_script`). They live as long as the board, which alone lets time pass for them.
  std::vector<SimulatedBusNode*> nodes();

  /// Lets time pass on all nodes.
  void tick(std::chrono::milliseconds elapsed);

 private:
  struct Node {
    Node(InProcessBus& bus, const NodeConfig& config)
        : node(config.node_id, config.board), on_bus(bus, node) {}

    SimulatedBusNode node;
    InProcessNode on_bus;
  };

  InProcessBus bus_{BusTime::simulated, "sim"};
  std::vector<std::unique_ptr<Node>> nodes_;
};

}  // namespace velmora_can_bridge
