// A node of a bridge.
#pragma once

#include "known_fields.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

struct Bridge::Node {
  Node(CanOpenBackend& backend, const NodeConfig& node_config)
      : config(&node_config),
        controller(node_config.node_id, backend, node_config.board),
        known(node_config.board) {}

  /// Makes the controller forget its images, and with them what is known of them. Takes no lock.
  void forget() noexcept {
    known.forget();
    controller.forget_rpdo_shadows();
    known.forget();
  }

  const NodeConfig* config;
  CanOpenNodeController controller;
  KnownFields known;
};

}  // namespace velmora_can_bridge
