// A board file with all of its nodes simulated.
#pragma once

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

  /// Why the bus refused the last SDO transfer of the latest operation; no value when it did not.
  std::optional<std::string> refusal() const;

 private:
  const NodeConfig* config_;
  SimulatedNode node_;
  TracingBackend backend_;
  CanOpenNodeController controller_;
  bool transferred_ = false;
};

/// All nodes of a board file, freshly started.
class SimulatedBoard {
 public:
  /// `file` outlives this object. `trace` is given a line for every bus transfer.
  SimulatedBoard(const BoardFile& file, const TracingBackend::Sink& trace);

  /// The node that holds the device, or null.
  SimulatedBoardNode* find_node(const std::string& device);

 private:
  std::vector<std::unique_ptr<SimulatedBoardNode>> nodes_;
};

}  // namespace velmora_can_bridge
