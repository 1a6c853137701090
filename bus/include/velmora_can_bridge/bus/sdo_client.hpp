/// The client side of SDO transfers with one node.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"

namespace velmora_can_bridge {

/// How long SDO transfers wait.
struct SdoTimes {
  /// For each answer of the node.
  std::chrono::milliseconds frame_timeout{500};
  /// For a transfer of several segments as a whole.
  std::chrono::milliseconds transfer_timeout{5000};
  /// After a time-out or a bad answer, counted from it: answers that come late are thrown away
  /// until then, and the next transfer with that node begins only then, unless it is urgent. With 0
  /// late answers are taken for others, and no node counts as silent.
  std::chrono::milliseconds quarantine{500};
  /// For room in a full transmit queue.
  std::chrono::milliseconds send_patience{20};
};

/// Expedited and segmented SDO transfers (CiA 301, 7.2.4.3), block transfers not.
///
/// Transfers block until they have ended. Nothing is ever sent twice: a request that got no answer
/// may have arrived. Not thread-safe: one transfer at a time.
///
/// SDO answers carry no number of their request. What comes before a request is never taken for its
/// answer, nor is an answer about another object; but an answer that a node sends twice, the second
/// time after the next request for the same object, cannot be told from that request's own.
///
/// Inside an `UrgentScope` a transfer does not wait for the end of a quarantine. An answer that
/// comes then about another object, of another command or of a segment is thrown away. Where it may
/// be that to the transfer which was given up, as this was of the same direction on the same object
/// or the answer is an abort, the transfer fails as a `bad_answer` with `outcome_unknown`.
class SdoClient {
 public:
  /// Is told of a bus state that shows during a transfer without ending it, with its words.
  using StatusObserver = std::function<void(CanStatus status, const std::string& text)>;

  /// An upload of more bytes than this fails: a node that never ends one must not fill the memory.
  static constexpr std::size_t upload_limit = std::size_t{16} * 1024 * 1024;

  /// A transfer that failed says why. No value: it succeeded.
  using Failure = std::optional<BusError>;

  /// Talks to the node `node_id`, 1 to 127, by its predefined COB-IDs. `observer` may be
  /// empty. When `stopped` is given and set, from any thread, a transfer of several segments is
  /// given up before the next one, unless it is urgent; it outlives the client.
  SdoClient(CanChannel& channel, std::uint8_t node_id, SdoTimes times, StatusObserver observer,
            const std::atomic<bool>* stopped = nullptr);

  /// Reads an object: its bytes are appended to `data`, any number, none included. After a failure
  /// `data` may hold a part of them.
  ///
  /// An answer that gives no size and is expedited counts as 4 bytes.
  Failure upload(std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data);

  /// Writes an object: 1 to 4 bytes expedited, others segmented, with their size indicated. No
  /// bytes go as a segmented transfer of size 0 with one empty segment, as expedited ones cannot
  /// say 0.
  Failure download(std::uint16_t index, std::uint8_t sub_index,
                   const std::vector<std::uint8_t>& data);

  using Time = std::chrono::steady_clock::time_point;

  /// When the quarantine ends, by the time of the channel; long ago when there is none.
  Time quarantine_end() const;

  /// How often in a row the node has not answered in time, with nothing from it and no fault of the
  /// bus between.
  unsigned timeouts_in_row() const { return timeouts_in_row_; }

 private:
  enum class Direction : std::uint8_t { upload, download };

  struct Transfer {
    Direction direction = Direction::upload;
    std::uint16_t index = 0;
    std::uint8_t sub_index = 0;
    /// It did not wait for the end of a quarantine: an answer may be that to another transfer.
    bool in_quarantine = false;
    /// Set by the first answer that is waited for, and by segments.
    Time deadline = Time::max();
    /// The first request was answered, and further ones follow.
    bool in_segments = false;
    /// With the request that is sent now the node has all of a download.
    bool completes_download = false;
  };

  /// A transfer whose answer may come late.
  struct GivenUp {
    Transfer transfer;
    Time until;
  };

  Transfer begin(Direction direction, std::uint16_t index, std::uint8_t sub_index);
  void drop_late_answers(bool waits);
  void forget_given_up();
  Failure upload_segments(Transfer& transfer, const CanFrame& initiated,
                          std::vector<std::uint8_t>& data);
  Failure download_expedited(Transfer& transfer, const std::vector<std::uint8_t>& data);
  Failure download_segments(Transfer& transfer, const std::vector<std::uint8_t>& data);

  Failure initiate(Transfer& transfer, std::uint8_t command, std::uint32_t number,
                   std::uint8_t expected, CanFrame& answer);
  Failure segment(Transfer& transfer, const CanFrame& request, std::uint8_t expected,
                  CanFrame& answer);
  Failure exchange(Transfer& transfer, const CanFrame& request, std::uint8_t expected,
                   CanFrame& answer);
  Failure await(Transfer& transfer, CanFrame& answer);
  Failure await_in_quarantine(Transfer& transfer, std::uint8_t expected, CanFrame& answer);
  Failure receive_until(const Transfer& transfer, Time now, Time end, CanFrame& answer);
  Time answer_end(Transfer& transfer, Time now) const;
  static bool is_for(const Transfer& transfer, const CanFrame& answer);
  static bool can_be_answer(const Transfer& transfer, std::uint8_t expected,
                            const CanFrame& answer);
  bool can_be_late(const Transfer& transfer, const CanFrame& answer) const;

  BusError refused(const Transfer& transfer, const CanFrame& answer) const;
  BusError unknown_command(const Transfer& transfer, const CanFrame& answer);
  BusError wrong_object(const Transfer& transfer, const CanFrame& answer);
  BusError uncertain(const Transfer& transfer, const CanFrame& answer);
  BusError bad_answer(const Transfer& transfer, SdoAbort abort, const std::string& reason);
  BusError no_answer(const Transfer& transfer, Time end);
  BusError lost_bus(const Transfer& transfer, CanStatus status);
  BusError not_sent(const Transfer& transfer, CanStatus status) const;
  BusError bus_fault(const Transfer& transfer, CanStatus status) const;
  BusError give_up(const Transfer& transfer, SdoAbort abort, BusErrorKind kind,
                   const std::string& reason);
  void send_abort(const Transfer& transfer, SdoAbort abort);
  void start_quarantine(const Transfer& transfer);
  BusError error(const Transfer& transfer, BusErrorKind kind, std::string reason) const;

  const std::uint8_t node_id_;
  const SdoTimes times_;
  const StatusObserver observer_;
  const std::unique_ptr<CanEndpoint> endpoint_;
  const std::atomic<bool>* const stopped_;
  // Each stands once, and none is in here whose time is over when a transfer has begun.
  std::vector<GivenUp> given_up_;
  unsigned timeouts_in_row_ = 0;
};

}  // namespace velmora_can_bridge
