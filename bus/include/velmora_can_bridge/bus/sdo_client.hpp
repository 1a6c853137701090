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
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// How long SDO transfers wait.
struct SdoTimes {
  /// For each answer of the node.
  std::chrono::milliseconds frame_timeout{500};
  /// For a transfer of several segments as a whole.
  std::chrono::milliseconds transfer_timeout{5000};
  /// After a time-out or a bad answer, counted from it: answers that come late are thrown away
  /// until then, and the next transfer with that node begins only then, unless it is urgent. A node
  /// that was seen to answer later than that gets more, see `SdoClient`. With 0 there is none: late
  /// answers are taken for others, and no node counts as silent.
  std::chrono::milliseconds quarantine{500};
  /// For room in a full transmit queue.
  std::chrono::milliseconds send_patience{20};
};

/// Expedited and segmented SDO transfers (CiA 301, 7.2.4.3), block transfers not.
///
/// Transfers block until they have ended. Nothing is ever sent twice: a request that got no answer
/// may have arrived. Not thread-safe: one transfer at a time.
///
/// SDO answers carry no number of their request. What is there before a request is sent is never
/// taken for its answer, nor is an answer about another object; but two answers about one object
/// cannot be told apart. So an answer that a node sends twice, the second time after the next
/// request for the same object, and one that comes later than time-out and quarantine together, may
/// be taken for that to the next request.
///
/// The first such answer that shows as late makes it rarer: one that is thrown away, less than 5 s
/// after a request about its object has timed out, is told to the observer (`late_answer`). The
/// quarantine is then as long as that answer was late, counted from the time-out, but 5 s at most,
/// or the `SdoTimes::quarantine` where that is longer. After 100 answers in time, each segment's
/// counted, it is as given again. Of several requests about one object that timed out, the first
/// without an answer counts. Where a later request about the object has got an answer before, that
/// may have been the late one: the text then says "perhaps".
///
/// Another client on the same node: an answer about another object, one to a segment that was not
/// asked for, and an answer to a first request while segments are awaited belong to it, or are
/// late. They are passed over, and the transfer goes on waiting for its own answer within the time
/// that began with its request. Once one was seen, the transfer sends no abort, which would end
/// that of the other client. Two segmented transfers at once on one node can still fail, or mix
/// their bytes: a node has only one (CiA 301, 7.2.4.3.1).
///
/// Answers of fewer than 8 bytes are taken when they hold all that they tell, and told to the
/// observer once (`short_answer`); an abort has 8. An abort about object 0x0000/0 refuses the
/// transfer under way.
///
/// Inside an `UrgentScope` a transfer does not wait for the end of a quarantine. An answer that
/// comes then about another object, of another command or of a segment is thrown away. Where it may
/// be that to the transfer which was given up, as this was of the same direction on the same object
/// or the answer is an abort, the transfer fails as a `bad_answer` with `outcome_unknown`.
class SdoClient {
 public:
  /// An upload of more bytes than this fails: a node that never ends one must not fill the memory.
  static constexpr std::size_t upload_limit = std::size_t{16} * 1024 * 1024;

  /// How long a quarantine gets that late answers have made longer: 5 s, or as given if that is
  /// more.
  static std::chrono::milliseconds longest_quarantine(const SdoTimes& times);

  /// A transfer that failed says why. No value: it succeeded.
  using Failure = std::optional<BusError>;

  /// Talks to the node `node_id`, 1 to 127, by its predefined COB-IDs. `observer`, which may be
  /// empty, is told of what does not end a transfer: `bus_warning` and `bus_fault`, with node 0, of
  /// states of the bus that show meanwhile, `late_answer` and `short_answer`. When `stopped` is
  /// given and set, from any thread, a transfer of several segments is given up before the next
  /// one, unless it is urgent; it outlives the client.
  SdoClient(CanChannel& channel, std::uint8_t node_id, SdoTimes times, BusObserver observer,
            const std::atomic<bool>* stopped = nullptr);

  /// Reads an object: its bytes are appended to `data`, any number, none included. After a failure
  /// `data` may hold a part of them.
  ///
  /// An answer that gives no size and is expedited counts as 4 bytes, a shorter one as those that
  /// it has.
  Failure upload(std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data);

  /// Writes an object: 1 to 4 bytes expedited, others segmented, with their size indicated. No
  /// bytes go as a segmented transfer of size 0 with one empty segment, as expedited ones cannot
  /// say 0.
  Failure download(std::uint16_t index, std::uint8_t sub_index,
                   const std::vector<std::uint8_t>& data);

  using Time = std::chrono::steady_clock::time_point;

