#include "drive.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace velmora_can_bridge {
namespace {

constexpr std::uint16_t shutdown = 0x06;
constexpr std::uint16_t switch_on = 0x07;
constexpr std::uint16_t enable = 0x0F;
constexpr std::uint16_t enable_and_start = 0x1F;
constexpr std::uint16_t enable_and_halt = 0x10F;
constexpr std::uint16_t disable_voltage = 0x00;
constexpr std::uint16_t quick_stop = 0x02;
constexpr std::uint16_t fault_reset = 0x80;

constexpr std::uint16_t power_bits = 0x6F;
constexpr std::uint16_t target_reached = 0x0400;
constexpr std::uint16_t mode_specific = 0x1000;
constexpr std::uint16_t mode_error = 0x2000;

constexpr std::uint16_t overheated = 0x4210;

constexpr std::int8_t position_mode = 1;
constexpr std::int8_t velocity_mode = 3;
constexpr std::int8_t torque_mode = 4;
constexpr std::int8_t homing_mode = 6;

void step(Drive& drive, std::int64_t milliseconds) {
  for (; milliseconds > 0; --milliseconds) {
    drive.step();
  }
}

std::uint16_t power_of(const Drive& drive) {
  return static_cast<std::uint16_t>(drive.outputs().statusword & power_bits);
}

bool shows(const Drive& drive, std::uint16_t bits) {
  return (drive.outputs().statusword & bits) == bits;
}

bool shows_any(const Drive& drive, std::uint16_t bits) {
  return (drive.outputs().statusword & bits) != 0;
}

void enable_operation(Drive& drive) {
  drive.write_controlword(shutdown);
  drive.write_controlword(enable);
}

Drive enabled_drive(std::int8_t mode, const DriveInputs& inputs = {}) {
  Drive drive;
  drive.set_inputs(inputs);
  drive.write_mode(mode);
  enable_operation(drive);
  return drive;
}

DriveInputs velocity_inputs(std::int32_t target) {
  DriveInputs inputs;
  inputs.target_velocity = target;
  inputs.profile_acceleration = 1000;
  inputs.profile_deceleration = 500;
  inputs.quick_stop_deceleration = 2000;
  return inputs;
}

DriveInputs position_inputs(std::int32_t target) {
  DriveInputs inputs;
  inputs.target_position = target;
  inputs.profile_velocity = 100;
  inputs.profile_acceleration = 1000;
  inputs.profile_deceleration = 1000;
  return inputs;
}

/// A drive brought into the state over the shortest way; at speed where the state allows it.
Drive drive_in(DriveState state) {
  Drive drive;
  drive.set_inputs(velocity_inputs(100));
  drive.write_mode(velocity_mode);
  if (state == DriveState::switch_on_disabled) {
    return drive;
  }
  drive.write_controlword(shutdown);
  if (state == DriveState::ready_to_switch_on) {
    return drive;
  }
  drive.write_controlword(switch_on);
  if (state == DriveState::switched_on) {
    return drive;
  }
  drive.write_controlword(enable);
  step(drive, 100);
  if (state == DriveState::quick_stop_active) {
    drive.write_controlword(quick_stop);
  }
  if (state == DriveState::fault_reaction_active || state == DriveState::fault) {
    drive.inject_fault(overheated);
  }
  if (state == DriveState::fault) {
    drive.step();
  }
  return drive;
}

struct ControlwordCase {
  std::string name;
  DriveState state;
  std::uint16_t statusword;  // the bits of the power state, as what is expected below
  std::uint16_t after_shutdown;
  std::uint16_t after_switch_on;
  std::uint16_t after_enable;
  std::uint16_t after_disable_voltage;
  std::uint16_t after_quick_stop;
  std::uint16_t after_fault_reset;
};

void PrintTo(const ControlwordCase& row, std::ostream* out) { *out << row.name; }

class ControlwordTest : public testing::TestWithParam<ControlwordCase> {
 protected:
  static std::uint16_t after(std::uint16_t controlword) {
    Drive drive = drive_in(GetParam().state);
    drive.write_controlword(controlword);
    return power_of(drive);
  }
};

TEST_P(ControlwordTest, leads_to_the_statusword_of_the_profile) {
  const ControlwordCase& row = GetParam();

  EXPECT_EQ(power_of(drive_in(row.state)), row.statusword);
  EXPECT_EQ(after(shutdown), row.after_shutdown);
  EXPECT_EQ(after(switch_on), row.after_switch_on);
  EXPECT_EQ(after(enable), row.after_enable);
  EXPECT_EQ(after(disable_voltage), row.after_disable_voltage);
  EXPECT_EQ(after(quick_stop), row.after_quick_stop);
  EXPECT_EQ(after(fault_reset), row.after_fault_reset);
}

INSTANTIATE_TEST_SUITE_P(
    all, ControlwordTest,
    testing::Values(ControlwordCase{"switch_on_disabled", DriveState::switch_on_disabled, 0x40,
                                    0x21, 0x40, 0x40, 0x40, 0x40, 0x40},
                    ControlwordCase{"ready_to_switch_on", DriveState::ready_to_switch_on, 0x21,
                                    0x21, 0x23, 0x27, 0x40, 0x40, 0x21},
                    ControlwordCase{"switched_on", DriveState::switched_on, 0x23, 0x21, 0x23, 0x27,
                                    0x40, 0x40, 0x23},
                    ControlwordCase{"operation_enabled", DriveState::operation_enabled, 0x27, 0x21,
                                    0x23, 0x27, 0x40, 0x07, 0x27},
                    ControlwordCase{"quick_stop_active", DriveState::quick_stop_active, 0x07, 0x07,
                                    0x07, 0x07, 0x40, 0x07, 0x07},
                    ControlwordCase{"fault_reaction_active", DriveState::fault_reaction_active,
                                    0x0F, 0x0F, 0x0F, 0x0F, 0x0F, 0x0F, 0x0F},
                    ControlwordCase{"fault", DriveState::fault, 0x08, 0x08, 0x08, 0x08, 0x08, 0x08,
                                    0x40}),
    [](const testing::TestParamInfo<ControlwordCase>& row) { return row.param.name; });

TEST(DriveTest, starts_in_switch_on_disabled_without_a_mode) {
  const DriveOutputs outputs = Drive().outputs();

  EXPECT_EQ(outputs.statusword, 0x0250);
  EXPECT_EQ(outputs.mode_display, 0);
  EXPECT_EQ(outputs.position, 0);
  EXPECT_EQ(outputs.velocity, 0);
  EXPECT_EQ(outputs.torque, 0);
}

TEST(DriveTest, statusword_says_voltage_enabled_and_remote_in_every_state) {
  for (const DriveState state :
       {DriveState::switch_on_disabled, DriveState::ready_to_switch_on, DriveState::switched_on,
        DriveState::operation_enabled, DriveState::quick_stop_active,
        DriveState::fault_reaction_active, DriveState::fault}) {
    EXPECT_TRUE(shows(drive_in(state), 0x0210)) << static_cast<int>(state);
  }
}

TEST(DriveTest, mode_bits_are_clear_unless_operation_is_enabled) {
  for (const DriveState state :
       {DriveState::switch_on_disabled, DriveState::ready_to_switch_on, DriveState::switched_on,
        DriveState::quick_stop_active, DriveState::fault_reaction_active, DriveState::fault}) {
    EXPECT_FALSE(shows_any(drive_in(state), 0x3400)) << static_cast<int>(state);
  }
}

TEST(DriveTest, enabling_twice_in_a_row_stays_enabled) {
  Drive drive = enabled_drive(velocity_mode);

  drive.write_controlword(enable);

  EXPECT_TRUE(drive.is_enabled());
}

// Faults

TEST(DriveFaultTest, ends_the_motion_at_once) {
  Drive drive = drive_in(DriveState::operation_enabled);
  ASSERT_EQ(drive.outputs().velocity, 100);

  drive.inject_fault(overheated);

  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_EQ(power_of(drive), 0x0F);
}

TEST(DriveFaultTest, reaction_ends_after_a_millisecond) {
  Drive drive;
  drive.inject_fault(overheated);
  drive.step();

  EXPECT_EQ(power_of(drive), 0x08);
}

TEST(DriveFaultTest, second_fault_changes_nothing) {
  Drive drive = drive_in(DriveState::fault);

  drive.inject_fault(overheated);

  EXPECT_EQ(power_of(drive), 0x08);
}

TEST(DriveFaultTest, reset_needs_a_rising_edge) {
  Drive drive = drive_in(DriveState::operation_enabled);
  drive.write_controlword(enable | fault_reset);  // the edge, while there is no fault
  drive.inject_fault(overheated);
  drive.step();

  drive.write_controlword(fault_reset);
  EXPECT_EQ(power_of(drive), 0x08);

  drive.write_controlword(0);
  EXPECT_EQ(power_of(drive), 0x08);

  drive.write_controlword(fault_reset);
  EXPECT_EQ(power_of(drive), 0x40);
}

TEST(DriveFaultTest, drive_can_be_enabled_again_after_the_reset) {
  Drive drive = drive_in(DriveState::fault);

  drive.write_controlword(fault_reset);
  enable_operation(drive);

  EXPECT_EQ(power_of(drive), 0x27);
}

// Modes

TEST(DriveModeTest, only_known_modes_are_taken) {
  for (int number = -128; number <= 127; ++number) {
    SCOPED_TRACE(number);
    const bool is_known = number == 1 || number == 3 || number == 4 || number == 6;
    Drive drive;
    drive.write_mode(velocity_mode);

    drive.write_mode(static_cast<std::int8_t>(number));

    EXPECT_EQ(drive.outputs().mode_display, is_known ? number : velocity_mode);
  }
}

TEST(DriveModeTest, zero_asks_for_no_change) {
  Drive drive = drive_in(DriveState::operation_enabled);
  const std::int32_t velocity = drive.outputs().velocity;

  drive.write_mode(0);
  step(drive, 100);

  EXPECT_EQ(drive.outputs().mode_display, velocity_mode);
  EXPECT_EQ(drive.outputs().velocity, velocity);
}

TEST(DriveModeTest, is_taken_in_every_power_state) {
  for (const DriveState state :
       {DriveState::switch_on_disabled, DriveState::operation_enabled, DriveState::fault}) {
    Drive drive = drive_in(state);

    drive.write_mode(torque_mode);

    EXPECT_EQ(drive.outputs().mode_display, torque_mode);
  }
}

TEST(DriveModeTest, without_a_mode_nothing_moves) {
  DriveInputs inputs = velocity_inputs(100);
  inputs.target_position = 50;
  inputs.target_torque = 7;
  Drive drive = enabled_drive(0, inputs);

  step(drive, 1000);

  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_EQ(drive.outputs().position, 0);
  EXPECT_EQ(drive.outputs().torque, 0);
  EXPECT_EQ(drive.outputs().statusword, 0x0237);
}

TEST(DriveModeTest, mode_without_velocity_slows_a_moving_drive_down) {
  for (const std::int8_t mode : {position_mode, torque_mode, homing_mode}) {
    SCOPED_TRACE(int{mode});
    Drive drive = drive_in(DriveState::operation_enabled);

    drive.write_mode(mode);
    step(drive, 100);

    EXPECT_EQ(drive.outputs().velocity, 50);
  }
}

// Profile velocity

TEST(DriveVelocityTest, follows_the_ramps) {
  Drive drive = enabled_drive(velocity_mode, velocity_inputs(100));
  std::vector<std::int32_t> velocities;

  for (int reading = 0; reading < 3; ++reading) {
    step(drive, 50);
    velocities.push_back(drive.outputs().velocity);
  }
  drive.set_inputs(velocity_inputs(0));
  for (int reading = 0; reading < 3; ++reading) {
    step(drive, 100);
    velocities.push_back(drive.outputs().velocity);
  }

  EXPECT_THAT(velocities, testing::ElementsAre(50, 100, 100, 50, 0, 0));
  // 5 increments up, 5 at full speed, 10 down.
  EXPECT_EQ(drive.outputs().position, 20);
}

TEST(DriveVelocityTest, uses_the_defaults_for_0) {
  DriveInputs inputs;
  inputs.target_velocity = 10'000;
  Drive drive = enabled_drive(velocity_mode, inputs);
  step(drive, 500);
  EXPECT_EQ(drive.outputs().velocity, 500);

  inputs.target_velocity = 0;
  drive.set_inputs(inputs);
  step(drive, 100);
  EXPECT_EQ(drive.outputs().velocity, 400);

  drive.write_controlword(quick_stop);
  step(drive, 10);
  EXPECT_EQ(drive.outputs().velocity, 350);
}

TEST(DriveVelocityTest, says_when_the_target_is_reached) {
  Drive drive = enabled_drive(velocity_mode, velocity_inputs(100));
  EXPECT_FALSE(shows_any(drive, target_reached));
  EXPECT_TRUE(shows(drive, mode_specific)) << "velocity is 0";

  step(drive, 99);
  EXPECT_FALSE(shows_any(drive, target_reached));
  EXPECT_FALSE(shows_any(drive, mode_specific));

  step(drive, 1);
  EXPECT_TRUE(shows(drive, target_reached));
  EXPECT_FALSE(shows_any(drive, mode_specific));
}

TEST(DriveVelocityTest, halt_slows_down_until_it_is_cleared) {
  Drive drive = drive_in(DriveState::operation_enabled);

  drive.write_controlword(enable_and_halt);
  step(drive, 100);
  EXPECT_EQ(drive.outputs().velocity, 50);
  EXPECT_FALSE(shows_any(drive, target_reached));

  step(drive, 100);
  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_TRUE(shows(drive, target_reached));

  drive.write_controlword(enable);
  step(drive, 100);
  EXPECT_EQ(drive.outputs().velocity, 100);
}

struct LeavingCase {
  std::string name;
  std::uint16_t controlword;
  std::uint16_t power;
};

void PrintTo(const LeavingCase& row, std::ostream* out) { *out << row.name; }

class LeavingOperationTest : public testing::TestWithParam<LeavingCase> {};

TEST_P(LeavingOperationTest, ends_the_motion_at_once) {
  Drive drive = drive_in(DriveState::operation_enabled);
  ASSERT_EQ(drive.outputs().velocity, 100);

  drive.write_controlword(GetParam().controlword);
  EXPECT_EQ(drive.outputs().velocity, 0);

  const std::int32_t position = drive.outputs().position;
  step(drive, 1000);
  EXPECT_EQ(drive.outputs().position, position);
  EXPECT_EQ(power_of(drive), GetParam().power);
}

INSTANTIATE_TEST_SUITE_P(all, LeavingOperationTest,
                         testing::Values(LeavingCase{"shutdown", shutdown, 0x21},
                                         LeavingCase{"disable_operation", switch_on, 0x23},
                                         LeavingCase{"disable_voltage", disable_voltage, 0x40}),
                         [](const testing::TestParamInfo<LeavingCase>& row) {
                           return row.param.name;
                         });

// Quick stop

TEST(DriveQuickStopTest, slows_down_before_it_disables) {
  Drive drive = drive_in(DriveState::operation_enabled);

  drive.write_controlword(quick_stop);
  EXPECT_EQ(drive.outputs().velocity, 100);

  step(drive, 49);
  EXPECT_EQ(drive.outputs().velocity, 2);
  EXPECT_EQ(power_of(drive), 0x07);

  step(drive, 1);
  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_EQ(power_of(drive), 0x40);
}

TEST(DriveQuickStopTest, standing_drive_disables_after_a_millisecond) {
  Drive drive = enabled_drive(velocity_mode);

  drive.write_controlword(quick_stop);
  EXPECT_EQ(power_of(drive), 0x07);

  drive.step();
  EXPECT_EQ(power_of(drive), 0x40);
}

TEST(DriveQuickStopTest, can_be_asked_for_without_a_controlword) {
  Drive drive = drive_in(DriveState::operation_enabled);

  drive.quick_stop();

  EXPECT_EQ(power_of(drive), 0x07);
}

struct QuickStopCase {
  std::string name;
  QuickStopOption option;
  /// Milliseconds until a drive of 100 increments/s stands.
  int duration;
  bool stays;
};

void PrintTo(const QuickStopCase& row, std::ostream* out) { *out << row.name; }

class QuickStopOptionTest : public testing::TestWithParam<QuickStopCase> {
 protected:
  QuickStopOptionTest() {
    inputs.quick_stop_option = GetParam().option;
    drive.set_inputs(inputs);
    drive.write_controlword(quick_stop);
  }

