#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {
namespace {

/// Has the node hold its changes while this lives, also when an exception ends that.
class ChangesHeld {
 public:
  explicit ChangesHeld(SimulatedBusNode& node) : node_(&node) { node_->hold_changes(true); }
  ~ChangesHeld() { node_->hold_changes(false); }
  ChangesHeld(const ChangesHeld&) = delete;
  ChangesHeld(ChangesHeld&&) = delete;
  ChangesHeld& operator=(const ChangesHeld&) = delete;
  ChangesHeld& operator=(ChangesHeld&&) = delete;

 private:
  SimulatedBusNode* const node_;
};

}  // namespace

InProcessNode::InProcessNode(InProcessBus& bus, SimulatedBusNode& node)
    : node_(&node),
      endpoint_(
          bus.open(node.filters(), [this](const CanFrame& frame, std::vector<CanFrame>& answers) {
            node_->receive(frame, answers);
          })) {}

void InProcessNode::boot() {
  send([&] { node_->boot(frames_); });
}

void InProcessNode::tick(std::chrono::milliseconds elapsed) {
  send([&] { node_->tick(elapsed, frames_); });
}

template <typename Collect>
void InProcessNode::send(const Collect& collect) {
  const std::lock_guard<std::mutex> sending(sending_mutex_);
  frames_.clear();
  const ChangesHeld held(*node_);
  collect();
  for (const CanFrame& frame : frames_) {
    endpoint_->send(frame, std::chrono::nanoseconds(0));
  }
}

}  // namespace velmora_can_bridge
