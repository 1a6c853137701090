#include "velmora_can_bridge/bus/sdo_client.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "ground/longest_wait.hpp"
#include "ground/number_text.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/sdo_frames.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// More than any queue keeps for its reader, that of an `InProcessBus` included.
constexpr int stale_frame_limit = 1 << 18;
// The longest quarantine that late answers bring about.
constexpr milliseconds longest_learned_quarantine{5000};
// As many answers in time end it.
constexpr unsigned answers_until_trusted = 100;

std::uint16_t own_cob_id(std::uint16_t function, std::uint8_t node_id) {
  return static_cast<std::uint16_t>(function + node_id);
}

void append(std::vector<std::uint8_t>& data, const CanFrame& frame, std::size_t begin,
            std::size_t count) {
  const auto* const first = frame.data.data() + begin;
  data.insert(data.end(), first, first + count);
}

CanFrame upload_segment(std::uint8_t node_id, bool toggle) {
  const auto first_byte =
      static_cast<std::uint8_t>(sdo_upload_segment_request | (toggle ? sdo_toggle_bit : 0U));
  return {own_cob_id(sdo_request_cob_id, node_id), sdo_frame_length, {first_byte}};
}

/// The segment of `data` that begins at `begin`.
CanFrame download_segment(std::uint8_t node_id, bool toggle, const std::vector<std::uint8_t>& data,
                          std::size_t begin) {
  const std::size_t count = std::min(sdo_segment_bytes, data.size() - begin);
  const bool last = begin + count == data.size();
  const auto unused = static_cast<unsigned>(sdo_segment_bytes - count);
  CanFrame frame{own_cob_id(sdo_request_cob_id, node_id), sdo_frame_length, {}};
  frame.data[0] =
      static_cast<std::uint8_t>(sdo_download_segment_request | (toggle ? sdo_toggle_bit : 0U) |
                                (unused << 1U) | (last ? sdo_last_segment_bit : 0U));
  std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(begin), count, frame.data.begin() + 1);
  return frame;
}

SdoTimes bounded_times(const SdoTimes& times) {
  return {bounded(times.frame_timeout), bounded(times.transfer_timeout), bounded(times.quarantine),
          bounded(times.send_patience)};
}

std::string byte_count(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

/// What an answer has that does not hold what its first byte tells, if it has one.
std::string too_few_text(const CanFrame& answer) {
  const std::string count = byte_count(answer.length);
  return answer.length == 0 ? count : count + ", too few for the command " + hex<2>(answer.data[0]);
}

bool is_abort(const CanFrame& answer) { return sdo_command(answer) == sdo_abort_command; }

/// "answered", or the abort that the answer is.
std::string answer_text(const CanFrame& answer) {
  return is_abort(answer) ? sdo_abort_line(sdo_number(answer)) : "answered";
}

/// Whether the answer is one to a request for a segment, or with one: these name no object.
bool is_of_segment(const CanFrame& answer) {
  return sdo_command(answer) == sdo_upload_segment_answer ||
         sdo_command(answer) == sdo_download_segment_answer;
}

bool is_of_first_request(const CanFrame& answer) {
  return sdo_command(answer) == sdo_upload_answer || sdo_command(answer) == sdo_download_answer;
}

/// Servers that know of no transfer, or of no object, abort like this.
bool is_abort_of_no_object(const CanFrame& answer) {
  return is_abort(answer) && sdo_index(answer) == 0 && sdo_sub_index(answer) == 0;
}

/// What a frame is that somebody else has asked for.
std::string others_text(const CanFrame& frame) {
  if (frame.length != 0 && is_of_segment(frame)) {
    return "an answer to a segment that was not asked for";
  }
  if (frame.length < sdo_object_bytes) {
    return "a frame of " + byte_count(frame.length);
  }
  return (is_abort(frame) ? "an abort" : "an answer") + std::string(" about object ") +
         object_text(sdo_index(frame), sdo_sub_index(frame));
}

/// What two clients do to each other most often.
bool hints_at_another_client(std::uint32_t abort_code) {
  return abort_code == static_cast<std::uint32_t>(SdoAbort::unknown_command) ||
         abort_code == static_cast<std::uint32_t>(SdoAbort::toggle_not_alternated);
}

/// For the text of what two clients do to each other, where no answer to the other was seen.
std::string another_client_hint(bool is_seen) {
  return is_seen ? "" : "; perhaps another SDO client is talking to the node";
}

}  // namespace

