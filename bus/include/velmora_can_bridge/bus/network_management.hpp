/// Network management: telling nodes what to do, and watching whether they are there.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/nmt_state.hpp"

namespace velmora_can_bridge {

/// Sends NMT commands. Safe to call from any thread.
class NmtMaster {
 public:
  /// `channel` outlives the master.
  explicit NmtMaster(CanChannel& channel);

  /// Sends `command` to the node `node_id`, 1 to 127, or with 0 to all. No value: the frame was
  /// handed to the bus; nodes do not confirm it, their heartbeats show it.
  std::optional<BusError> send(NmtCommand command, std::uint8_t node_id);

 private:
  const std::unique_ptr<CanEndpoint> endpoint_;
};

enum class NodeEventKind : std::uint8_t {
  /// The node has started: its objects hold their start values, and images of its RPDOs are out of
  /// date (`CanOpenNodeController::forget_rpdo_shadows`).
  booted,
  /// A heartbeat showed a state other than the one before, or the first one.
  state_changed,
  /// No heartbeat for the time given to the watch.
  lost,
  /// An emergency frame; `data` has it.
  emergency,
  /// The bus or the interface: bus-off, error-passive, down, missing. `node_id` is 0.
  bus,
};

struct NodeEvent {
  NodeEventKind kind = NodeEventKind::booted;
  std::uint8_t node_id = 0;
  NmtState state = NmtState::boot_up;
  /// For `emergency`: error code, low byte first, error register, five bytes of the device
  /// (CiA 301, 7.2.7).
  std::array<std::uint8_t, 8> data{};
  /// For people, on one line: "node 0x10 is operational".
  std::string text;
};

/// Watches heartbeats, boot-up messages and emergencies of all nodes.
///
/// Has no thread: somebody calls `poll`, again and again, usually a thread of its own.
class NodeWatch {
 public:
  using Observer = std::function<void(const NodeEvent& event)>;

  /// `channel` outlives the watch. `observer`, which may be empty, runs in `poll`, without a lock.
  /// A node counts as lost when its heartbeats, once seen since it booted, stay away for
  /// `heartbeat_timeout`; 0 never judges.
  NodeWatch(CanChannel& channel, std::chrono::milliseconds heartbeat_timeout, Observer observer);

  /// Handles what has come, and waits for more until `timeout` has passed. One thread at a time.
  void poll(std::chrono::milliseconds timeout);

  /// The state last seen; no value when the node was never heard of or is lost. Any thread.
  std::optional<NmtState> state(std::uint8_t node_id) const;

 private:
  using Time = std::chrono::steady_clock::time_point;
  struct Node {
    std::optional<NmtState> state;
    Time seen{};
    /// A heartbeat has come since it booted: many nodes send none.
    bool beats = false;
  };

  void handle(const CanFrame& frame);
  void handle_heartbeat(std::uint8_t node_id, const CanFrame& frame);
  void handle_emergency(std::uint8_t node_id, const CanFrame& frame);
  void find_lost();
  std::chrono::nanoseconds wait_limit(Time end) const;

  const std::chrono::milliseconds heartbeat_timeout_;
  const Observer observer_;
  const std::unique_ptr<CanEndpoint> endpoint_;

  // Guards nodes_. A leaf: the observer runs without it.
  mutable std::mutex mutex_;
  std::array<Node, highest_node_id + 1> nodes_;
};

}  // namespace velmora_can_bridge
