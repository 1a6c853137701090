/// Simulated nodes on a CAN bus of any kind.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Serves several `SimulatedBusNode`s on one endpoint of a channel, an interface of the kernel for
/// instance.
///
/// Has no thread: one thread calls `poll`, again and again. The nodes' devices may be used from
/// others meanwhile. The nodes do not hear one another: they share one endpoint. Frames that the
/// bus does not take are lost.
class SimulatedNodeServer {
 public:
  /// How often time passes for the nodes, at most.
  static constexpr std::chrono::milliseconds tick_interval{1};

  /// Channel and nodes outlive the server; no node is null. Time passes for the nodes from now on,
  /// by `CanEndpoint::now`.
  SimulatedNodeServer(CanChannel& channel, std::vector<SimulatedBusNode*> nodes);

  /// Switches all nodes on. Not while another thread polls. `ok` when all boot-up messages were
  /// sent, otherwise the last trouble that one had.
  CanStatus boot();

  /// Answers what comes and lets time pass, until `timeout` is over; an hour at most, and with 0
  /// one frame at most.
  ///
  /// `ok` when the bus worked. Otherwise the last trouble that a receive or a send had, `explain`
  /// has words for it: the server goes on, and works again when the bus does. A receive that fails
  /// again and again ends the poll early, after a wait of `tick_interval`.
  CanStatus poll(std::chrono::milliseconds timeout);

  /// The ids of those nodes that another device on the bus has as well, as
  /// `SimulatedBusNode::is_doubled` tells, in the order of the nodes. May be called from any
  /// thread.
  std::vector<std::uint8_t> doubled_node_ids() const;

  /// What `status` means on this bus, for people. May be called from any thread.
  std::string explain(CanStatus status) const { return endpoint_->explain(status); }

 private:
  using Time = std::chrono::steady_clock::time_point;

  void let_time_pass(Time now);
  bool receive_one(std::chrono::nanoseconds timeout);
  void dispatch(const CanFrame& frame);
  void send_frames();

  const std::vector<SimulatedBusNode*> nodes_;
  const std::unique_ptr<CanEndpoint> endpoint_;
  Time ticked_until_;
  // What the nodes have to send.
  std::vector<CanFrame> frames_;
  CanStatus trouble_ = CanStatus::ok;
  // The last receive failed.
  bool has_failed_ = false;
};

}  // namespace velmora_can_bridge