SdoClient::SdoClient(CanChannel& channel, std::uint8_t node_id, SdoTimes times,
                     BusObserver observer, const std::atomic<bool>* stopped)
    : node_id_(node_id),
      times_(bounded_times(times)),
      observer_(observer ? std::move(observer) : [](const BusError& /*error*/) {}),
      endpoint_(channel.open({{own_cob_id(sdo_answer_cob_id, node_id)}})),
      stopped_(stopped),
      quarantine_(times_.quarantine) {}

SdoClient::Failure SdoClient::upload(std::uint16_t index, std::uint8_t sub_index,
                                     std::vector<std::uint8_t>& data) {
  Transfer transfer;
  if (Failure failure = begin(transfer, Direction::upload, index, sub_index)) {
    return failure;
  }
  CanFrame answer;
  if (Failure failure = initiate(transfer, sdo_upload_request, 0, sdo_upload_answer, answer)) {
    return failure;
  }
  if ((answer.data[0] & sdo_expedited_bit) == 0) {
    return upload_segments(transfer, answer, data);
  }
  append(data, answer, sdo_object_bytes, sdo_expedited_size(answer));
  return {};
}

SdoClient::Failure SdoClient::upload_segments(Transfer& transfer, const CanFrame& initiated,
                                              std::vector<std::uint8_t>& data) {
  const std::size_t before = data.size();
  const bool has_size = (initiated.data[0] & sdo_size_bit) != 0;
  CanFrame answer;
  for (bool toggle = false, last = false; !last; toggle = !toggle) {
    const CanFrame request = upload_segment(node_id_, toggle);
    if (Failure failure = segment(transfer, request, sdo_upload_segment_answer, answer)) {
      return failure;
    }
    append(data, answer, 1, sdo_segment_size(answer));
    last = (answer.data[0] & sdo_last_segment_bit) != 0;
    const std::size_t size = data.size() - before;
    if (size > upload_limit) {
      return bad_answer(transfer, SdoAbort::out_of_memory,
                        "sent more than " + byte_count(upload_limit));
    }
    if (!last && sdo_segment_size(answer) == 0) {
      return bad_answer(transfer, SdoAbort::wrong_length, "sent a segment of no bytes");
    }
    if (has_size && (last ? size != sdo_number(initiated) : size > sdo_number(initiated))) {
      return bad_answer(transfer, SdoAbort::wrong_length,
                        "sent " + byte_count(size) + " where it had announced " +
                            byte_count(sdo_number(initiated)));
    }
  }
  return {};
}

SdoClient::Failure SdoClient::download(std::uint16_t index, std::uint8_t sub_index,
                                       const std::vector<std::uint8_t>& data) {
  Transfer transfer;
  if (Failure failure = begin(transfer, Direction::download, index, sub_index)) {
    return failure;
  }
  const bool expedited = !data.empty() && data.size() <= sdo_expedited_bytes;
  return expedited ? download_expedited(transfer, data) : download_segments(transfer, data);
}

SdoClient::Failure SdoClient::download_expedited(Transfer& transfer,
                                                 const std::vector<std::uint8_t>& data) {
  const auto unused = static_cast<unsigned>(sdo_expedited_bytes - data.size());
  const auto command = static_cast<std::uint8_t>(sdo_download_request | (unused << 2U) |
                                                 sdo_expedited_bit | sdo_size_bit);
  CanFrame answer;
  transfer.completes_download = true;
  return initiate(transfer, command, sdo_number_of(data), sdo_download_answer, answer);
}

