/// A board on a bus.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "velmora_can_bridge/bridge/bridge_event.hpp"
#include "velmora_can_bridge/bridge/device_comparison.hpp"
#include "velmora_can_bridge/bridge/explanation.hpp"
#include "velmora_can_bridge/bridge/operation_report.hpp"
#include "velmora_can_bridge/bridge/transfer.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/bus/restart_guard.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

struct BridgeSettings {
  SdoTimes times{};
  /// A node whose heartbeats stay away so long counts as lost (`NodeWatch`); 0 never judges.
  std::chrono::milliseconds heartbeat_timeout{0};
  /// Told of every transfer before it begins, and when it has ended. Either may be empty.
  TransferHook before_transfer{};
  TransferHook after_transfer{};
};

/// The operations of all nodes of a board file, on one bus.
///
/// Holds what the use of a board needs: a `CanBusBackend` with the COB-IDs of the file, a
/// controller for each node, a `NodeWatch`, and a `RestartGuard` that makes the controllers forget
/// their images when a node may have restarted.
///
/// Starts no thread. Every member may be called from any thread, from several at once. Somebody
/// calls `poll` again and again, if observers are to be told of anything (`BridgeRunner` does so);
/// `run` needs nobody who polls.
class Bridge {
 public:
  /// Events that wait for a poll; further ones are lost, which is an event, too.
  static constexpr std::size_t event_limit = 4096;

  /// `channel` outlives the bridge; `file` is the bridge's own from now on. Nothing is sent.
  Bridge(CanChannel& channel, BoardFile file, BridgeSettings settings = {});
  ~Bridge();
  Bridge(const Bridge&) = delete;
  Bridge(Bridge&&) = delete;
  Bridge& operator=(const Bridge&) = delete;
  Bridge& operator=(Bridge&&) = delete;

  const BoardFile& board() const { return file_; }

  /// Runs the operation of that name, one of the device's node, as
  /// `CanOpenNodeController::execute_configured_operation` does.
  ///
  /// A device or operation that the file does not hold answers "Device not found: NAME" or
  /// "Operation not found: NAME". Boot-ups, heartbeats and losses that had arrived before the call
  /// count: images that they put in doubt are forgotten first. That waits for no observer. What
  /// arrives while the operation waits its turn for the images counts where somebody polls, else
  /// for the next call.
  ///
  /// Where no device has the name, it may be the id of a node of the file ("0x10" or "16"): its
  /// operations run then, and those that need a device answer "Device not found: NAME".
  ///
  /// No frame goes out with bytes that nobody knows. A field of an image is known when a load has
  /// read it, when a frame with it was sent, when a drive or claw operation has repeated there what
  /// it has written, or when this operation writes all of it; a change of bits writes nothing
  /// whole. An RPDO that would carry another field is not sent, nor is the write of a
  /// "pdo_bit_patch" by SDO: it fails, `OperationReport::error` says which field and why ("the
  /// node's value of NAME is not known (REASON)"), with the kind of the failed read. All images
  /// of the node are forgotten then, those of other RPDOs too, with the controlwords and modes that
  /// drive and claw operations have repeated in them and with what became known by writing: the
  /// next operation on each loads it from the node afresh. So enable drives again before a frame
  /// that carries a controlword. With `RunOptions::force` it is sent all the same, and what it
  /// carried is known from then on.
  OperationReport run(const std::string& device, const std::string& operation,
                      const std::vector<std::uint8_t>& payload, RunOptions options = {});
  /// As `run`, where nothing but the detail is chosen.
  OperationReport run(const std::string& device, const std::string& operation,
                      const std::vector<std::uint8_t>& payload, Detail detail);

  /// What `run` would do with these arguments now, and what it would answer if every transfer
  /// succeeded. What `run` would not send because of a field that nobody knows has its error here,
  /// too, unless `force` is set.
  ///
  /// Reads from the nodes what the operation itself would read. Sends and writes nothing else, and
  /// leaves the images and modes of operation as they are. Blocks as long as the reads take, and
  /// waits its turn for the images as an operation does, behind those that came before. Where other
  /// threads change what is known of the images without a pause, it may be of another moment than
  /// they.
  Explanation explain(const std::string& device, const std::string& operation,
                      const std::vector<std::uint8_t>& payload, bool force = false);

  /// The mode of operation that was last set for the device through this bridge, as
  /// `CanOpenNodeController::motor_mode`; 0 for a device that the file does not hold. Sends
  /// nothing.
  std::uint8_t motor_mode(const std::string& device) const;

  /// Reads any object of any node by SDO: its bytes, or why there are none.
  Expected<std::vector<std::uint8_t>, BusError> read_object(std::uint8_t node_id,
                                                            std::uint16_t index,
                                                            std::uint8_t sub_index);