  DriveInputs inputs = velocity_inputs(100);
  Drive drive = drive_in(DriveState::operation_enabled);
};

TEST_P(QuickStopOptionTest, tells_how_the_drive_slows_down_and_where_it_ends) {
  EXPECT_EQ(drive.outputs().velocity, 100);
  step(drive, GetParam().duration - 1);
  EXPECT_EQ(power_of(drive), 0x07);

  step(drive, 1);
  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_EQ(power_of(drive), GetParam().stays ? 0x07 : 0x40);

  step(drive, 1000);
  EXPECT_EQ(power_of(drive), GetParam().stays ? 0x07 : 0x40);
}

TEST_P(QuickStopOptionTest, tells_whether_enabling_leads_out_of_it) {
  drive.write_controlword(enable);
  EXPECT_EQ(power_of(drive), GetParam().stays ? 0x27 : 0x07);

  step(drive, 1000);
  EXPECT_EQ(drive.outputs().velocity, GetParam().stays ? 100 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    with, QuickStopOptionTest,
    testing::Values(
        QuickStopCase{"disable_drive_function", QuickStopOption::disable_drive_function, 1, false},
        QuickStopCase{"slow_down", QuickStopOption::slow_down, 200, false},
        QuickStopCase{"quick_stop_ramp", QuickStopOption::quick_stop_ramp, 50, false},
        QuickStopCase{"slow_down_and_stay", QuickStopOption::slow_down_and_stay, 200, true},
        QuickStopCase{"quick_stop_ramp_and_stay", QuickStopOption::quick_stop_ramp_and_stay, 50,
                      true}),
    [](const testing::TestParamInfo<QuickStopCase>& row) { return row.param.name; });

TEST(DriveQuickStopTest, has_options_of_the_profile_without_limits_of_current_and_voltage) {
  std::vector<int> known;
  for (int code = -32768; code <= 32767; ++code) {
    if (is_quick_stop_option(static_cast<std::int16_t>(code))) {
      known.push_back(code);
    }
  }
  EXPECT_THAT(known, testing::ElementsAre(0, 1, 2, 5, 6));
}

TEST(DriveQuickStopTest, disable_voltage_ends_it_at_once) {
  Drive drive = drive_in(DriveState::quick_stop_active);

  drive.write_controlword(disable_voltage);

  EXPECT_EQ(drive.outputs().velocity, 0);
}

TEST(DriveQuickStopTest, fault_ends_it_at_once) {
  Drive drive = drive_in(DriveState::quick_stop_active);

  drive.inject_fault(overheated);

  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_EQ(power_of(drive), 0x0F);
}

// Faults

TEST(DriveFaultTest, code_stays_when_the_fault_is_reset_and_goes_with_the_next_fault) {
  Drive drive;
  EXPECT_EQ(drive.outputs().error_code, 0);

  drive.inject_fault(overheated);
  drive.inject_fault(0x1000);
  EXPECT_EQ(drive.outputs().error_code, overheated);

  drive.step();
  drive.write_controlword(0x80);
  EXPECT_EQ(drive.outputs().error_code, overheated);

  drive.inject_fault(0x1000);
  EXPECT_EQ(drive.outputs().error_code, 0x1000);
}

// Profile position

TEST(DrivePositionTest, new_set_point_is_followed_at_once) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));

  drive.take_set_point();
  EXPECT_FALSE(shows_any(drive, target_reached));

  step(drive, 200);
  EXPECT_EQ(drive.outputs().position, 15);
  EXPECT_EQ(drive.outputs().velocity, 100);

  step(drive, 99);
  EXPECT_FALSE(shows_any(drive, target_reached));

  step(drive, 1);
  EXPECT_EQ(drive.outputs().position, 20);
  EXPECT_TRUE(shows(drive, target_reached));
}