SdoClient::Failure SdoClient::download_segments(Transfer& transfer,
                                                const std::vector<std::uint8_t>& data) {
  CanFrame answer;
  if (Failure failure =
          initiate(transfer, sdo_download_request | sdo_size_bit,
                   static_cast<std::uint32_t>(data.size()), sdo_download_answer, answer)) {
    return failure;
  }
  std::size_t begin = 0;
  bool toggle = false;
  do {  // an empty download, too, has one segment
    const CanFrame request = download_segment(node_id_, toggle, data, begin);
    begin += sdo_segment_size(request);
    transfer.completes_download = begin == data.size();
    if (Failure failure = segment(transfer, request, sdo_download_segment_answer, answer)) {
      return failure;
    }
    toggle = !toggle;
  } while (begin < data.size());
  return {};
}

SdoClient::Time SdoClient::quarantine_end() const {
  Time end = Time::min();
  for (const GivenUp& given_up : given_up_) {
    end = std::max(end, quarantine_end(given_up));
  }
  return end;
}

SdoClient::Time SdoClient::quarantine_end(const GivenUp& given_up) const {
  const bool may_be_late = given_up.reason == Reason::timed_out && !given_up.is_answered;
  return given_up.since + (may_be_late ? quarantine_ : times_.quarantine);
}

SdoClient::Time SdoClient::late_answers_end() const {
  Time end = Time::min();
  for (const GivenUp& given_up : given_up_) {
    if (given_up.reason != Reason::wrong_answer && !given_up.is_answered) {
      end = std::max(end, quarantine_end(given_up));
    }
  }
  return end;
}

milliseconds SdoClient::longest_quarantine(const SdoTimes& times) {
  return std::max(longest_learned_quarantine, bounded(times.quarantine));
}

void SdoClient::take_late_answers() {
  if (!given_up_.empty()) {
    static_cast<void>(drop_late_answers(false));
  }
}

SdoClient::Failure SdoClient::begin(Transfer& transfer, Direction direction, std::uint16_t index,
                                    std::uint8_t sub_index) {
  transfer.direction = direction;
  transfer.index = index;
  transfer.sub_index = sub_index;
  if (!drop_late_answers(!UrgentScope::is_active())) {
    return error(transfer, BusErrorKind::bad_answer,
                 "sends answers that nobody asked for faster than they can be thrown away; "
                 "nothing was requested");
  }
  if (!given_up_.empty()) {
    transfer.begun = endpoint_->now();
    forget_given_up(transfer.begun);
    transfer.in_quarantine = quarantine_end() > transfer.begun;
    note_repetition(transfer);
  }
  return {};
}

/// Nothing that came before the request can be its answer: late answers to a transfer that was
/// given up, those to other clients, and frames that came twice. False: there is no end to them.
bool SdoClient::drop_late_answers(bool waits) {
  CanFrame late;
  for (int dropped = 0; dropped < stale_frame_limit; ++dropped) {
    // Looked up again each time, as a late answer may put it off.
    const Time end = waits ? quarantine_end() : Time::min();
    const nanoseconds left = end == Time::min() ? nanoseconds(0) : end - endpoint_->now();
    const CanStatus status = endpoint_->receive(late, std::max(left, nanoseconds(0)));
    if (status == CanStatus::ok) {
      timeouts_in_row_ = 0;
      note_late(late);
    } else if (status != CanStatus::timed_out) {
      note_status(status);
    }
    // A kernel that lags behind may end a wait early.
    const bool is_over =
        status == CanStatus::timed_out && (end == Time::min() || end <= endpoint_->now());
    if (is_over || status == CanStatus::failed) {
      return true;  // what failed would be refused again; the transfer itself shows it
    }
  }
  return false;
}

/// Those in quarantine are kept, and those whose late answer would tell how long one has to be.
void SdoClient::forget_given_up(Time now) {
  const auto is_over = [&](const GivenUp& given_up) {
    const bool can_teach =
        !given_up.is_answered && now < given_up.since + longest_learned_quarantine;
    return quarantine_end(given_up) <= now && !can_teach;
  };
  given_up_.erase(std::remove_if(given_up_.begin(), given_up_.end(), is_over), given_up_.end());
}

