#include "velmora_can_bridge/bus/restart_guard.hpp"

#include <utility>

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t all_nodes = 0;

bool concerns(std::uint8_t addressed, std::uint8_t node_id) {
  return addressed == all_nodes || addressed == node_id;
}

bool is_trouble(CanStatus bus) {
  return bus == CanStatus::interface_down || bus == CanStatus::interface_missing ||
         bus == CanStatus::bus_off || bus == CanStatus::failed;
}

bool is_reset(NmtCommand command) {
  return command == NmtCommand::reset_node || command == NmtCommand::reset_communication;
}

/// A reset asks for no state: what the node shows after it may be that of another restart.
std::optional<NmtState> asked_state(NmtCommand command) {
  switch (command) {
    case NmtCommand::start:
      return NmtState::operational;
    case NmtCommand::stop:
      return NmtState::stopped;
    case NmtCommand::enter_pre_operational:
      return NmtState::pre_operational;
    case NmtCommand::reset_node:
    case NmtCommand::reset_communication:
      return {};
  }
  return {};
}

}  // namespace

void RestartGuard::add(std::uint8_t node_id, CanOpenNodeController& controller) {
  add(node_id, [&controller] { controller.forget_rpdo_shadows(); });
}

void RestartGuard::add(std::uint8_t node_id, std::function<void()> forget) {
  const std::lock_guard<std::mutex> lock(mutex_);
  guarded_.push_back({node_id, std::move(forget)});
}

void RestartGuard::note(const NodeEvent& event) {
  if (event.kind == NodeEventKind::bus) {
    note(event.status);
  } else if (event.kind == NodeEventKind::frames_lost) {
    forget(all_nodes);
  } else if (is_node_id(event.node_id) && may_have_restarted(event)) {
    forget(event.node_id);
  }
}

void RestartGuard::note(CanStatus bus) {
  const bool is_bad = is_trouble(bus);
  if (!is_bad && bus != CanStatus::ok) {
    return;
  }
  bool was_bad = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    was_bad = std::exchange(is_bus_in_trouble_, is_bad);
  }
  if (is_bad || was_bad) {
    forget(all_nodes);
  }
}

std::optional<BusError> RestartGuard::send(NmtMaster& master, NmtCommand command,
                                           std::uint8_t node_id) {
  note(command, node_id);
  std::optional<BusError> error = master.send(command, node_id);
  if (is_reset(command)) {
    forget(node_id);
  }
  return error;
}

void RestartGuard::note(NmtCommand command, std::uint8_t node_id) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (std::uint8_t id = 1; id <= highest_node_id; ++id) {
      Node& node = nodes_.at(id);
      node.asked = concerns(node_id, id) ? asked_state(command) : node.asked;
    }
  }
  if (is_reset(command)) {
    forget(node_id);
  }
}

bool RestartGuard::may_have_restarted(const NodeEvent& event) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Node& node = nodes_.at(event.node_id);
  switch (event.kind) {
    case NodeEventKind::booted:
      node = {};
      return true;
    case NodeEventKind::lost:
      node = {};
      node.is_lost = true;
      return true;
    case NodeEventKind::state_changed: {
      const bool was_lost = std::exchange(node.is_lost, false);
      const bool was_asked = node.asked == event.state;
      if (was_asked) {
        node.asked.reset();
      }
      const bool is_start_state =
          event.state == NmtState::pre_operational || event.state == NmtState::stopped;
      return was_lost || (is_start_state && !was_asked);
    }
    case NodeEventKind::emergency:
    case NodeEventKind::bus:
    case NodeEventKind::frames_lost:
      return false;
  }
  return false;
}

void RestartGuard::forget(std::uint8_t node_id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const Guarded& guarded : guarded_) {
    if (concerns(node_id, guarded.node_id)) {
      guarded.forget();
    }
  }
}

}  // namespace velmora_can_bridge
