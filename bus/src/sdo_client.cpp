#include "velmora_can_bridge/bus/sdo_client.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "dispatch/hex_u16.hpp"
#include "longest_wait.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/sdo_frames.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

// More than a socket keeps for its reader.
constexpr int stale_frame_limit = 4096;

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

/// "answered", or the abort that the answer is.
std::string answer_text(const CanFrame& answer) {
  return sdo_command(answer) == sdo_abort_command ? sdo_abort_line(sdo_number(answer)) : "answered";
}

std::string byte_count(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

SdoClient::SdoClient(CanChannel& channel, std::uint8_t node_id, SdoTimes times,
                     StatusObserver observer, const std::atomic<bool>* stopped)
    : node_id_(node_id),
      times_(bounded_times(times)),
      observer_(observer ? std::move(observer)
                         : [](CanStatus /*status*/, const std::string& /*text*/) {}),
      endpoint_(channel.open({{own_cob_id(sdo_answer_cob_id, node_id)}})),
      stopped_(stopped) {}

SdoClient::Failure SdoClient::upload(std::uint16_t index, std::uint8_t sub_index,
                                     std::vector<std::uint8_t>& data) {
  Transfer transfer = begin(Direction::upload, index, sub_index);
  CanFrame answer;
  if (Failure failure = initiate(transfer, sdo_upload_request, 0, sdo_upload_answer, answer)) {
    return failure;
  }
  if ((answer.data[0] & sdo_expedited_bit) == 0) {
    return upload_segments(transfer, answer, data);
  }
  append(data, answer, sdo_frame_length - sdo_expedited_bytes, sdo_expedited_size(answer));
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
  Transfer transfer = begin(Direction::download, index, sub_index);
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
    end = std::max(end, given_up.until);
  }
  return end;
}

SdoClient::Transfer SdoClient::begin(Direction direction, std::uint16_t index,
                                     std::uint8_t sub_index) {
  drop_late_answers(!UrgentScope::is_active());
  Transfer transfer;
  transfer.direction = direction;
  transfer.index = index;
  transfer.sub_index = sub_index;
  transfer.in_quarantine = !given_up_.empty();
  return transfer;
}

/// Nothing that came before the request can be its answer: late answers to a transfer that was
/// given up, and frames that came twice.
void SdoClient::drop_late_answers(bool waits) {
  const Time end = waits ? quarantine_end() : Time::min();
  CanFrame late;
  for (int dropped = 0; dropped < stale_frame_limit; ++dropped) {
    const nanoseconds left = end == Time::min() ? nanoseconds(0) : end - endpoint_->now();
    const CanStatus status = endpoint_->receive(late, std::max(left, nanoseconds(0)));
    if (status == CanStatus::timed_out) {
      break;
    }
    if (status == CanStatus::ok) {
      timeouts_in_row_ = 0;
    } else {
      observer_(status, endpoint_->explain(status));
    }
  }
  forget_given_up();
}

void SdoClient::forget_given_up() {
  if (given_up_.empty()) {
    return;
  }
  const Time now = endpoint_->now();
  given_up_.erase(std::remove_if(given_up_.begin(), given_up_.end(),
                                 [&](const GivenUp& given_up) { return given_up.until <= now; }),
                  given_up_.end());
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
  if (sdo_command(answer) != expected) {
    return unknown_command(transfer, answer);
  }
  return is_for(transfer, answer) ? Failure() : wrong_object(transfer, answer);
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
    return bad_answer(transfer, SdoAbort::toggle_not_alternated, "answered a segment out of turn");
  }
  return {};
}

/// Sends a request and waits for its answer, which is no abort and has the length of an answer.
SdoClient::Failure SdoClient::exchange(Transfer& transfer, const CanFrame& request,
                                       std::uint8_t expected, CanFrame& answer) {
  const CanStatus sent = endpoint_->send(request, times_.send_patience);
  if (sent != CanStatus::ok) {
    return not_sent(transfer, sent);
  }
  if (Failure failure = transfer.in_quarantine ? await_in_quarantine(transfer, expected, answer)
                                               : await(transfer, answer)) {
    return failure;
  }
  if (answer.length != sdo_frame_length) {
    return bad_answer(transfer, SdoAbort::unknown_command,
                      "answered with " + byte_count(answer.length) + " instead of 8");
  }
  if (sdo_command(answer) != sdo_abort_command) {
    return {};
  }
  return is_for(transfer, answer) ? refused(transfer, answer) : wrong_object(transfer, answer);
}

