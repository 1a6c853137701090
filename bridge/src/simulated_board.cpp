#include "velmora_can_bridge/bridge/simulated_board.hpp"

#include "velmora_can_bridge/bus/network_management.hpp"

namespace velmora_can_bridge {

SimulatedBoard::SimulatedBoard(const BoardFile& file) {
  for (const NodeConfig& config : file.nodes) {
    nodes_.push_back(std::make_unique<Node>(bus_, config));
    nodes_.back()->on_bus.boot();
  }
  NmtMaster(bus_).send(NmtCommand::start, 0);
}

std::vector<SimulatedBusNode*> SimulatedBoard::nodes() {
  std::vector<SimulatedBusNode*> all;
  all.reserve(nodes_.size());
  for (const auto& node : nodes_) {
    all.push_back(&node->node);
  }
  return all;
}

void SimulatedBoard::tick(std::chrono::milliseconds elapsed) {
  for (const auto& node : nodes_) {
    node->on_bus.tick(elapsed);
  }
}

}  // namespace velmora_can_bridge
