// A CiA 402 drive without bus and objects: commands in, a millisecond at a time, what it shows out.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "axis.hpp"
#include "ground/drive_objects.hpp"
#include "power_state.hpp"

namespace velmora_can_bridge {

/// What a drive uses in place of a ramp or velocity object that holds 0.
inline constexpr std::uint32_t default_profile_velocity = 1000;
inline constexpr std::uint32_t default_acceleration = 1000;
inline constexpr std::uint32_t default_deceleration = 1000;
inline constexpr std::uint32_t default_quick_stop_deceleration = 5000;

/// How long a homing takes.
inline constexpr std::chrono::milliseconds homing_time{1000};

enum class HomingState : std::uint8_t {
  /// Never started, or stopped by the master before its end.
  idle,
  running,
  attained,
  /// Stopped by a fault.
  failed,
};

/// Targets and limits, as the objects hold them: in increments, increments/s, increments/s^2.
struct DriveInputs {
  std::int32_t target_position = 0;
  std::int32_t target_velocity = 0;
  std::int16_t target_torque = 0;
  std::uint32_t profile_velocity = 0;
  std::uint32_t profile_acceleration = 0;
  std::uint32_t profile_deceleration = 0;
  std::uint32_t quick_stop_deceleration = 0;
};

/// What a drive shows, in the units of its inputs.
struct DriveOutputs {
  std::uint16_t statusword = 0;
  std::int8_t mode_display = 0;
  std::int32_t position = 0;
  std::int32_t velocity = 0;
  std::int16_t torque = 0;
};

/// A drive that has passed its self-test: Switch on disabled, no mode, standing at position 0.
///
/// Moves in Operation enabled, and while it decelerates in Quick stop active; in every other state
/// it stands at once.
class Drive {
 public:
  /// The targets and limits from now on. A target position becomes a set-point only by
  /// `take_set_point` or bit 4 of the controlword.
  void set_inputs(const DriveInputs& inputs);

  /// Carries out the command of the word, then bit 4 of it: in homing mode its rising edge starts
  /// the homing and a clear bit stops it; in profile position mode its rising edge takes the
  /// set-point. Bit 4 counts only in a drive whose operation was enabled before the word.
  ///
  /// Edges are judged against the word before, whatever the state and mode were then. Bit 8 halts
  /// every motion for as long as it is set.
  void write_controlword(std::uint16_t controlword);

  /// Changes the mode at once, in any power state. A mode that the drive does not know changes
  /// nothing. Leaving a mode stops its homing and forgets its set-point.
  void write_mode(std::int8_t mode);

  /// Makes the target position the set-point. One that is taken before operation is enabled in
  /// profile position mode waits for that; it is forgotten when either is left.
  void take_set_point();

  /// The drive finds a fault: it stands at once, and is in Fault a millisecond later.
  void inject_fault();

  /// Lets a millisecond pass.
  void step();

  DriveOutputs outputs() const;
  HomingState homing() const { return homing_; }
  bool is_enabled() const { return state_ == DriveState::operation_enabled; }
  bool is_halted() const;
  bool has_fault() const;

 private:
  void change_state(PowerEvent event);
  void apply_start_bit(std::uint16_t previous);
  void stop_homing(HomingState outcome);
  void forget_set_point();
  void start_homing();
  void move();
  void move_by_mode();
  void advance_homing();
  void advance_state();
  Ramps ramps() const;
  bool stands_still() const { return axis_.velocity == 0; }
  bool is_target_reached() const;
  std::uint16_t mode_bits() const;

  DriveState state_ =
      next_power_state(DriveState::not_ready_to_switch_on, PowerEvent::self_test_passed);
  DriveMode mode_ = DriveMode::none;
  DriveInputs inputs_;
  std::uint16_t controlword_ = 0;
  Axis axis_;
  std::optional<std::int32_t> set_point_;
  bool set_point_acknowledged_ = false;
  HomingState homing_ = HomingState::idle;
  std::chrono::milliseconds homing_left_{0};
};

}  // namespace velmora_can_bridge