SdoClient::Failure SdoClient::await(Transfer& transfer, CanFrame& answer) {
  // An answer that came at once, and mostly is all, is not worth a look at the clock.
  if (!transfer.in_segments && endpoint_->has_frame() &&
      endpoint_->receive(answer, nanoseconds(0)) == CanStatus::ok) {
    timeouts_in_row_ = 0;
    return {};
  }
  const Time now = endpoint_->now();
  return receive_until(transfer, now, answer_end(transfer, now), answer);
}

/// As `await`, but passes over what belongs to another transfer.
SdoClient::Failure SdoClient::await_in_quarantine(Transfer& transfer, std::uint8_t expected,
                                                  CanFrame& answer) {
  Time now = endpoint_->now();
  const Time end = answer_end(transfer, now);
  do {
    if (Failure failure = receive_until(transfer, now, end, answer)) {
      return failure;
    }
    if (can_be_answer(transfer, expected, answer)) {
      return can_be_late(transfer, answer) ? uncertain(transfer, answer) : Failure();
    }
    now = endpoint_->now();
  } while (now < end);
  return no_answer(transfer, end);
}

/// Until when the next answer is waited for.
SdoClient::Time SdoClient::answer_end(Transfer& transfer, Time now) const {
  // Counted from the first request, or when that was answered at once, from the next.
  transfer.deadline = std::min(transfer.deadline, now + times_.transfer_timeout);
  return std::min(now + times_.frame_timeout, transfer.deadline);
}

SdoClient::Failure SdoClient::receive_until(const Transfer& transfer, Time now, Time end,
                                            CanFrame& answer) {
  if (now > transfer.deadline) {
    // However many answers are there already: a node that never ends a transfer must not hold it.
    return no_answer(transfer, end);
  }
  CanStatus status = endpoint_->receive(answer, std::max<nanoseconds>(end - now, nanoseconds(0)));
  while (status == CanStatus::error_passive) {
    observer_(status, endpoint_->explain(status));
    status =
        endpoint_->receive(answer, std::max<nanoseconds>(end - endpoint_->now(), nanoseconds(0)));
  }
  if (status == CanStatus::ok) {
    timeouts_in_row_ = 0;
    return {};
  }
  return status == CanStatus::timed_out ? no_answer(transfer, end) : lost_bus(transfer, status);
}

bool SdoClient::is_for(const Transfer& transfer, const CanFrame& answer) {
  return sdo_index(answer) == transfer.index && sdo_sub_index(answer) == transfer.sub_index;
}

/// Whether a frame that came in a quarantine can answer the request at all. Answers to segments
/// name no object.
bool SdoClient::can_be_answer(const Transfer& transfer, std::uint8_t expected,
                              const CanFrame& answer) {
  if (answer.length != sdo_frame_length) {
    return false;
  }
  const bool is_abort = sdo_command(answer) == sdo_abort_command;
  const bool names_object = is_abort || !transfer.in_segments;
  return (is_abort || sdo_command(answer) == expected) &&
         (!names_object || is_for(transfer, answer));
}

/// Whether such a frame can as well be the late answer to a transfer that was given up.
bool SdoClient::can_be_late(const Transfer& transfer, const CanFrame& answer) const {
  if (sdo_command(answer) == sdo_abort_command) {
    return true;
  }
  return std::any_of(given_up_.begin(), given_up_.end(), [&](const GivenUp& given_up) {
    const Transfer& other = given_up.transfer;
    const bool matches = transfer.in_segments ? other.in_segments : is_for(other, answer);
    return matches && other.direction == transfer.direction;
  });
}

