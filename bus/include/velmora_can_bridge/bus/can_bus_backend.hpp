/// The bus of a real robot, and of a simulated one: `CanOpenBackend` over CAN frames.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/turn_queue.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// SDO transfers and RPDO frames over a channel.
///
/// Safe to use from any number of threads. Transfers with different nodes run side by side, those
/// with one node one after another in the order in which they came. Inside an `UrgentScope` a
/// transfer goes after the one under way and before all that wait, and does not wait a quarantine
/// out. An RPDO waits for no SDO transfer. The calling thread itself waits for its answer: the
/// backend has no thread.
///
/// A node that has let two requests in a row time out, with nothing from it between, counts as
/// silent: until the quarantine of the last one is over, reads fail at once, before they take a
/// turn; writes wait, urgent transfers are sent.
///
/// Nothing is retried and nothing is sent twice. Every call that returns false leaves its reason
/// in `last_error` and tells the observer, who is also told what ends no call: `bus_warning`,
/// `late_answer`, `short_answer`.
class CanBusBackend : public CanOpenBackend {
 public:
  /// `channel` outlives the backend. `observer` may be empty.
  explicit CanBusBackend(CanChannel& channel, SdoTimes times = {}, BusObserver observer = {});
  ~CanBusBackend() override;
  CanBusBackend(const CanBusBackend&) = delete;
  CanBusBackend(CanBusBackend&&) = delete;
  CanBusBackend& operator=(const CanBusBackend&) = delete;
  CanBusBackend& operator=(CanBusBackend&&) = delete;

  /// Takes the COB-IDs that `board` gives to RPDOs of the node; of several RPDOs with one number
  /// the first counts; one above 0x7FF counts as none. Without this call a node has the predefined
  /// ones; another call forgets those of the one before. Not while operations run
  /// on the node. Does nothing for a node id other than 1 to 127.
  void set_cob_ids(std::uint8_t node_id, const BoardConfig& board);

  /// As the base says. Fails when the node refuses, does not answer in `frame_timeout`, answers
  /// wrongly or counts as silent, when the bus fails, after `stop`, and for a node id other than 1
  /// to 127.
  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;

  /// As `sdo_read`. When the answer is lost the node may have taken the value all the same:
  /// `BusError::outcome_unknown` then tells it from a refusal.
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;

  /// Sends the frame with the `cob_id` of the board, else with the predefined one. Fails for a
  /// number with neither, when the bus fails, when the transmit queue stays full for
  /// `send_patience`, and for a length above 8.
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

  /// Ends all waiting, for a program that ends: transfers that wait for their turn or for the end
  /// of a quarantine fail with `stopped`, the next in line when the one under way has ended, and so
  /// does every later one. One under way ends with its next answer, or with its time-out. RPDOs and
  /// urgent transfers (`UrgentScope`) go on, so that the last thing that a program does may be a
  /// stop. Returns at once; any thread, also the observer's.
  void stop();

  /// For a program that ends: listens until the late answer of every request that timed out is
  /// there or its quarantine is over, for all nodes at once. What comes is told to the observer as
  /// `late_answer`. Without this, a program that is started next and asks for the same object takes
  /// that answer for its own.
  ///
  /// Returns the node ids whose late answers are still to come, as `stop` has ended the wait or
  /// other threads have brought new ones about; none otherwise. Listens for the longest quarantine
  /// at most, 5 s or `SdoTimes::quarantine`, and waits out transfers that are under way. Any
  /// thread, but not the observer's.
  std::vector<std::uint8_t> await_late_answers();

  /// What last failed with the node, on any thread; no value when nothing has. Later successes do
  /// not clear it. For a node id other than 1 to 127 the answer is that of all such ids together.
  std::optional<BusError> last_error(std::uint8_t node_id) const;

 private:
  struct Node;
  struct Request;

  template <typename Transfer>
  bool transfer(const Request& request, const Transfer& transfer);
  std::optional<BusError> hindrance(const Request& request, const Node& node) const;
  static BusError not_tried(const Request& request, BusErrorKind kind, std::string text);
  std::optional<std::chrono::nanoseconds> time_until(
      std::chrono::steady_clock::time_point time) const;
  static void follow_silence(Node& node);
  static std::chrono::steady_clock::time_point take_late_answers(Node& node);
  void wait_out_quarantine(Node& node, TurnQueue::Turn& turn);
  std::unique_ptr<SdoClient> open_client(std::uint8_t node_id);
  bool report(const BusError& error);
  bool report(std::uint8_t node_id, BusErrorKind kind, std::string text,
              CanStatus status = CanStatus::ok);
  bool report_node_id(std::uint8_t node_id);

  CanChannel* const channel_;
  const SdoTimes times_;
  const BusObserver observer_;
  const std::unique_ptr<CanEndpoint> rpdo_endpoint_;
  std::atomic<bool> stopped_{false};
  // By node id; none for 0.
  std::array<std::unique_ptr<Node>, highest_node_id + 1> nodes_;

  // Guards last_errors_. A leaf: nothing is called with it held.
  mutable std::mutex errors_mutex_;
  // By node id; 0 stands for ids out of range.
  std::array<std::optional<BusError>, highest_node_id + 1> last_errors_;
};

}  // namespace velmora_can_bridge
