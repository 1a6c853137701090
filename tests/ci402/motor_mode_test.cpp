#include <type_traits>

#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

// A query: may be asked of a controller that cannot be changed.
static_assert(std::is_invocable_r_v<std::uint8_t, decltype(&CanOpenNodeController::motor_mode),
                                    const CanOpenNodeController&, const std::string&>);

class MotorMode : public DriveTest {
 protected:
  /// Runs an operation that the node accepts.
  void run_kind(const char* kind, const std::string& device, const Bytes& payload = {},
                const char* action = "") {
    op.kind = kind;
    op.action = action;
    EXPECT_TRUE(run(payload, device).ok);
  }
};

TEST_F(MotorMode, of_a_device_without_a_recorded_mode_is_0) {
  board.device_od_map["spare"] = {"ci402", 0x7040, 0};
  EXPECT_EQ(controller.motor_mode("spare"), 0);
}

TEST_F(MotorMode, of_an_unknown_device_is_0) {
  EXPECT_EQ(controller.motor_mode("nobody"), 0);
  EXPECT_EQ(controller.motor_mode(""), 0);
  EXPECT_EQ(controller.motor_mode("Wheel"), 0);
}

TEST_F(MotorMode, of_a_fresh_controller_is_0) {
  const CanOpenNodeController fresh(node_id, backend, board);
  EXPECT_EQ(fresh.motor_mode("wheel"), 0);
}

TEST_F(MotorMode, asking_makes_no_bus_call) {
  controller.motor_mode("wheel");
  controller.motor_mode("nobody");
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(MotorMode, is_the_one_set_last) {
  set_mode("wheel", 1);
  set_mode("wheel", 4);
  EXPECT_EQ(controller.motor_mode("wheel"), 4);
  EXPECT_EQ(controller.motor_mode("claw"), 7);
}

TEST_F(MotorMode, empty_name_is_a_name_like_any_other) {
  board.device_od_map[""] = {"ci402", 0x7040, 0};
  set_mode("", 4);
  EXPECT_EQ(controller.motor_mode(""), 4);
}

TEST_F(MotorMode, claw_sets_velocity_before_it_extends) {
  run_kind("claw_action", "claw", {}, "extend");
  EXPECT_EQ(controller.motor_mode("claw"), 3);
}

TEST_F(MotorMode, claw_sets_homing_before_it_homes) {
  run_kind("claw_action", "claw", {}, "home");
  EXPECT_EQ(controller.motor_mode("claw"), 6);
}

TEST_F(MotorMode, is_left_alone_by_every_other_operation) {
  run_kind("ci402_enable", "claw");
  run_kind("ci402_disable", "claw");
  run_kind("ci402_quick_stop", "claw");
  run_kind("ci402_ramp", "claw", {3, 3, 3, 3});
  run_kind("ci402_set_target", "claw", {3, 3});
  backend.objects[{0x3000, 1}] = {3};
  backend.objects[{0x3000, 2}] = {3};
  run_kind("claw_action", "claw", {}, "query");
  op.index = 0x6860;
  run_kind("sdo_write", "claw", {3});
  EXPECT_EQ(controller.motor_mode("claw"), 7);
}

TEST_F(MotorMode, outlives_forgotten_images) {
  controller.forget_rpdo_shadows();
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(MotorMode, that_the_claw_has_set_is_asserted_again_by_enable) {
  run_kind("claw_action", "claw", {}, "home");
  backend.calls.clear();
  run_kind("ci402_enable", "claw");
  EXPECT_EQ(backend.calls.at(0), "write 5 0x6860/0 06");
}

TEST_F(MotorMode, that_the_claw_has_set_chooses_the_target) {
  set_mode("claw", 1);
  run_kind("claw_action", "claw", {}, "extend");
  op.transport = "sdo";
  run_kind("ci402_set_target", "claw", {1, 0});
  EXPECT_EQ(last(backend.calls), "write 5 0x68FF/0 01 00 00 00");
}

}  // namespace
}  // namespace velmora_can_bridge
