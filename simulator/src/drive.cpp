#include "drive.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace velmora_can_bridge {
namespace {

// Bits of the controlword.
constexpr unsigned start_bit = 0x0010;
constexpr unsigned halt_bit = 0x0100;

// Bits of the statusword beside those of the power state.
constexpr unsigned voltage_enabled = 0x0010;
constexpr unsigned remote = 0x0200;
constexpr unsigned target_reached = 0x0400;
constexpr unsigned mode_specific = 0x1000;
constexpr unsigned mode_error = 0x2000;

constexpr DriveMode modes[] = {DriveMode::profile_position, DriveMode::profile_velocity,
                               DriveMode::profile_torque, DriveMode::homing};

/// 0 asks for no change (CiA 402, object 0x6060), so it is none of the modes that can be set.
std::optional<DriveMode> known_mode(std::int8_t number) {
  const auto* const found =
      std::find(std::begin(modes), std::end(modes), static_cast<DriveMode>(number));
  return found == std::end(modes) ? std::nullopt : std::make_optional(*found);
}

constexpr QuickStopOption quick_stop_options[] = {
    QuickStopOption::disable_drive_function, QuickStopOption::slow_down,
    QuickStopOption::quick_stop_ramp, QuickStopOption::slow_down_and_stay,
    QuickStopOption::quick_stop_ramp_and_stay};

// CiA 402-2, object 0x6098.
constexpr std::int8_t no_homing = 0;
constexpr std::int8_t highest_homing_method = 37;
constexpr std::int8_t reserved_homing_methods[] = {15, 16, 31, 32, 36};

std::uint32_t or_default(std::uint32_t value, std::uint32_t instead_of_0) {
  return value == 0 ? instead_of_0 : value;
}

}  // namespace

bool is_quick_stop_option(std::int16_t code) {
  return std::find(std::begin(quick_stop_options), std::end(quick_stop_options),
                   static_cast<QuickStopOption>(code)) != std::end(quick_stop_options);
}

bool is_homing_method(std::int8_t method) {
  return method >= no_homing && method <= highest_homing_method &&
         std::find(std::begin(reserved_homing_methods), std::end(reserved_homing_methods),
                   method) == std::end(reserved_homing_methods);
}

void Drive::set_inputs(const DriveInputs& inputs) { inputs_ = inputs; }

void Drive::write_controlword(std::uint16_t controlword) {
  const std::uint16_t previous = std::exchange(controlword_, controlword);
  const bool was_enabled = is_enabled();
  if (const std::optional<PowerEvent> command = power_command(controlword, previous)) {
    change_state(*command);
  }
  if (was_enabled && is_enabled()) {
    apply_start_bit(previous);
  }
}

void Drive::write_mode(std::int8_t mode) {
  const std::optional<DriveMode> known = known_mode(mode);
  if (!known || *known == mode_) {
    return;
  }
  if (mode_ == DriveMode::profile_position) {
    forget_set_point();
  }
  stop_homing(HomingState::idle);
  mode_ = *known;
}

void Drive::take_set_point() { set_point_ = inputs_.target_position; }

void Drive::inject_fault(std::uint16_t error_code) {
  if (!has_fault()) {
    error_code_ = error_code;
  }
  change_state(PowerEvent::fault_detected);
}

void Drive::quick_stop() { change_state(PowerEvent::quick_stop); }

void Drive::step() {
  move();
  advance_homing();
  advance_state();
}

DriveOutputs Drive::outputs() const {
  const unsigned statusword = power_state_bits(state_) | voltage_enabled | remote | mode_bits();
  const bool gives_torque = is_enabled() && mode_ == DriveMode::profile_torque && !is_halted();
  return {error_code_,
          static_cast<std::uint16_t>(statusword),
          static_cast<std::int8_t>(mode_),
          position_of(axis_),
          velocity_of(axis_),
          gives_torque ? inputs_.target_torque : std::int16_t{0}};
}

bool Drive::is_halted() const { return (controlword_ & halt_bit) != 0; }

bool Drive::has_fault() const {
  return state_ == DriveState::fault_reaction_active || state_ == DriveState::fault;
}

void Drive::change_state(PowerEvent event) {
  const bool is_held = state_ == DriveState::quick_stop_active &&
                       event == PowerEvent::enable_operation && !stays_in_quick_stop();
  if (is_held) {
    return;
  }
  const bool was_enabled = is_enabled();
  state_ = next_power_state(state_, event);
  if (was_enabled && !is_enabled()) {
    stop_homing(event == PowerEvent::fault_detected ? HomingState::failed : HomingState::idle);
    forget_set_point();
  }
  if (!is_enabled() && state_ != DriveState::quick_stop_active) {
    axis_.velocity = 0;
  }
}

