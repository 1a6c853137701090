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
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

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
  /// date. It is not the only sign of that: see `RestartGuard`.
  booted,
  /// A heartbeat showed a state other than the one before, or the first one.
  state_changed,
  /// No heartbeat for the time given to the watch; when frames were lost meanwhile, for that time
  /// once more.
  lost,
  /// An emergency frame; `data` has it.
  emergency,
  /// The bus or the interface, as `status` says: bus-off, error-passive, down, missing or failed,
  /// and with the first frame that is received again `ok`. `node_id` is 0.
  bus,
  /// Frames came faster than they were taken, and some were lost: boot-up messages may be among
  /// them. Told at once, then every 100 ms while more are lost, and at the end of a `poll`. The
  /// `node_id` is 0.
  frames_lost,
};

struct NodeEvent {
  NodeEventKind kind = NodeEventKind::booted;
  std::uint8_t node_id = 0;
  NmtState state = NmtState::boot_up;
  /// For `emergency`: error code, low byte first, error register, five bytes of the device
  /// (CiA 301, 7.2.7).
  std::array<std::uint8_t, 8> data{};
  /// For people, on one line: "node 0x10 is operational".
  std::string text{};
  /// For `bus`: what the interface told. `ok` when it works again after anything else but
  /// error-passive, which does not stop it.
  CanStatus status = CanStatus::ok;
};

/// Watches heartbeats, boot-up messages and emergencies of all nodes.
///
/// Has no thread: somebody calls `poll`, again and again, usually a thread of its own.
///
/// Nodes are judged by when their heartbeats came, not by when they were handled: what waits to be
/// received counts in time, and a bus or an observer that never lets the queue run empty hides no
/// silence. When more came than the queue holds, heartbeats may be among the lost frames. Each node
/// is then judged a whole `heartbeat_timeout` after the first loss since it was last heard: further
/// losses do not put that off, so a silent node is lost after two time-outs at the latest, and a
/// node of which every heartbeat was lost in that time is, too.
class NodeWatch {
 public:
  using Observer = std::function<void(const NodeEvent& event)>;

  /// `channel` outlives the watch. `observer`, which may be empty, runs in `poll`, without a lock.
  /// A node counts as lost when its heartbeats, once seen since it booted, stay away for
  /// `heartbeat_timeout`; 0 never judges.
  NodeWatch(CanChannel& channel, std::chrono::milliseconds heartbeat_timeout, Observer observer);

  /// Handles what has come, and waits for more until `timeout` has passed. One thread at a time.
  ///
  /// Takes no further frame once `timeout` has passed, however many wait; what the observer does
  /// with the last one comes on top. With 0 or less it handles what had come before the call, at
  /// most 65536 frames, and waits for nothing.
  void poll(std::chrono::milliseconds timeout);

  /// The state last seen; no value when the node was never heard of or is lost. Any thread.
  std::optional<NmtState> state(std::uint8_t node_id) const;

 private:
  using Time = std::chrono::steady_clock::time_point;
  struct Node {
    std::optional<NmtState> state;
    Time seen{};
    /// When frames were first lost since.
    std::optional<Time> missed;
    /// A heartbeat has come since it booted: many nodes send none.
    bool beats = false;

    bool is_judged() const { return state && beats; }
    Time silent_since() const { return missed.value_or(seen); }
  };

  void poll_until(Time end);
  void take_what_came_by(Time start);
  CanStatus take_next(Time now, std::chrono::nanoseconds wait);
  void take(const CanFrame& frame, const CanArrival& arrival);
  void tell_bus(CanStatus status);
  void handle_heartbeat(std::uint8_t node_id, const CanFrame& frame, Time came);
  void handle_emergency(std::uint8_t node_id, const CanFrame& frame);
  void note_losses(std::uint64_t lost, Time shown);
  void tell_losses();
  void find_lost(Time known);
  std::uint8_t next_lost(Time known);
  std::chrono::nanoseconds wait_limit(Time now, Time end) const;

  const std::chrono::milliseconds heartbeat_timeout_;
  const Observer observer_;
  const std::unique_ptr<CanEndpoint> endpoint_;

  // These belong to the polling thread: how the latest frame came, and whether the interface has
  // not worked since the one before.
  CanArrival last_arrival_;
  // The losses that the observer was told of, and when it is told of further ones.
  std::uint64_t told_losses_ = 0;
  Time next_telling_ = Time::min();
  bool is_in_trouble_ = false;
  // The status of the latest event about the bus.
  CanStatus told_status_ = CanStatus::ok;

  // Guards nodes_. A leaf: neither the observer nor the endpoint is called with it held.
  mutable std::mutex mutex_;
  std::array<Node, highest_node_id + 1> nodes_;
};

}  // namespace velmora_can_bridge