TEST(DrivePositionTest, later_set_point_replaces_one_on_the_way) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));
  drive.take_set_point();
  step(drive, 150);

  drive.set_inputs(position_inputs(-5));
  drive.take_set_point();
  step(drive, 2000);

  EXPECT_EQ(drive.outputs().position, -5);
}

TEST(DrivePositionTest, uses_the_defaults_for_0) {
  DriveInputs inputs;
  inputs.target_position = 1500;
  Drive drive = enabled_drive(position_mode, inputs);
  drive.take_set_point();

  step(drive, 1000);
  EXPECT_EQ(drive.outputs().velocity, 1000);
  EXPECT_EQ(drive.outputs().position, 500);

  step(drive, 1500);
  EXPECT_EQ(drive.outputs().position, 1500);
  EXPECT_EQ(drive.outputs().velocity, 0);
}

TEST(DrivePositionTest, target_that_nobody_made_a_set_point_is_not_followed) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));

  step(drive, 1000);

  EXPECT_EQ(drive.outputs().position, 0);
  EXPECT_TRUE(shows(drive, target_reached));
}

TEST(DrivePositionTest, rising_start_bit_takes_the_set_point) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));

  drive.write_controlword(enable_and_start);
  EXPECT_TRUE(shows(drive, mode_specific)) << "set-point acknowledge";

  step(drive, 300);
  EXPECT_EQ(drive.outputs().position, 20);

  drive.write_controlword(enable);
  EXPECT_FALSE(shows_any(drive, mode_specific));
}

