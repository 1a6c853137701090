/// A simulated node on a bus inside the process.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Attaches a `SimulatedBusNode` to an `InProcessBus`: it answers on the thread that sends to it,
/// before that thread's send returns.
///
/// Safe to use from any number of threads, the node's device included. What frames change while a
/// tick is being sent is sent by the next tick or frame, so that an old TPDO never follows a newer
/// one. Frames that the bus does not take are lost.
class InProcessNode {
 public:
  /// Bus and node outlive it. Silent and deaf until the node is booted.
  InProcessNode(InProcessBus& bus, SimulatedBusNode& node);

  InProcessNode(const InProcessNode&) = delete;
  InProcessNode(InProcessNode&&) = delete;
  InProcessNode& operator=(const InProcessNode&) = delete;
  InProcessNode& operator=(InProcessNode&&) = delete;
  ~InProcessNode() = default;

  /// Switches the node on and sends what that brings. Not within a handler of the bus.
  void boot();

  /// Lets time pass for the node and sends what that brings. Not within a handler of the bus.
  void tick(std::chrono::milliseconds elapsed);

 private:
  template <typename Collect>
  void send(const Collect& collect);

  SimulatedBusNode* const node_;

  // Guards frames_ and the node's hold on changes. Held while frames are sent, so taken before the
  // node's and the bus's locks.
  std::mutex sending_mutex_;
  std::vector<CanFrame> frames_;

  // At last, as it calls the handler from the moment on at which it is there.
  const std::unique_ptr<CanEndpoint> endpoint_;
};

}  // namespace velmora_can_bridge
