#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <thread>
#include <utility>

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds longest_poll = std::chrono::hours(1);

// For room in a full transmit queue: that of several frames on a slow bus.
constexpr milliseconds send_patience{5};

/// Each once: a socket of the kernel takes a limited number.
std::vector<CanFilter> all_filters(const std::vector<SimulatedBusNode*>& nodes) {
  std::map<std::pair<std::uint16_t, std::uint16_t>, CanFilter> all;
  for (const SimulatedBusNode* const node : nodes) {
    for (const CanFilter& filter : node->filters()) {
      all.emplace(std::pair(filter.id, filter.mask), filter);
    }
  }
  std::vector<CanFilter> filters;
  std::transform(all.begin(), all.end(), std::back_inserter(filters),
                 [](const auto& row) { return row.second; });
  return filters;
}

}  // namespace

SimulatedNodeServer::SimulatedNodeServer(CanChannel& channel, std::vector<SimulatedBusNode*> nodes)
    : nodes_(std::move(nodes)),
      endpoint_(channel.open(all_filters(nodes_))),
      ticked_until_(endpoint_->now()) {}

CanStatus SimulatedNodeServer::boot() {
  trouble_ = CanStatus::ok;
  for (SimulatedBusNode* const node : nodes_) {
    node->boot(frames_);
  }
  send_frames();
  return trouble_;
}

CanStatus SimulatedNodeServer::poll(milliseconds timeout) {
  trouble_ = CanStatus::ok;
  Time now = endpoint_->now();
  const Time end = now + std::clamp(timeout, milliseconds(0), longest_poll);
  bool goes_on = true;
  while (goes_on) {
    let_time_pass(now);
    const bool has_received =
        receive_one(std::clamp<nanoseconds>(end - now, nanoseconds(0), tick_interval));
    now = endpoint_->now();
    goes_on = has_received && now < end;
  }
  let_time_pass(now);
  return trouble_;
}

std::vector<std::uint8_t> SimulatedNodeServer::doubled_node_ids() const {
  std::vector<std::uint8_t> node_ids;
  for (const SimulatedBusNode* const node : nodes_) {
    if (node->is_doubled()) {
      node_ids.push_back(node->node_id());
    }
  }
  return node_ids;
}

void SimulatedNodeServer::let_time_pass(Time now) {
  const auto elapsed = std::chrono::duration_cast<milliseconds>(now - ticked_until_);
  if (elapsed < tick_interval) {
    return;
  }
  ticked_until_ += elapsed;
  for (SimulatedBusNode* const node : nodes_) {
    node->tick(elapsed, frames_);
  }
  send_frames();
}

/// False when it is of no use to go on: receives fail one after another. Otherwise a failure is
/// told once and then waited for, so that there is nothing to wait for here.
bool SimulatedNodeServer::receive_one(nanoseconds timeout) {
  CanFrame frame;
  const CanStatus status = endpoint_->receive(frame, timeout);
  if (status == CanStatus::ok) {
    dispatch(frame);
  }
  const bool fails = status != CanStatus::ok && status != CanStatus::timed_out;
  const bool fails_again = std::exchange(has_failed_, fails) && fails;
  if (fails) {
    trouble_ = status;
  }
  if (fails_again) {
    std::this_thread::sleep_for(tick_interval);
  }
  return !fails_again;
}

void SimulatedNodeServer::dispatch(const CanFrame& frame) {
  for (SimulatedBusNode* const node : nodes_) {
    node->receive(frame, frames_);
  }
  send_frames();
}

/// Waits for a full queue once, not for each frame.
void SimulatedNodeServer::send_frames() {
  nanoseconds patience = send_patience;
  for (const CanFrame& frame : frames_) {
    const CanStatus status = endpoint_->send(frame, patience);
    if (status != CanStatus::ok) {
      trouble_ = status;
      patience = nanoseconds(0);
    }
  }
  frames_.clear();
}

}  // namespace velmora_can_bridge