/// The first request of a transfer, with four bytes of value or size, and its answer.
SdoClient::Failure SdoClient::initiate(Transfer& transfer, std::uint8_t command,
                                       std::uint32_t number, std::uint8_t expected,
                                       CanFrame& answer) {
  CanFrame request = sdo_frame(own_cob_id(sdo_request_cob_id, node_id_), command, transfer.index,
                               transfer.sub_index);
  set_sdo_number(request, number);
  if (Failure failure = exchange(transfer, request, expected, answer)) {
    return failure;
  }
  return sdo_command(answer) == expected ? Failure() : unknown_command(transfer, answer);
}

/// A further request of a transfer and its answer.
SdoClient::Failure SdoClient::segment(Transfer& transfer, const CanFrame& request,
                                      std::uint8_t expected, CanFrame& answer) {
  if (stopped_ != nullptr && stopped_->load() && !UrgentScope::is_active()) {
    return give_up(transfer, SdoAbort::general_error, BusErrorKind::stopped, "stopped");
  }
  transfer.in_segments = true;
  if (Failure failure = exchange(transfer, request, expected, answer)) {
    return failure;
  }
  if (sdo_command(answer) != expected) {
    return unknown_command(transfer, answer);
  }
  if (((answer.data[0] ^ request.data[0]) & sdo_toggle_bit) != 0) {
    return bad_answer(
        transfer, SdoAbort::toggle_not_alternated,
        "answered a segment out of turn" + another_client_hint(transfer.others_answer.has_value()));
  }
  return {};
}

/// Sends a request and waits for its answer, which is no abort and holds all that it tells.
SdoClient::Failure SdoClient::exchange(Transfer& transfer, const CanFrame& request,
                                       std::uint8_t expected, CanFrame& answer) {
  const CanStatus sent = endpoint_->send(request, times_.send_patience);
  if (sent != CanStatus::ok) {
    return not_sent(transfer, sent);
  }
  if (Failure failure = await(transfer, expected, answer)) {
    return failure;
  }
  note_answer(answer);
  if (transfer.in_quarantine && can_be_late(transfer, answer)) {
    return uncertain(transfer, answer);
  }
  if (answer.length < sdo_answer_length(answer)) {
    return bad_answer(transfer, SdoAbort::unknown_command, "answered with " + too_few_text(answer));
  }
  note_in_time(answer);
  return is_abort(answer) ? Failure(refused(transfer, answer)) : Failure();
}

/// Waits for an answer to the request under way, and passes over those to others.
SdoClient::Failure SdoClient::await(Transfer& transfer, std::uint8_t expected, CanFrame& answer) {
  // An answer that came at once, and mostly is all, is not worth a look at the clock.
  if (!transfer.in_segments && endpoint_->has_frame() &&
      endpoint_->receive(answer, nanoseconds(0)) == CanStatus::ok) {
    timeouts_in_row_ = 0;
    if (!is_for_another(transfer, expected, answer)) {
      return {};
    }
    pass_over(transfer, answer);
  }
  Time now = endpoint_->now();
  const Wait wait = wait_for_answer(transfer, now);
  // When the time is over what has come is still taken, as the answer may stand behind others: no
  // more than that, however fast others go on.
  for (int overdue = 0; overdue < stale_frame_limit; overdue += now < wait.end ? 0 : 1) {
    if (Failure failure = receive_until(transfer, now, wait, answer)) {
      return failure;
    }
    if (!is_for_another(transfer, expected, answer)) {
      return {};
    }
    pass_over(transfer, answer);
    now = endpoint_->now();
  }
  return no_answer(transfer, wait.ends_transfer);
}

/// Until when the next answer is waited for.
SdoClient::Wait SdoClient::wait_for_answer(Transfer& transfer, Time now) const {
  // Counted from the first request, or when that was answered at once, from the next.
  transfer.deadline = std::min(transfer.deadline, now + times_.transfer_timeout);
  const Time end = now + times_.frame_timeout;
  return {std::min(end, transfer.deadline), transfer.deadline < end};
}