/// Bit 4 of the controlword, which means something in two modes.
void Drive::apply_start_bit(std::uint16_t previous) {
  const bool is_set = (controlword_ & start_bit) != 0;
  const bool rises = is_set && (previous & start_bit) == 0;
  if (!is_set) {
    set_point_acknowledged_ = false;
    stop_homing(HomingState::idle);
  }
  if (rises && mode_ == DriveMode::homing) {
    start_homing();
  }
  if (rises && mode_ == DriveMode::profile_position) {
    take_set_point();
    set_point_acknowledged_ = true;
  }
}

void Drive::start_homing() {
  homing_ = inputs_.homing_method == no_homing ? HomingState::failed : HomingState::running;
  homing_left_ = homing_time;
}

void Drive::stop_homing(HomingState outcome) {
  if (homing_ == HomingState::running) {
    homing_ = outcome;
  }
}

void Drive::forget_set_point() {
  set_point_.reset();
  set_point_acknowledged_ = false;
}

void Drive::move() {
  if (is_enabled()) {
    move_by_mode();
  } else if (state_ == DriveState::quick_stop_active) {
    step_quick_stop();
  }
}

void Drive::step_quick_stop() {
  const std::uint32_t deceleration =
      or_default(inputs_.quick_stop_deceleration, default_quick_stop_deceleration);
  switch (inputs_.quick_stop_option) {
    case QuickStopOption::disable_drive_function:
      axis_.velocity = 0;
      break;
    case QuickStopOption::slow_down:
    case QuickStopOption::slow_down_and_stay:
      axis_ = step_to_velocity(axis_, 0, ramps());
      break;
    case QuickStopOption::quick_stop_ramp:
    case QuickStopOption::quick_stop_ramp_and_stay:
      axis_ = step_to_velocity(axis_, 0, {deceleration, deceleration});
      break;
  }
}

bool Drive::stays_in_quick_stop() const {
  return inputs_.quick_stop_option == QuickStopOption::slow_down_and_stay ||
         inputs_.quick_stop_option == QuickStopOption::quick_stop_ramp_and_stay;
}

void Drive::move_by_mode() {
  const bool follows_set_point = mode_ == DriveMode::profile_position && set_point_ && !is_halted();
  if (follows_set_point) {
    const std::uint32_t limit = or_default(inputs_.profile_velocity, default_profile_velocity);
    axis_ = step_to_position(axis_, *set_point_, {limit, ramps()});
    return;
  }
  const bool follows_velocity = mode_ == DriveMode::profile_velocity && !is_halted();
  axis_ = step_to_velocity(axis_, follows_velocity ? inputs_.target_velocity : 0, ramps());
}

void Drive::advance_homing() {
  if (homing_ != HomingState::running || is_halted()) {
    return;
  }
  --homing_left_;
  if (homing_left_.count() == 0) {
    homing_ = HomingState::attained;
    axis_ = axis_at(inputs_.home_offset);
  }
}

/// The transitions that a drive makes by itself.
void Drive::advance_state() {
  if (state_ == DriveState::quick_stop_active && stands_still() && !stays_in_quick_stop()) {
    change_state(PowerEvent::standstill);
  }
  if (state_ == DriveState::fault_reaction_active) {
    change_state(PowerEvent::fault_reaction_ended);
  }
}

Ramps Drive::ramps() const {
  return {or_default(inputs_.profile_acceleration, default_acceleration),
          or_default(inputs_.profile_deceleration, default_deceleration)};
}

bool Drive::is_target_reached() const {
  if (is_halted()) {
    return mode_ != DriveMode::none && stands_still();
  }
  switch (mode_) {
    case DriveMode::none:
      return false;
    case DriveMode::profile_position:
      return set_point_ ? rests_at(axis_, *set_point_) : stands_still();
    case DriveMode::profile_velocity:
      return runs_at(axis_, inputs_.target_velocity);
    case DriveMode::profile_torque:
      return true;
    case DriveMode::homing:
      return homing_ != HomingState::running && stands_still();
  }
  return false;
}

/// Bits 10, 12 and 13 of the statusword, clear unless operation is enabled.
std::uint16_t Drive::mode_bits() const {
  if (!is_enabled()) {
    return 0;
  }
  const bool is_homing_mode = mode_ == DriveMode::homing;
  const bool sets_mode_specific = (is_homing_mode && homing_ == HomingState::attained) ||
                                  (mode_ == DriveMode::profile_velocity && stands_still()) ||
                                  set_point_acknowledged_;
  const bool sets_error = is_homing_mode && homing_ == HomingState::failed;
  const unsigned bits = (is_target_reached() ? target_reached : 0U) |
                        (sets_mode_specific ? mode_specific : 0U) | (sets_error ? mode_error : 0U);
  return static_cast<std::uint16_t>(bits);
}

}  // namespace velmora_can_bridge
