#include "velmora_can_bridge/bus/network_management.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "can_frame_checks.hpp"
#include "ground/little_endian.hpp"
#include "ground/longest_wait.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds send_patience{20};
// A poll without time takes no more frames than this, as many as an endpoint of a bus keeps.
constexpr std::size_t frames_without_time = InProcessBus::queue_limit;
// Between two events that tell of lost frames.
constexpr milliseconds loss_interval{100};

}  // namespace

NmtMaster::NmtMaster(CanChannel& channel) : endpoint_(channel.open({})) {}

std::optional<BusError> NmtMaster::send(NmtCommand command, std::uint8_t node_id) {
  BusError error;
  error.node_id = node_id;
  if (node_id > highest_node_id) {
    error.kind = BusErrorKind::not_configured;
    error.text = no_node_id_text(node_id) + ", nor 0 for all";
    return error;
  }
  const CanFrame frame{nmt_cob_id, 2, {static_cast<std::uint8_t>(command), node_id}};
  const CanStatus status = endpoint_->send(frame, send_patience);
  if (status == CanStatus::ok) {
    return {};
  }
  error.kind = BusErrorKind::bus_fault;
  error.status = status;
  error.text = endpoint_->explain(status);
  return error;
}

NodeWatch::NodeWatch(CanChannel& channel, milliseconds heartbeat_timeout, Observer observer)
    : heartbeat_timeout_(bounded(heartbeat_timeout)),
      observer_(observer ? std::move(observer) : [](const NodeEvent& /*event*/) {}),
      endpoint_(
          channel.open({{heartbeat_cob_id, function_mask}, {emergency_cob_id, function_mask}})) {
  endpoint_->note_arrivals();
}

void NodeWatch::poll(milliseconds timeout) {
  const Time start = endpoint_->now();
  if (timeout > milliseconds(0)) {
    poll_until(start + bounded(timeout));
  } else {
    take_what_came_by(start);
  }
  tell_losses();
}

void NodeWatch::poll_until(Time end) {
  for (Time now = endpoint_->now(); now < end; now = endpoint_->now()) {
    take_next(now, wait_limit(now, end));
  }
}

/// What the system has refused once it would refuse as often as it is asked.
void NodeWatch::take_what_came_by(Time start) {
  for (std::size_t taken = 0; taken < frames_without_time; ++taken) {
    const CanStatus status = take_next(start, nanoseconds(0));
    const bool is_all = status == CanStatus::timed_out || status == CanStatus::failed;
    if (is_all || (status == CanStatus::ok && last_arrival_.time > start)) {
      return;
    }
  }
}

/// Receives once, beginning at `now`, and handles what that tells.
CanStatus NodeWatch::take_next(Time now, nanoseconds wait) {
  CanFrame frame;
  const CanStatus status = endpoint_->receive(frame, wait);
  if (status == CanStatus::ok) {
    take(frame, endpoint_->arrival());
  } else if (status == CanStatus::timed_out) {
    // Nothing waited at the end of the wait. A look at the clock would be too late, as a heartbeat
    // may have come since; it only tells a wait that a coarse clock has cut short.
    const bool is_whole = wait > nanoseconds(0) && endpoint_->now() >= now + wait;
    const Time known = is_whole ? now + wait : now;
    note_losses(endpoint_->arrival().lost, known);
    find_lost(known);
  } else {
    tell_bus(status);
  }
  return status;
}

void NodeWatch::take(const CanFrame& frame, const CanArrival& arrival) {
  constexpr Time::duration moment{1};
  last_arrival_.time = arrival.time;
  if (is_in_trouble_) {
    tell_bus(CanStatus::ok);
  }
  note_losses(arrival.lost, arrival.time);
  // Whatever came before this frame was taken. Other heartbeats may have come with it and wait.
  find_lost(arrival.time - moment);
  const std::uint8_t node_id = node_id_of(frame.id);
  if (!is_node_id(node_id)) {
    return;  // 0x080 is SYNC
  }
  if ((frame.id & function_mask) == emergency_cob_id) {
    handle_emergency(node_id, frame);
  } else {
    handle_heartbeat(node_id, frame, arrival.time);
  }
}

