#include "claw.hpp"

namespace velmora_can_bridge {

void Claw::command(std::uint8_t value, const Drive& drive) {
  if (value != extend_now || action_ == ClawAction::moving) {
    return;
  }
  if (!drive.is_enabled()) {
    action_ = ClawAction::error;
    return;
  }
  action_ = ClawAction::moving;
  position_ = ClawPosition::between;
  extend_left_ = extend_time;
}

void Claw::follow(const Drive& drive) {
  if (drive.homing() != homing_) {
    follow_homing(drive.homing());
  }
  if (extend_left_.count() > 0 && !drive.is_enabled()) {
    extend_left_ = {};
    action_ = ClawAction::error;
  }
}

void Claw::step(const Drive& drive) {
  follow(drive);
  if (extend_left_.count() == 0 || drive.is_halted()) {
    return;
  }
  --extend_left_;
  if (extend_left_.count() == 0) {
    action_ = ClawAction::done;
    position_ = ClawPosition::extended;
  }
}

/// A homing ends an extending, because both move the one claw.
void Claw::follow_homing(HomingState homing) {
  homing_ = homing;
  extend_left_ = {};
  switch (homing) {
    case HomingState::running:
      action_ = ClawAction::moving;
      position_ = ClawPosition::between;
      break;
    case HomingState::attained:
      action_ = ClawAction::done;
      position_ = ClawPosition::home;
      break;
    case HomingState::idle:
    case HomingState::failed:
      action_ = ClawAction::error;
      break;
  }
}

}  // namespace velmora_can_bridge
