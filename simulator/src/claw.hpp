// What a claw's firmware makes of the extend command and of its drive's homing.
#pragma once

#include <chrono>
#include <cstdint>

#include "drive.hpp"
#include "ground/drive_objects.hpp"

namespace velmora_can_bridge {

/// How long the claw takes to extend, from wherever it is.
inline constexpr std::chrono::milliseconds extend_time{1500};

/// A claw behind a drive. Knows the drive only by what it is shown of it.
class Claw {
 public:
  /// Starts to extend if the drive's operation is enabled, else ends in an error. While the claw
  /// moves already, that movement goes on and the command is ignored.
  void command(std::uint8_t value, const Drive& drive);

  /// Takes over what a command has changed in the drive: a homing that began or ended, an operation
  /// that is no longer enabled.
  void follow(const Drive& drive);

  /// Lets a millisecond pass, after the drive's. The claw does not extend while the drive is
  /// halted.
  void step(const Drive& drive);

  ClawAction action() const { return action_; }
  ClawPosition position() const { return position_; }

 private:
  void follow_homing(HomingState homing);

  ClawAction action_ = ClawAction::idle;
  ClawPosition position_ = ClawPosition::unknown;
  HomingState homing_ = HomingState::idle;
  std::chrono::milliseconds extend_left_{0};
};

}  // namespace velmora_can_bridge