TEST(DrivePositionTest, held_start_bit_takes_nothing) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));
  drive.write_controlword(enable_and_start);

  drive.set_inputs(position_inputs(5));
  drive.write_controlword(enable_and_start);
  step(drive, 1000);

  EXPECT_EQ(drive.outputs().position, 20);
}

TEST(DrivePositionTest, set_point_waits_for_operation_enabled) {
  Drive drive;
  drive.set_inputs(position_inputs(20));
  drive.write_mode(position_mode);
  drive.take_set_point();
  step(drive, 1000);
  EXPECT_EQ(drive.outputs().position, 0);

  enable_operation(drive);
  step(drive, 300);
  EXPECT_EQ(drive.outputs().position, 20);
}

TEST(DrivePositionTest, set_point_waits_for_the_mode) {
  Drive drive = enabled_drive(torque_mode, position_inputs(20));
  drive.take_set_point();
  step(drive, 1000);
  EXPECT_EQ(drive.outputs().position, 0);

  drive.write_mode(position_mode);
  step(drive, 300);
  EXPECT_EQ(drive.outputs().position, 20);
}

TEST(DrivePositionTest, disabling_forgets_the_set_point) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));
  drive.write_controlword(enable_and_start);
  drive.write_controlword(shutdown | 0x10U);

  drive.write_controlword(enable_and_start);
  step(drive, 1000);

  EXPECT_EQ(drive.outputs().position, 0);
  EXPECT_FALSE(shows_any(drive, mode_specific));
}

