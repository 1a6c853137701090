#include "claw.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace velmora_can_bridge {
namespace {

constexpr std::uint16_t shutdown = 0x06;
constexpr std::uint16_t enable = 0x0F;
constexpr std::uint16_t enable_and_start = 0x1F;
constexpr std::uint16_t halt = 0x100;
constexpr std::int8_t velocity_mode = 3;
constexpr std::int8_t homing_mode = 6;

/// A claw behind a drive whose operation is enabled in profile velocity mode.
class ClawTest : public testing::Test {
 protected:
  ClawTest() {
    set_mode(velocity_mode);
    control(shutdown);
    control(enable);
  }

  void control(std::uint16_t controlword) {
    drive.write_controlword(controlword);
    claw.follow(drive);
  }

  void set_mode(std::int8_t mode) {
    drive.write_mode(mode);
    claw.follow(drive);
  }

  void start_homing() {
    set_mode(homing_mode);
    control(enable);
    control(enable_and_start);
  }

  void pass(std::chrono::milliseconds time) {
    for (; time.count() > 0; --time) {
      drive.step();
      claw.step(drive);
    }
  }

  void expect(ClawAction action, ClawPosition position) const {
    EXPECT_EQ(claw.action(), action);
    EXPECT_EQ(claw.position(), position);
  }

  static constexpr std::chrono::milliseconds millisecond{1};
  Drive drive;
  Claw claw;
};

TEST_F(ClawTest, starts_idle_anywhere) { expect(ClawAction::idle, ClawPosition::unknown); }

TEST_F(ClawTest, extends_within_its_time) {
  claw.command(extend_now, drive);
  expect(ClawAction::moving, ClawPosition::between);

  pass(extend_time - millisecond);
  expect(ClawAction::moving, ClawPosition::between);

  pass(millisecond);
  expect(ClawAction::done, ClawPosition::extended);
}

TEST_F(ClawTest, only_the_one_command_extends) {
  for (unsigned value = 0; value <= 255; ++value) {
    SCOPED_TRACE(value);
    Claw fresh;

    fresh.command(static_cast<std::uint8_t>(value), drive);

    EXPECT_EQ(fresh.action(), value == 1 ? ClawAction::moving : ClawAction::idle);
  }
}

TEST_F(ClawTest, disabled_drive_refuses_to_extend) {
  control(shutdown);

  claw.command(extend_now, drive);

  expect(ClawAction::error, ClawPosition::unknown);
}

TEST_F(ClawTest, second_command_does_not_restart) {
  claw.command(extend_now, drive);
  pass(extend_time - millisecond);

  claw.command(extend_now, drive);
  pass(millisecond);

  expect(ClawAction::done, ClawPosition::extended);
}

TEST_F(ClawTest, extended_claw_extends_again) {
  claw.command(extend_now, drive);
  pass(extend_time);

  claw.command(extend_now, drive);

  expect(ClawAction::moving, ClawPosition::between);
}

TEST_F(ClawTest, disabling_breaks_the_extending_off) {
  claw.command(extend_now, drive);
  control(shutdown);
  expect(ClawAction::error, ClawPosition::between);

  control(enable);
  pass(extend_time);
  expect(ClawAction::error, ClawPosition::between);
}

TEST_F(ClawTest, fault_breaks_the_extending_off) {
  claw.command(extend_now, drive);
  drive.inject_fault(0x1000);
  claw.follow(drive);

  expect(ClawAction::error, ClawPosition::between);
}

TEST_F(ClawTest, disabling_leaves_an_ended_movement) {
  claw.command(extend_now, drive);
  pass(extend_time);

  control(shutdown);

  expect(ClawAction::done, ClawPosition::extended);
}

TEST_F(ClawTest, halt_only_interrupts) {
  claw.command(extend_now, drive);
  pass(extend_time - millisecond);

  control(enable | halt);
  pass(extend_time);
  expect(ClawAction::moving, ClawPosition::between);

  control(enable);
  pass(millisecond);
  expect(ClawAction::done, ClawPosition::extended);
}

TEST_F(ClawTest, homes_with_its_drive) {
  start_homing();
  expect(ClawAction::moving, ClawPosition::between);

  pass(homing_time - millisecond);
  expect(ClawAction::moving, ClawPosition::between);

  pass(millisecond);
  expect(ClawAction::done, ClawPosition::home);
}

TEST_F(ClawTest, extends_after_homing) {
  start_homing();
  pass(homing_time);

  claw.command(extend_now, drive);
  pass(extend_time);

  expect(ClawAction::done, ClawPosition::extended);
}

TEST_F(ClawTest, does_not_extend_while_homing) {
  start_homing();

  claw.command(extend_now, drive);
  pass(homing_time);
  expect(ClawAction::done, ClawPosition::home);

  pass(extend_time);
  expect(ClawAction::done, ClawPosition::home);
}

TEST_F(ClawTest, homing_takes_an_extending_over) {
  claw.command(extend_now, drive);
  pass(extend_time - millisecond);

  start_homing();
  pass(millisecond);
  expect(ClawAction::moving, ClawPosition::between);

  pass(homing_time);
  expect(ClawAction::done, ClawPosition::home);
}

TEST_F(ClawTest, stopped_homing_is_an_error) {
  start_homing();

  control(enable);

  expect(ClawAction::error, ClawPosition::between);
}

TEST_F(ClawTest, failed_homing_is_an_error) {
  start_homing();

  drive.inject_fault(0x1000);
  claw.follow(drive);

  expect(ClawAction::error, ClawPosition::between);
}

}  // namespace
}  // namespace velmora_can_bridge
