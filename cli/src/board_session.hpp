// The operations of a board, on a bus.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "report.hpp"
#include "stoppable_bus.hpp"
#include "tracing_backend.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/bus/restart_guard.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// The node that holds the device, or null.
const NodeConfig* find_node(const BoardFile& file, const std::string& device);

/// A controller for each node of a board, and what stands behind it.
///
/// Before each operation the images of RPDOs are forgotten of nodes that may have restarted since
/// the last one (`RestartGuard`).
class BoardSession {
 public:
  /// Host, channel and file outlive this object. `sink` is told of every transfer.
  BoardSession(const CommandLineHost& host, CanChannel& channel, const BoardFile& file,
               SdoTimes times, TracingBackend::Sink sink);

  /// Executes the operation named `operation` of the device's node; both are there.
  OperationReport run(const std::string& device, const std::string& operation,
                      const std::vector<std::uint8_t>& payload);

  /// Before the program ends: as `StoppableBus::await_late_answers`.
  void await_late_answers() { bus_.await_late_answers(); }

 private:
  struct Node {
    Node(CanOpenBackend& backend, const NodeConfig& node_config)
        : config(&node_config), controller(node_config.node_id, backend, node_config.board) {}

    const NodeConfig* config;
    CanOpenNodeController controller;
  };

  Node& node_of(const std::string& device);

  // How the latest transfer of the operation that runs failed; once one was interrupted, how that
  // one did: the later ones were not begun.
  std::optional<BusError> error_;
  // How the last one of its transfers that did not succeed failed.
  std::optional<BusError> tolerated_;
  StoppableBus bus_;
  TracingBackend traced_;
  std::vector<std::unique_ptr<Node>> nodes_;
  RestartGuard guard_;
  NodeWatch watch_;
};

}  // namespace velmora_can_bridge