TEST(DrivePositionTest, leaving_the_mode_forgets_the_set_point) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));
  drive.write_controlword(enable_and_start);

  drive.write_mode(torque_mode);
  EXPECT_FALSE(shows_any(drive, mode_specific));

  drive.write_mode(position_mode);
  step(drive, 1000);
  EXPECT_EQ(drive.outputs().position, 0);
}

TEST(DrivePositionTest, writing_the_same_mode_again_keeps_the_set_point) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));
  drive.take_set_point();

  drive.write_mode(position_mode);
  step(drive, 300);

  EXPECT_EQ(drive.outputs().position, 20);
}

TEST(DrivePositionTest, halt_only_interrupts) {
  Drive drive = enabled_drive(position_mode, position_inputs(20));
  drive.take_set_point();
  step(drive, 150);

  drive.write_controlword(enable_and_halt);
  step(drive, 100);
  EXPECT_EQ(drive.outputs().position, 15);
  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_TRUE(shows(drive, target_reached)) << "of a halted drive: it stands";

  drive.write_controlword(enable);
  step(drive, 1000);
  EXPECT_EQ(drive.outputs().position, 20);
}

// Profile torque

TEST(DriveTorqueTest, follows_the_target_at_once) {
  DriveInputs inputs;
  inputs.target_torque = -300;
  Drive drive = enabled_drive(torque_mode, inputs);
  EXPECT_EQ(drive.outputs().torque, -300);
  EXPECT_TRUE(shows(drive, target_reached));

  inputs.target_torque = 250;
  drive.set_inputs(inputs);
  EXPECT_EQ(drive.outputs().torque, 250);
}

