// What a claw's firmware makes of the extend command and of its drive's homing.
#pragma once

#include <chrono>
#include <cstdint>

#include "drive.hpp"

namespace velmora_can_bridge {

/// How long the claw takes to extend, from wherever it is.
inline constexpr std::chrono::milliseconds extend_time{1500};

/// Sub-index 1 of the homing record.
enum class ClawAction : std::uint8_t {
  /// Nothing was asked of the claw since it started.
  idle = 0,
  moving = 1,
  done = 2,
  /// The latest movement was refused, or did not come to its end.
  error = 3,
};

/// Sub-index 2 of the homing record.
enum class ClawPosition : std::uint8_t { unknown = 0, home = 1, extended = 2, between = 3 };

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