  /// Writes any object of any node by SDO; no value when the node has confirmed it. The images of
  /// RPDOs do not follow: where one carries the object, use an operation.
  std::optional<BusError> write_object(std::uint8_t node_id, std::uint16_t index,
                                       std::uint8_t sub_index,
                                       const std::vector<std::uint8_t>& data);

  /// Sends an NMT command to a node, 1 to 127, or with 0 to all: as `NmtMaster::send`. Images are
  /// forgotten where it resets a node.
  std::optional<BusError> send(NmtCommand command, std::uint8_t node_id);

  /// Compares the file with all its devices: `compare_with_device` for each node in the order of
  /// the file, and whether the SYNCs come that synchronous RPDOs wait for, at most for a second.
  std::vector<DeviceComparison> compare_with_devices();

  /// The state that the node has shown last; no value when it was never heard of or is lost. Counts
  /// what has arrived.
  std::optional<NmtState> node_state(std::uint8_t node_id);

  /// From now on `observer`, which may be empty, is told of events. Returns what `remove_observer`
  /// takes.
  std::uint64_t add_observer(BridgeObserver observer);

  /// The observer is called no more, but for a call that another thread has begun.
  void remove_observer(std::uint64_t observer);

  /// Watches the bus until `timeout` has passed, and tells the observers what happens; with 0 or
  /// less it takes what has arrived and tells that.
  ///
  /// What arrives, and events of transfers on other threads, are told within 10 ms. Where several
  /// threads poll, an observer may be called by several at once. An exception of an observer passes
  /// through: its event is told no further, those behind it are told by the next poll. What the
  /// observers do comes on top of `timeout`. Called within a transfer, from a `TransferHook`, it
  /// tells nothing.
  void poll(std::chrono::milliseconds timeout);

  /// Ends all waiting, for a program that ends: as `CanBusBackend::stop`, and every later transfer
  /// fails, RPDOs included, as `stopped` with `reason` as its text; one that was under way and
  /// fails has `reason` before its own. What runs in an `UrgentScope` goes on. Only the first call
  /// counts. An RPDO that is under way still goes out: it waits `SdoTimes::send_patience` at most
  /// for room in a full transmit queue.
  void stop(const std::string& reason = "stopped");

  /// As `CanBusBackend::await_late_answers`.
  std::vector<std::uint8_t> await_late_answers() { return bus_.await_late_answers(); }

 private:
  class CallRecord;
  class RecordingBackend;
  struct Node;
  using Time = std::chrono::steady_clock::time_point;

  /// Events are numbered from 1.
  struct QueuedEvent {
    std::uint64_t number = 0;
    BridgeEvent event;
  };
  struct Observer {
    /// The number of the last event that it is not told.
    std::uint64_t since = 0;
    std::shared_ptr<const BridgeObserver> observer;
  };
  struct Addressed {
    Node* node = nullptr;
    const OperationConfig* operation = nullptr;
  };

  Expected<Addressed> find(const std::string& device, const std::string& operation) const;
  Node* find_node(const std::string& device) const;
  void take_in();
  std::chrono::nanoseconds nap(std::unique_ptr<CanEndpoint>& own, Time end);
  std::optional<QueuedEvent> next_event(std::uint64_t last);
  std::shared_ptr<const BridgeObserver> next_observer(std::uint64_t event, std::uint64_t& told);
  void deliver_events();
  void note(const BusError& error);
  void queue(BridgeEvent event);
  std::optional<BusError> stopped_error(const Transfer& transfer) const;
  void blame_stop(BusError& error) const;

  const BoardFile file_;
  const BridgeSettings settings_;
  CanChannel* const channel_;
  RestartGuard guard_;
  CanBusBackend bus_;
  const std::unique_ptr<RecordingBackend> backend_;
  NmtMaster master_;
  // In the order of the file.
  std::vector<std::unique_ptr<Node>> nodes_;
  std::unordered_map<std::string, Node*> nodes_by_device_;

  // Held while the watch takes in what had arrived, at most 65536 frames, which waits for nothing:
  // every operation waits here for one such round at most for each thread before it. Observers run
  // without it.
  std::mutex watch_mutex_;
  NodeWatch watch_;

  // Held by the thread that waits on nap_, which receives nothing, so that a wait on it does
  // nothing but wait by the time of the bus. Nobody waits for the mutex: others who poll have an
  // endpoint of their own.
  std::mutex nap_mutex_;
  const std::unique_ptr<CanEndpoint> nap_;

  // Guards the members below. A leaf: observers run without it.
  mutable std::mutex events_mutex_;
  std::deque<QueuedEvent> events_;
  std::uint64_t events_so_far_ = 0;
  std::size_t lost_events_ = 0;
  // By what add_observer returned.
  std::map<std::uint64_t, Observer> observers_;
  std::uint64_t observers_so_far_ = 0;
  std::string stop_reason_;

  std::atomic<bool> is_stopped_{false};
};

}  // namespace velmora_can_bridge