TEST(DriveTorqueTest, is_zero_outside_the_enabled_mode) {
  DriveInputs inputs;
  inputs.target_torque = 300;
  Drive drive = enabled_drive(torque_mode, inputs);

  drive.write_controlword(enable_and_halt);
  EXPECT_EQ(drive.outputs().torque, 0);

  drive.write_controlword(enable);
  drive.write_mode(velocity_mode);
  EXPECT_EQ(drive.outputs().torque, 0);

  drive.write_mode(torque_mode);
  drive.write_controlword(quick_stop);
  EXPECT_EQ(drive.outputs().torque, 0);
}

// Homing

/// In homing mode with operation enabled, at position 20 and standing.
class DriveHomingTest : public testing::Test {
 protected:
  DriveHomingTest() {
    drive.take_set_point();
    step(drive, 300);
    drive.write_mode(homing_mode);
  }

  void start() { drive.write_controlword(enable_and_start); }

  Drive drive = enabled_drive(position_mode, position_inputs(20));
  const std::int64_t duration = homing_time.count();
};

TEST_F(DriveHomingTest, is_not_started_by_the_mode) {
  step(drive, 2 * duration);

  EXPECT_EQ(drive.homing(), HomingState::idle);
  EXPECT_EQ(drive.outputs().position, 20);
  EXPECT_TRUE(shows(drive, target_reached));
  EXPECT_FALSE(shows_any(drive, mode_specific | mode_error));
}