/// What the system refuses it refuses again each time that it is asked: that is told once.
void NodeWatch::tell_bus(CanStatus status) {
  if (std::exchange(told_status_, status) == status && status == CanStatus::failed) {
    return;
  }
  is_in_trouble_ =
      status != CanStatus::ok && (is_in_trouble_ || status != CanStatus::error_passive);
  observer_({NodeEventKind::bus, 0, {}, {}, endpoint_->explain(status), status});
}

std::optional<NmtState> NodeWatch::state(std::uint8_t node_id) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_node_id(node_id) ? nodes_.at(node_id).state : std::nullopt;
}

void NodeWatch::handle_heartbeat(std::uint8_t node_id, const CanFrame& frame, Time came) {
  if (frame.length != 1) {
    return;
  }
  const auto state = heartbeat_state(frame.data[0]);
  std::optional<NmtState> before;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    Node& node = nodes_.at(node_id);
    before = std::exchange(node.state, state);
    node.seen = came;
    node.missed.reset();
    node.beats = state != NmtState::boot_up;
  }
  if (state == NmtState::boot_up) {
    observer_({NodeEventKind::booted, node_id, state, {}, node_text(node_id) + " has started"});
  } else if (before != state) {
    observer_({NodeEventKind::state_changed,
               node_id,
               state,
               {},
               node_text(node_id) + " is " + std::string(nmt_state_text(state))});
  }
}

void NodeWatch::handle_emergency(std::uint8_t node_id, const CanFrame& frame) {
  if (frame.length != frame.data.size()) {
    return;
  }
  const auto code = static_cast<std::uint16_t>(little_endian_number(frame.data.begin(), 2));
  const std::vector<std::uint8_t> device_data(frame.data.begin() + 3, frame.data.end());
  const std::string text = code == 0 ? " has no error any more" : " reports error " + hex<4>(code);
  observer_({NodeEventKind::emergency, node_id, state(node_id).value_or(NmtState::boot_up),
             frame.data,
             node_text(node_id) + text + ", error register " + hex<2>(frame.data[2]) + ", data " +
                 hex_bytes(device_data)});
}

/// `lost` is the endpoint's count, and `shown` the latest time at which the frames can have come.
void NodeWatch::note_losses(std::uint64_t lost, Time shown) {
  if (std::exchange(last_arrival_.lost, lost) == lost) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Node& node : nodes_) {
      node.missed = node.missed.value_or(shown);
    }
  }
  if (shown >= next_telling_) {
    next_telling_ = shown + loss_interval;
    tell_losses();
  }
}

/// Tells of losses that were not told of yet.
void NodeWatch::tell_losses() {
  const std::uint64_t lost = last_arrival_.lost;
  if (std::exchange(told_losses_, lost) == lost) {
    return;
  }
  observer_({NodeEventKind::frames_lost,
             0,
             {},
             {},
             "frames came faster than they were taken: " + std::to_string(lost) + " lost so far"});
}

/// Tells of nodes whose heartbeats have stayed away. Every frame that came up to `known` was taken.
void NodeWatch::find_lost(Time known) {
  if (heartbeat_timeout_ <= milliseconds(0)) {
    return;
  }
  // One after another: when the observer throws, the next poll tells of the others.
  for (std::uint8_t node_id = next_lost(known); node_id != 0; node_id = next_lost(known)) {
    observer_({NodeEventKind::lost,
               node_id,
               {},
               {},
               node_text(node_id) + " is lost: no heartbeat for " +
                   std::to_string(heartbeat_timeout_.count()) + " ms"});
  }
}

/// A node whose heartbeats have stayed away, which has no state from now on; 0 when there is none.
std::uint8_t NodeWatch::next_lost(Time known) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (std::uint8_t node_id = 1; node_id <= highest_node_id; ++node_id) {
    Node& node = nodes_.at(node_id);
    if (node.is_judged() && known - node.silent_since() >= heartbeat_timeout_) {
      node.state.reset();
      return node_id;
    }
  }
  return 0;
}

/// How long a receive may wait: until `end`, or until the next node may count as lost.
nanoseconds NodeWatch::wait_limit(Time now, Time end) const {
  Time next = end;
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const Node& node : nodes_) {
    if (node.is_judged() && heartbeat_timeout_ > milliseconds(0)) {
      next = std::min(next, node.silent_since() + heartbeat_timeout_);
    }
  }
  return std::max<nanoseconds>(next - now, nanoseconds(0));
}

}  // namespace velmora_can_bridge
