/// When images of RPDOs have to be forgotten.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/bus/nmt_state.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Lets controllers forget their images of RPDOs on everything that may hide a restart of the node.
///
/// A node that has restarted holds its start values. An image from before would bring the old
/// values of all fields back with the next write of one, velocities among them. The boot-up message
/// alone does not tell: robot and adapter may be switched off together, or the interface is down
/// while the node boots. So these are reasons, too:
///
/// - the node counts as lost, and it is heard again: an operation with `refresh_shadow` may have
///   marked an image as loaded meanwhile, although no read was answered;
/// - the interface is down or missing, the controller is bus-off, or the system refuses work
///   (`CanStatus::failed`); and the bus works again after that. All nodes;
/// - the node shows pre-operational or stopped, and the last command that was sent to it did not
///   ask for that state, or it has shown it since already;
/// - the watch has lost frames, a boot-up message perhaps among them. All nodes;
/// - a command to reset the node or its communication. All nodes, if it went to all.
///
/// To forget needlessly costs one SDO read for each mapped object with the next write.
///
/// Nothing is forgotten that nobody tells: feed it the events of a `NodeWatch` with a heartbeat
/// time-out, the errors of the bus and every NMT command. Safe to call from any thread, and from
/// any observer. But for `add` and `send`, which need memory,
/// nothing here throws.
class RestartGuard {
 public:
  /// Guards the images of `controller`, which belongs to the node `node_id`, 1 to 127, and outlives
  /// the last call of any other member. A node may have several.
  void add(std::uint8_t node_id, CanOpenNodeController& controller);

  /// As `add` with a controller, for who keeps more than its images: `forget` is called where they
  /// are to be forgotten. It throws nothing and takes no lock.
  void add(std::uint8_t node_id, std::function<void()> forget);

  /// What a `NodeWatch` has told, events of the bus included.
  void note(const NodeEvent& event);

  /// What the bus has told otherwise, such as `BusError::status` of a bus fault. `ok` says that it
  /// works again.
  void note(CanStatus bus);

  /// Sends `command` as `NmtMaster::send` does, and notes it: before, so that no state which the
  /// node shows at once is taken for one that nobody asked for; and a reset again when it was sent.
  std::optional<BusError> send(NmtMaster& master, NmtCommand command, std::uint8_t node_id);

  /// A command that goes another way to one node, or with 0 to all: to be told before it is sent.
  void note(NmtCommand command, std::uint8_t node_id);

 private:
  struct Guarded {
    std::uint8_t node_id;
    std::function<void()> forget;
  };
  struct Node {
    // What the last command to it asked for, until it has shown it, or has restarted.
    std::optional<NmtState> asked;
    bool is_lost = false;
  };

  bool may_have_restarted(const NodeEvent& event);
  void forget(std::uint8_t node_id);

  // Guards all below. A leaf: what forgets takes no lock.
  std::mutex mutex_;
  std::vector<Guarded> guarded_;
  std::array<Node, highest_node_id + 1> nodes_;
  bool is_bus_in_trouble_ = false;
};

}  // namespace velmora_can_bridge