  /// When the quarantine ends, by the time of the channel; long ago when there is none.
  Time quarantine_end() const;

  /// Until when an answer that is still due may come and be told from others: that to a request
  /// which timed out, or whose answer was taken for a late one. Long ago when none is due.
  Time late_answers_end() const;

  /// Throws away what has come since the last transfer, without waiting, where a late answer can be
  /// among it. That may put off both ends.
  void take_late_answers();

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
    /// When it began; only set where earlier transfers were given up.
    Time begun = Time::min();
    /// Set by the first answer that is waited for, and by segments.
    Time deadline = Time::max();
    /// The first request was answered, and further ones follow.
    bool in_segments = false;
    /// With the request that is sent now the node has all of a download.
    bool completes_download = false;
    /// The latest answer to somebody else's request that came in it.
    std::optional<CanFrame> others_answer;
  };

  /// Why a transfer was given up.
  enum class Reason : std::uint8_t {
    timed_out,
    /// Its answer may have been that to an earlier request, and its own still comes.
    uncertain,
    wrong_answer,
  };

  /// A transfer whose answer may come late.
  struct GivenUp {
    Transfer transfer;
    Reason reason = Reason::wrong_answer;
    Time since = Time::min();
    /// The late answer has come.
    bool is_answered = false;
    /// Another request for the same answer was sent since.
    bool is_repeated = false;
    /// Such a request has got an answer, which may have been the late one.
    bool is_doubtful = false;
  };

  /// For one answer.
  struct Wait {
    Time end = Time::min();
    /// It is the time of the whole transfer that ends then.
    bool ends_transfer = false;
  };

  Failure begin(Transfer& transfer, Direction direction, std::uint16_t index,
                std::uint8_t sub_index);
  bool drop_late_answers(bool waits);
  void forget_given_up(Time now);
  Time quarantine_end(const GivenUp& given_up) const;
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
  Failure await(Transfer& transfer, std::uint8_t expected, CanFrame& answer);
  Failure receive_until(const Transfer& transfer, Time now, const Wait& wait, CanFrame& answer);
  Wait wait_for_answer(Transfer& transfer, Time now) const;
  static bool is_for(const Transfer& transfer, const CanFrame& answer);
  bool is_for_another(const Transfer& transfer, std::uint8_t expected,
                      const CanFrame& answer) const;
  static bool asks_for_the_same(const Transfer& left, const Transfer& right);
  static bool is_due(const GivenUp& given_up, const CanFrame& frame);
  static bool can_answer(const Transfer& transfer, const CanFrame& frame);
  bool can_be_late(const Transfer& transfer, const CanFrame& answer) const;

  void pass_over(Transfer& transfer, const CanFrame& answer);
  void note_late(const CanFrame& frame);
  void tell_late(const GivenUp& asked, const CanFrame& frame, Time came);
  void note_repetition(const Transfer& transfer);
  void note_answer(const CanFrame& answer);
  void note_in_time(const CanFrame& answer);
  void note_status(CanStatus status);

  BusError refused(const Transfer& transfer, const CanFrame& answer) const;
  BusError unknown_command(const Transfer& transfer, const CanFrame& answer);
  BusError uncertain(const Transfer& transfer, const CanFrame& answer);
  BusError bad_answer(const Transfer& transfer, SdoAbort abort, const std::string& reason);
  BusError no_answer(const Transfer& transfer, bool of_whole_transfer);
  BusError lost_bus(const Transfer& transfer, CanStatus status);
  BusError not_sent(const Transfer& transfer, CanStatus status) const;
  BusError bus_fault(const Transfer& transfer, CanStatus status) const;
  BusError give_up(const Transfer& transfer, SdoAbort abort, BusErrorKind kind,
                   const std::string& reason);
  std::uint32_t send_abort(const Transfer& transfer, SdoAbort abort);
  void start_quarantine(const Transfer& transfer, Reason reason);
  BusError error(const Transfer& transfer, BusErrorKind kind, std::string reason) const;

  const std::uint8_t node_id_;
  const SdoTimes times_;
  const BusObserver observer_;
  const std::unique_ptr<CanEndpoint> endpoint_;
  const std::atomic<bool>* const stopped_;
  // In the order in which they were given up.
  std::vector<GivenUp> given_up_;
  // That of times_, or how late an answer was seen to come.
  std::chrono::milliseconds quarantine_;
  // Answers in time since the last late one.
  unsigned in_time_ = 0;
  unsigned timeouts_in_row_ = 0;
  // The endpoint was asked for times of arrival, which are needed from the first time-out on.
  bool notes_arrivals_ = false;
  bool told_short_answer_ = false;
};

}  // namespace velmora_can_bridge