BusError SdoClient::refused(const Transfer& transfer, const CanFrame& answer) const {
  const std::uint32_t code = sdo_number(answer);
  Transfer undone = transfer;
  undone.completes_download = false;
  BusError error = this->error(undone, BusErrorKind::refused, sdo_abort_line(code));
  error.abort_code = code;
  return error;
}

BusError SdoClient::unknown_command(const Transfer& transfer, const CanFrame& answer) {
  return bad_answer(transfer, SdoAbort::unknown_command,
                    "answered with the command " + hex_u8(answer.data[0]));
}

BusError SdoClient::wrong_object(const Transfer& transfer, const CanFrame& answer) {
  return bad_answer(transfer, SdoAbort::general_error,
                    answer_text(answer) + ", for object " +
                        object_text(sdo_index(answer), sdo_sub_index(answer)));
}

BusError SdoClient::uncertain(const Transfer& transfer, const CanFrame& answer) {
  BusError error =
      this->error(transfer, BusErrorKind::bad_answer,
                  answer_text(answer) + ", perhaps to the request before that timed out");
  error.outcome_unknown = true;
  if (!transfer.completes_download) {
    error.abort_code = static_cast<std::uint32_t>(SdoAbort::general_error);
    send_abort(transfer, SdoAbort::general_error);
  }
  start_quarantine(transfer);
  return error;
}

BusError SdoClient::bad_answer(const Transfer& transfer, SdoAbort abort,
                               const std::string& reason) {
  return give_up(transfer, abort, BusErrorKind::bad_answer, reason);
}

BusError SdoClient::no_answer(const Transfer& transfer, Time end) {
  if (endpoint_->state() == CanStatus::bus_off) {
    return lost_bus(transfer, CanStatus::bus_off);
  }
  ++timeouts_in_row_;
  // Where both times are over together, one answer is what was waited for.
  const bool whole = end == transfer.deadline &&
                     (transfer.in_segments || times_.transfer_timeout < times_.frame_timeout);
  const auto waited = whole ? times_.transfer_timeout : times_.frame_timeout;
  return give_up(
      transfer, SdoAbort::timed_out, BusErrorKind::no_answer,
      (whole ? "not done within " : "no answer within ") + std::to_string(waited.count()) + " ms");
}

BusError SdoClient::lost_bus(const Transfer& transfer, CanStatus status) {
  timeouts_in_row_ = 0;  // it is the bus that failed
  start_quarantine(transfer);
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
  error.abort_code = static_cast<std::uint32_t>(abort);
  send_abort(transfer, abort);
  start_quarantine(transfer);
  return error;
}

void SdoClient::send_abort(const Transfer& transfer, SdoAbort abort) {
  CanFrame frame = sdo_frame(own_cob_id(sdo_request_cob_id, node_id_), sdo_abort_command,
                             transfer.index, transfer.sub_index);
  set_sdo_number(frame, static_cast<std::uint32_t>(abort));
  // The transfer has failed anyway; a node that misses the abort drops it with the next request.
  static_cast<void>(endpoint_->send(frame, nanoseconds(0)));
}

void SdoClient::start_quarantine(const Transfer& transfer) {
  const auto same = std::find_if(given_up_.begin(), given_up_.end(), [&](const GivenUp& given_up) {
    const Transfer& other = given_up.transfer;
    return other.direction == transfer.direction && other.index == transfer.index &&
           other.sub_index == transfer.sub_index && other.in_segments == transfer.in_segments;
  });
  const Time until = endpoint_->now() + times_.quarantine;
  if (same != given_up_.end()) {
    same->until = until;
  } else {
    given_up_.push_back({transfer, until});
  }
}

BusError SdoClient::error(const Transfer& transfer, BusErrorKind kind, std::string reason) const {
  BusError error;
  error.kind = kind;
  error.node_id = node_id_;
  error.index = transfer.index;
  error.sub_index = transfer.sub_index;
  error.outcome_unknown = transfer.completes_download;
  error.text = std::move(reason);
  if (error.outcome_unknown) {
    error.text += "; whether the node has taken the value is unknown";
  }
  return error;
}

}  // namespace velmora_can_bridge
