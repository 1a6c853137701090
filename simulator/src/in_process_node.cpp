#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {

InProcessNode::InProcessNode(InProcessBus& bus, SimulatedBusNode& node)
    : node_(&node),
      endpoint_(
          bus.open(node.filters(), [this](const CanFrame& frame, std::vector<CanFrame>& answers) {
            handle(frame, answers);
          })) {}

void InProcessNode::boot() {
  send([&] { node_->boot(frames_); });
}

void InProcessNode::tick(std::chrono::milliseconds elapsed) {
  send([&] { node_->tick(elapsed, frames_); });
}

/// Runs with the bus locked.
void InProcessNode::handle(const CanFrame& frame, std::vector<CanFrame>& answers) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (is_sending_) {
    node_->answer(frame, answers);
  } else {
    node_->receive(frame, answers);
  }
}

template <typename Collect>
void InProcessNode::send(const Collect& collect) {
  const std::lock_guard<std::mutex> sending(sending_mutex_);
  frames_.clear();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    collect();
    is_sending_ = true;
  }
  for (const CanFrame& frame : frames_) {
    endpoint_->send(frame, std::chrono::nanoseconds(0));
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  is_sending_ = false;
}

}  // namespace velmora_can_bridge