SdoClient::Failure SdoClient::receive_until(const Transfer& transfer, Time now, const Wait& wait,
                                            CanFrame& answer) {
  if (now > transfer.deadline) {
    // However many answers are there already: a node that never ends a transfer must not hold it.
    return no_answer(transfer, true);
  }
  const auto left = [&](Time time) {
    return std::max<nanoseconds>(wait.end - time, nanoseconds(0));
  };
  CanStatus status = endpoint_->receive(answer, left(now));
  while (status == CanStatus::error_passive) {
    note_status(status);
    status = endpoint_->receive(answer, left(endpoint_->now()));
  }
  if (status == CanStatus::ok) {
    timeouts_in_row_ = 0;
    return {};
  }
  return status == CanStatus::timed_out ? no_answer(transfer, wait.ends_transfer)
                                        : lost_bus(transfer, status);
}

bool SdoClient::is_for(const Transfer& transfer, const CanFrame& answer) {
  return sdo_index(answer) == transfer.index && sdo_sub_index(answer) == transfer.sub_index;
}

/// Whether the frame is the answer to the request of another client, or to an earlier one. In a
/// quarantine all that breaks the protocol counts as such, too.
bool SdoClient::is_for_another(const Transfer& transfer, std::uint8_t expected,
                               const CanFrame& answer) const {
  const bool is_sound = answer.length >= sdo_answer_length(answer) &&
                        (is_abort(answer) || sdo_command(answer) == expected);
  if (transfer.in_quarantine && !is_sound) {
    return true;
  }
  if (answer.length == 0 || is_abort_of_no_object(answer)) {
    return false;
  }
  if (is_of_segment(answer)) {
    return !transfer.in_segments;
  }
  if (transfer.in_segments && is_of_first_request(answer)) {
    return true;
  }
  if (answer.length < sdo_object_bytes || (transfer.in_segments && !is_abort(answer))) {
    return false;  // it names no object
  }
  const bool is_late =
      sdo_command(answer) != expected && !is_abort(answer) &&
      std::any_of(given_up_.begin(), given_up_.end(),
                  [&](const GivenUp& given_up) { return is_due(given_up, answer); });
  return is_late || !is_for(transfer, answer);
}

bool SdoClient::asks_for_the_same(const Transfer& left, const Transfer& right) {
  return left.direction == right.direction && left.index == right.index &&
         left.sub_index == right.sub_index && left.in_segments == right.in_segments;
}

/// Whether the frame can be the late answer to a request that timed out.
bool SdoClient::is_due(const GivenUp& given_up, const CanFrame& frame) {
  return given_up.reason == Reason::timed_out && !given_up.is_answered &&
         can_answer(given_up.transfer, frame);
}

/// Whether the frame can be the answer that the transfer was waiting for.
bool SdoClient::can_answer(const Transfer& transfer, const CanFrame& frame) {
  if (frame.length < sdo_answer_length(frame)) {
    return false;
  }
  if (is_abort(frame)) {
    return is_abort_of_no_object(frame) || is_for(transfer, frame);
  }
  const bool is_upload = transfer.direction == Direction::upload;
  if (transfer.in_segments) {
    return sdo_command(frame) ==
           (is_upload ? sdo_upload_segment_answer : sdo_download_segment_answer);
  }
  return sdo_command(frame) == (is_upload ? sdo_upload_answer : sdo_download_answer) &&
         is_for(transfer, frame);
}

/// Whether an answer can as well be the late one to a transfer that is in quarantine.
bool SdoClient::can_be_late(const Transfer& transfer, const CanFrame& answer) const {
  return is_abort(answer) ||
         std::any_of(given_up_.begin(), given_up_.end(), [&](const GivenUp& given_up) {
           return quarantine_end(given_up) > transfer.begun &&
                  can_answer(given_up.transfer, answer);
         });
}

void SdoClient::pass_over(Transfer& transfer, const CanFrame& answer) {
  transfer.others_answer = answer;
  note_late(answer);
}

/// Looks whether a frame that is thrown away is the late answer to a request that timed out, and
/// remembers how late.
void SdoClient::note_late(const CanFrame& frame) {
  const auto asked = std::find_if(given_up_.begin(), given_up_.end(), [&](const GivenUp& given_up) {
    return given_up.reason != Reason::wrong_answer && !given_up.is_answered &&
           can_answer(given_up.transfer, frame);
  });
  if (asked == given_up_.end()) {
    return;
  }
  asked->is_answered = true;
  if (asked->reason == Reason::timed_out) {
    tell_late(*asked, frame, endpoint_->arrival().time);
  }
}

