// A board file with all of its nodes simulated.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tracing_backend.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {

/// One node of the file with everything that stands behind its operations.
class SimulatedBoardNode {
 public:
  /// `config` outlives this object.
  SimulatedBoardNode(const NodeConfig& config, TracingBackend::Sink trace);

  const NodeConfig& config() const { return *config_; }

  OperationResult run(const OperationConfig& op, const std::string& device,
                      const std::vector<std::uint8_t>& payload);

  /// Lets time pass on the node.
  void tick(std::chrono::milliseconds elapsed) { node_.tick(elapsed); }

  /// Why the bus refused the last transfer of the latest operation; no value when it did not, or
  /// when the operation came to no transfer.
  const std::optional<std::string>& refusal() const { return refusal_; }

 private:
  const NodeConfig* config_;
  std::optional<std::string> refusal_;
  SimulatedNode node_;
  TracingBackend backend_;
  CanOpenNodeController controller_;
};

/// All nodes of a board file, freshly started.
class SimulatedBoard {
 public:
  /// `file` outlives this object. `trace` is told of every bus transfer.
  SimulatedBoard(const BoardFile& file, const TracingBackend::Sink& trace);

  /// Lets time pass on all nodes.
  void tick(std::chrono::milliseconds elapsed);

  /// The node that holds the device, or null.
  SimulatedBoardNode* find_node(const std::string& device);

 private:
  std::vector<std::unique_ptr<SimulatedBoardNode>> nodes_;
};

}  // namespace velmora_can_bridge