TEST_F(DriveHomingTest, runs_for_its_time) {
  start();
  step(drive, duration - 1);

  EXPECT_EQ(drive.homing(), HomingState::running);
  EXPECT_EQ(drive.outputs().position, 20);
  EXPECT_FALSE(shows_any(drive, target_reached | mode_specific | mode_error));
}

TEST_F(DriveHomingTest, ends_attained_at_position_0) {
  start();
  step(drive, duration);

  EXPECT_EQ(drive.homing(), HomingState::attained);
  EXPECT_EQ(drive.outputs().position, 0);
  EXPECT_TRUE(shows(drive, target_reached | mode_specific));
  EXPECT_FALSE(shows_any(drive, mode_error));
}

TEST_F(DriveHomingTest, ends_at_the_home_offset) {
  DriveInputs inputs;
  inputs.home_offset = -1500;
  drive.set_inputs(inputs);
  start();
  step(drive, duration - 1);
  EXPECT_EQ(drive.outputs().position, 20);

  step(drive, 1);
  EXPECT_EQ(drive.outputs().position, -1500);
}

TEST_F(DriveHomingTest, fails_without_a_method) {
  DriveInputs inputs;
  inputs.homing_method = 0;
  drive.set_inputs(inputs);
  start();

  EXPECT_EQ(drive.homing(), HomingState::failed);
  EXPECT_TRUE(shows(drive, mode_error));
  step(drive, duration);
  EXPECT_EQ(drive.outputs().position, 20);
}

TEST(HomingMethodTest, is_one_of_the_profile) {
  std::vector<int> unknown;
  for (int method = 0; method <= 38; ++method) {
    if (!is_homing_method(static_cast<std::int8_t>(method))) {
      unknown.push_back(method);
    }
  }
  EXPECT_THAT(unknown, testing::ElementsAre(15, 16, 31, 32, 36, 38));
  EXPECT_FALSE(is_homing_method(-1));
  EXPECT_TRUE(is_homing_method(default_homing_method));
}