void SdoClient::tell_late(const GivenUp& asked, const CanFrame& frame, Time came) {
  const auto late = std::chrono::ceil<milliseconds>(came - asked.since);
  Transfer transfer = asked.transfer;
  const bool is_done = transfer.completes_download && !is_abort(frame) && !asked.is_repeated &&
                       came <= quarantine_end(asked);
  transfer.completes_download = false;
  transfer.others_answer.reset();
  BusError error = this->error(transfer, BusErrorKind::late_answer, "");
  error.lateness = std::max(late, milliseconds(0));
  error.abort_code = is_abort(frame) ? sdo_number(frame) : 0;
  error.text = (asked.is_doubtful ? "perhaps " : "") + answer_text(frame) +
               (is_abort(frame) ? ", " : " ") + std::to_string(error.lateness.count()) +
               " ms after the time-out" + (is_done ? ": the node has taken the value" : "") +
               (asked.is_doubtful ? "; the next request may have got its answer" : "");
  in_time_ = 0;
  quarantine_ = std::max(quarantine_, std::min(error.lateness, longest_learned_quarantine));
  observer_(error);
}

/// From now on an answer to it can be one to the new request.
void SdoClient::note_repetition(const Transfer& transfer) {
  for (GivenUp& given_up : given_up_) {
    const Transfer& other = given_up.transfer;
    const bool is_same_object =
        other.index == transfer.index && other.sub_index == transfer.sub_index;
    given_up.is_repeated =
        given_up.is_repeated || (is_same_object && other.direction == transfer.direction);
  }
}

/// The answer is taken for that to the transfer under way, and may be a late one all the same.
void SdoClient::note_answer(const CanFrame& answer) {
  const auto asked = std::find_if(given_up_.begin(), given_up_.end(), [&](const GivenUp& given_up) {
    return is_due(given_up, answer) && !given_up.is_doubtful;
  });
  if (asked != given_up_.end()) {
    asked->is_doubtful = true;
  }
}

void SdoClient::note_in_time(const CanFrame& answer) {
  if (quarantine_ > times_.quarantine && ++in_time_ == answers_until_trusted) {
    quarantine_ = times_.quarantine;
  }
  if (answer.length < sdo_frame_length && !told_short_answer_) {
    told_short_answer_ = true;
    BusError error;
    error.kind = BusErrorKind::short_answer;
    error.node_id = node_id_;
    error.text = "answers with " + byte_count(answer.length) +
                 " instead of 8: against the standard, but they hold all that is needed";
    observer_(error);
  }
}

/// A state of the bus that showed and did not end a transfer.
void SdoClient::note_status(CanStatus status) {
  BusError error;
  error.kind =
      status == CanStatus::error_passive ? BusErrorKind::bus_warning : BusErrorKind::bus_fault;
  error.status = status;
  error.text = endpoint_->explain(status);
  observer_(error);
}

BusError SdoClient::refused(const Transfer& transfer, const CanFrame& answer) const {
  const std::uint32_t code = sdo_number(answer);
  Transfer undone = transfer;
  undone.completes_download = false;
  BusError error = this->error(
      undone, BusErrorKind::refused,
      sdo_abort_line(code) + (hints_at_another_client(code) ? another_client_hint(false) : ""));
  error.abort_code = code;
  return error;
}

BusError SdoClient::unknown_command(const Transfer& transfer, const CanFrame& answer) {
  return bad_answer(transfer, SdoAbort::unknown_command,
                    "answered with the command " + hex<2>(answer.data[0]) +
                        another_client_hint(transfer.others_answer.has_value()));
}

BusError SdoClient::uncertain(const Transfer& transfer, const CanFrame& answer) {
  BusError error =
      this->error(transfer, BusErrorKind::bad_answer,
                  answer_text(answer) + ", perhaps to the request before that timed out");
  error.outcome_unknown = true;
  if (!transfer.completes_download) {
    error.abort_code = send_abort(transfer, SdoAbort::general_error);
  }
  start_quarantine(transfer, Reason::uncertain);
  return error;
}

