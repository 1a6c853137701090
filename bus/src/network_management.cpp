#include "velmora_can_bridge/bus/network_management.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "dispatch/hex_u16.hpp"
#include "longest_wait.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds send_patience{20};
// After its time a poll takes no more frames than this, however many keep coming.
constexpr int overtime_limit = 4096;
// Bit 7 belongs to node guarding, which alternates it.
constexpr std::uint8_t state_mask = 0x7F;

std::string node_text(std::uint8_t node_id) { return "node " + hex_u8(node_id); }

std::uint8_t node_of(const CanFrame& frame) {
  return static_cast<std::uint8_t>(frame.id & highest_node_id);
}

}  // namespace

NmtMaster::NmtMaster(CanChannel& channel) : endpoint_(channel.open({})) {}

std::optional<BusError> NmtMaster::send(NmtCommand command, std::uint8_t node_id) {
  BusError error;
  error.node_id = node_id;
  if (node_id > highest_node_id) {
    error.kind = BusErrorKind::not_configured;
    error.text = "node id " + std::to_string(node_id) + " is not one of 1 to 127, nor 0 for all";
    return error;
  }
  const CanFrame frame{nmt_cob_id, 2, {static_cast<std::uint8_t>(command), node_id}};
  const CanStatus status = endpoint_->send(frame, send_patience);
  if (status == CanStatus::ok) {
    return {};
  }
  error.kind = BusErrorKind::bus_fault;
  error.text = endpoint_->explain(status);
  return error;
}

NodeWatch::NodeWatch(CanChannel& channel, milliseconds heartbeat_timeout, Observer observer)
    : heartbeat_timeout_(bounded(heartbeat_timeout)),
      observer_(observer ? std::move(observer) : [](const NodeEvent& /*event*/) {}),
      endpoint_(
          channel.open({{heartbeat_cob_id, function_mask}, {emergency_cob_id, function_mask}})) {}

void NodeWatch::poll(milliseconds timeout) {
  const Time end = endpoint_->now() + bounded(timeout);
  for (int overtime = 0; overtime < overtime_limit;) {
    CanFrame frame;
    const CanStatus status = endpoint_->receive(frame, wait_limit(end));
    if (status == CanStatus::ok) {
      handle(frame);
    } else if (status != CanStatus::timed_out) {
      observer_({NodeEventKind::bus, 0, {}, {}, endpoint_->explain(status)});
    }
    if (status == CanStatus::timed_out) {
      // Not before: the heartbeats of other nodes may still wait to be received.
      find_lost();
    }
    if (endpoint_->now() >= end) {
      overtime = status == CanStatus::timed_out ? overtime_limit : overtime + 1;
    }
  }
}

std::optional<NmtState> NodeWatch::state(std::uint8_t node_id) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_node_id(node_id) ? nodes_.at(node_id).state : std::nullopt;
}

void NodeWatch::handle(const CanFrame& frame) {
  const std::uint8_t node_id = node_of(frame);
  if (!is_node_id(node_id)) {
    return;  // 0x080 is SYNC
  }
  if ((frame.id & function_mask) == emergency_cob_id) {
    handle_emergency(node_id, frame);
  } else {
    handle_heartbeat(node_id, frame);
  }
}

void NodeWatch::handle_heartbeat(std::uint8_t node_id, const CanFrame& frame) {
  if (frame.length != 1) {
    return;
  }
  const auto state = NmtState{static_cast<std::uint8_t>(frame.data[0] & state_mask)};
  std::optional<NmtState> before;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    Node& node = nodes_.at(node_id);
    before = std::exchange(node.state, state);
    node.seen = endpoint_->now();
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
  const auto code = static_cast<std::uint16_t>(frame.data[0] | (frame.data[1] << 8U));
  const std::vector<std::uint8_t> device_data(frame.data.begin() + 3, frame.data.end());
  const std::string text = code == 0 ? " has no error any more" : " reports error " + hex_u16(code);
  observer_({NodeEventKind::emergency, node_id, state(node_id).value_or(NmtState::boot_up),
             frame.data,
             node_text(node_id) + text + ", error register " + hex_u8(frame.data[2]) + ", data " +
                 hex_bytes(device_data)});
}

/// Tells of nodes whose heartbeats have stayed away.
void NodeWatch::find_lost() {
  if (heartbeat_timeout_ <= milliseconds(0)) {
    return;
  }
  const Time now = endpoint_->now();
  std::vector<std::uint8_t> lost;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (std::uint8_t node_id = 1; node_id <= highest_node_id; ++node_id) {
      Node& node = nodes_.at(node_id);
      if (node.state && node.beats && now - node.seen >= heartbeat_timeout_) {
        node.state.reset();
        lost.push_back(node_id);
      }
    }
  }
  for (const std::uint8_t node_id : lost) {
    observer_({NodeEventKind::lost,
               node_id,
               {},
               {},
               node_text(node_id) + " is lost: no heartbeat for " +
                   std::to_string(heartbeat_timeout_.count()) + " ms"});
  }
}

/// How long a receive may wait: until `end`, or until the next node may count as lost.
nanoseconds NodeWatch::wait_limit(Time end) const {
  Time next = end;
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const Node& node : nodes_) {
    if (node.state && node.beats && heartbeat_timeout_ > milliseconds(0)) {
      next = std::min(next, node.seen + heartbeat_timeout_);
    }
  }
  return std::max<nanoseconds>(next - endpoint_->now(), nanoseconds(0));
}

}  // namespace velmora_can_bridge