TEST_F(DriveHomingTest, stops_an_axis_that_still_moves) {
  drive.write_mode(velocity_mode);
  drive.set_inputs(velocity_inputs(100'000));
  step(drive, 5000);
  drive.write_mode(homing_mode);
  start();
  step(drive, duration);

  EXPECT_EQ(drive.outputs().velocity, 0);
  EXPECT_EQ(drive.outputs().position, 0);
}

TEST_F(DriveHomingTest, same_word_again_neither_restarts_nor_stops) {
  start();
  step(drive, duration / 2);
  start();
  step(drive, duration - duration / 2);

  EXPECT_EQ(drive.homing(), HomingState::attained);
}

TEST_F(DriveHomingTest, same_mode_again_does_not_stop) {
  start();
  drive.write_mode(homing_mode);

  EXPECT_EQ(drive.homing(), HomingState::running);
}

TEST_F(DriveHomingTest, unknown_mode_does_not_stop) {
  start();
  drive.write_mode(8);

  EXPECT_EQ(drive.homing(), HomingState::running);
}

TEST_F(DriveHomingTest, clear_start_bit_stops) {
  start();
  step(drive, duration - 1);
  drive.write_controlword(enable);
  step(drive, 2 * duration);

  EXPECT_EQ(drive.homing(), HomingState::idle);
  EXPECT_EQ(drive.outputs().position, 20);
}

TEST_F(DriveHomingTest, restart_takes_the_whole_time) {
  start();
  step(drive, duration - 1);
  drive.write_controlword(enable);
  start();
  step(drive, duration - 1);

  EXPECT_EQ(drive.homing(), HomingState::running);
}

TEST_F(DriveHomingTest, clear_start_bit_leaves_an_attained_homing) {
  start();
  step(drive, duration);
  drive.write_controlword(enable);

  EXPECT_EQ(drive.homing(), HomingState::attained);
}

TEST_F(DriveHomingTest, attained_homing_can_be_started_again) {
  start();
  step(drive, duration);
  drive.write_controlword(enable);
  start();

  EXPECT_EQ(drive.homing(), HomingState::running);
  EXPECT_FALSE(shows_any(drive, mode_specific));
}

TEST_F(DriveHomingTest, another_mode_stops) {
  start();
  drive.write_mode(velocity_mode);

  EXPECT_EQ(drive.homing(), HomingState::idle);
}

TEST_F(DriveHomingTest, attained_is_shown_in_homing_mode_only) {
  start();
  step(drive, duration);
  drive.write_mode(torque_mode);
  EXPECT_FALSE(shows_any(drive, mode_specific));

  drive.write_mode(homing_mode);
  EXPECT_TRUE(shows(drive, mode_specific));
}

TEST_F(DriveHomingTest, start_bit_set_in_another_mode_is_no_edge_later) {
  drive.write_mode(velocity_mode);
  start();
  drive.write_mode(homing_mode);
  start();

  EXPECT_EQ(drive.homing(), HomingState::idle);
}

TEST_F(DriveHomingTest, word_that_enables_does_not_start) {
  drive.write_controlword(shutdown);
  start();
  start();

  EXPECT_TRUE(drive.is_enabled());
  EXPECT_EQ(drive.homing(), HomingState::idle);
}

TEST_F(DriveHomingTest, halt_only_interrupts) {
  start();
  step(drive, duration - 1);
  drive.write_controlword(enable_and_start | enable_and_halt);
  step(drive, 10 * duration);
  EXPECT_EQ(drive.homing(), HomingState::running);
  EXPECT_TRUE(shows(drive, target_reached)) << "of a halted drive: it stands";

  start();
  drive.step();
  EXPECT_EQ(drive.homing(), HomingState::attained);
}

TEST_F(DriveHomingTest, disabling_stops) {
  for (const std::uint16_t controlword : {shutdown, switch_on, disable_voltage, quick_stop}) {
    SCOPED_TRACE(controlword);
    Drive copy = drive;
    copy.write_controlword(enable_and_start);
    ASSERT_EQ(copy.homing(), HomingState::running);

    copy.write_controlword(controlword);
    step(copy, 2 * duration);

    EXPECT_EQ(copy.homing(), HomingState::idle);
    EXPECT_EQ(copy.outputs().position, 20);
  }
}

TEST_F(DriveHomingTest, fault_is_an_error_until_the_next_start) {
  start();
  drive.inject_fault(overheated);
  EXPECT_EQ(drive.homing(), HomingState::failed);

  drive.step();
  drive.write_controlword(fault_reset);
  enable_operation(drive);
  EXPECT_TRUE(shows(drive, mode_error | target_reached));
  EXPECT_FALSE(shows_any(drive, mode_specific));

  start();
  EXPECT_FALSE(shows_any(drive, mode_error));
}

// Extremes

TEST(DriveExtremesTest, every_limit_at_its_end_keeps_the_arithmetic_defined) {
  constexpr std::int32_t ends[] = {std::numeric_limits<std::int32_t>::min(), -1, 1,
                                   std::numeric_limits<std::int32_t>::max()};
  constexpr std::uint32_t rates[] = {1, std::numeric_limits<std::uint32_t>::max()};
  for (const std::int32_t target : ends) {
    for (const std::uint32_t acceleration : rates) {
      for (const std::uint32_t deceleration : rates) {
        for (const std::int8_t mode : {position_mode, velocity_mode}) {
          Drive drive = enabled_drive(
              mode, {target, target, 0, rates[1], acceleration, deceleration, deceleration});
          drive.take_set_point();
          step(drive, 3000);
          EXPECT_GE(std::int64_t{drive.outputs().position} * target, 0);
          drive.write_controlword(quick_stop);
          step(drive, 3000);
        }
      }
    }
  }
}

}  // namespace
}  // namespace velmora_can_bridge