BusError SdoClient::bad_answer(const Transfer& transfer, SdoAbort abort,
                               const std::string& reason) {
  return give_up(transfer, abort, BusErrorKind::bad_answer, reason);
}

BusError SdoClient::no_answer(const Transfer& transfer, bool of_whole_transfer) {
  if (endpoint_->state() == CanStatus::bus_off) {
    return lost_bus(transfer, CanStatus::bus_off);
  }
  ++timeouts_in_row_;
  const auto waited = of_whole_transfer ? times_.transfer_timeout : times_.frame_timeout;
  return give_up(transfer, SdoAbort::timed_out, BusErrorKind::no_answer,
                 (of_whole_transfer ? "not done within " : "no answer within ") +
                     std::to_string(waited.count()) + " ms");
}

BusError SdoClient::lost_bus(const Transfer& transfer, CanStatus status) {
  timeouts_in_row_ = 0;  // it is the bus that failed
  start_quarantine(transfer, Reason::wrong_answer);
  return bus_fault(transfer, status);
}

BusError SdoClient::not_sent(const Transfer& transfer, CanStatus status) const {
  Transfer unsent = transfer;
  unsent.completes_download = false;
  return bus_fault(unsent, status);
}

BusError SdoClient::bus_fault(const Transfer& transfer, CanStatus status) const {
  BusError error = this->error(transfer, BusErrorKind::bus_fault, endpoint_->explain(status));
  error.status = status;
  return error;
}

/// Tells the node that the transfer is over, and distrusts what comes from it for a while.
BusError SdoClient::give_up(const Transfer& transfer, SdoAbort abort, BusErrorKind kind,
                            const std::string& reason) {
  BusError error = this->error(transfer, kind, reason);
  error.abort_code = send_abort(transfer, abort);
  start_quarantine(transfer,
                   kind == BusErrorKind::no_answer ? Reason::timed_out : Reason::wrong_answer);
  return error;
}

/// Returns the code, 0 when nothing was to be sent.
std::uint32_t SdoClient::send_abort(const Transfer& transfer, SdoAbort abort) {
  if (transfer.others_answer) {
    return 0;  // it would end the transfer of the other client
  }
  const auto code = static_cast<std::uint32_t>(abort);
  CanFrame frame = sdo_frame(own_cob_id(sdo_request_cob_id, node_id_), sdo_abort_command,
                             transfer.index, transfer.sub_index);
  set_sdo_number(frame, code);
  // The transfer has failed anyway; a node that misses the abort drops it with the next request.
  static_cast<void>(endpoint_->send(frame, nanoseconds(0)));
  return code;
}

void SdoClient::start_quarantine(const Transfer& transfer, Reason reason) {
  if (times_.quarantine == milliseconds(0)) {
    return;
  }
  if (reason == Reason::timed_out && !std::exchange(notes_arrivals_, true)) {
    endpoint_->note_arrivals();
  }
  const GivenUp given_up{transfer, reason, endpoint_->now()};
  const auto is_same = [&](const GivenUp& other) {
    return other.reason == reason && !other.is_answered &&
           asks_for_the_same(other.transfer, transfer);
  };
  // The first one and the latest of the same are kept, so that repetitions take no memory.
  const auto first = std::find_if(given_up_.begin(), given_up_.end(), is_same);
  const auto second =
      first == given_up_.end() ? first : std::find_if(first + 1, given_up_.end(), is_same);
  if (second != given_up_.end()) {
    given_up_.erase(second);
  }
  given_up_.push_back(given_up);
}

BusError SdoClient::error(const Transfer& transfer, BusErrorKind kind, std::string reason) const {
  BusError error;
  error.kind = kind;
  error.node_id = node_id_;
  error.index = transfer.index;
  error.sub_index = transfer.sub_index;
  error.outcome_unknown = transfer.completes_download;
  error.text = std::move(reason);
  if (transfer.others_answer && kind != BusErrorKind::refused) {
    error.text += "; meanwhile came " + others_text(*transfer.others_answer) +
                  ", that of another SDO client or a late one";
  }
  if (error.outcome_unknown) {
    error.text += "; whether the node has taken the value is unknown";
  }
  return error;
}

}  // namespace velmora_can_bridge
