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

/// Bits of the modes that the drive knows, bit 0 for mode 1 (CiA 402-2, object 0x6502).
inline constexpr std::uint32_t known_drive_modes = 0x2D;

/// What a drive does after a quick stop (CiA 402-2, object 0x605A). Those that limit current or
/// voltage are not known.
enum class QuickStopOption : std::int16_t {
  /// Stands at once and goes to Switch on disabled.
  disable_drive_function = 0,
  /// Slows down by the profile's deceleration, then goes to Switch on disabled.
  slow_down = 1,
  /// Slows down by the quick stop deceleration, then goes to Switch on disabled.
  quick_stop_ramp = 2,
  /// As the two above, but stays in Quick stop active until it is told to leave.
  slow_down_and_stay = 5,
  quick_stop_ramp_and_stay = 6,
};

/// Whether `code` is one of `QuickStopOption`.
bool is_quick_stop_option(std::int16_t code);

/// The homing method of a drive that was told none: home is where it is.
inline constexpr std::int8_t default_homing_method = 37;

/// Whether it is a homing method of the profile; 0 is none, and no homing can be made with it.
bool is_homing_method(std::int8_t method);

/// How long a homing takes, by whatever method.
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
  QuickStopOption quick_stop_option = QuickStopOption::quick_stop_ramp;
  std::int8_t homing_method = default_homing_method;
  /// The position of a drive at home.
  std::int32_t home_offset = 0;
};

/// What a drive shows, in the units of its inputs.
struct DriveOutputs {
  /// The latest fault's; 0 when there was none.
  std::uint16_t error_code = 0;
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
  /// the homing, which fails without a homing method, and a clear bit stops it; in profile position
  /// mode its rising edge takes the set-point. Bit 4 counts only in a drive whose operation was
  /// enabled before the word.
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

  /// The drive finds a fault with that error code: it stands at once, and is in Fault a millisecond
  /// later. One that has a fault keeps it.
  void inject_fault(std::uint16_t error_code);

  /// Stops as the command Quick stop does.
  void quick_stop();

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
  void step_quick_stop();
  bool stays_in_quick_stop() const;
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
  std::uint16_t error_code_ = 0;
  Axis axis_;
  std::optional<std::int32_t> set_point_;
  bool set_point_acknowledged_ = false;
  HomingState homing_ = HomingState::idle;
  std::chrono::milliseconds homing_left_{0};
};

}  // namespace velmora_can_bridge
