// What a controller that begins as another one has of it.
#include <memory>
#include <optional>

#include "support/blocked_thread.hpp"
#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

/// The copies work on a bus of their own, whose node has other bytes in the objects of RPDO 1.
class ControllerCopy : public DriveTest {
 protected:
  ControllerCopy() {
    trial_bus.objects = {{{0x6040, 0}, {0x31, 0x32}},
                         {{0x6060, 0}, {0x33}},
                         {{0x6061, 0}, {0x34}},
                         {{0x60FF, 0}, {0x35, 0x36, 0x37, 0x38}}};
  }

  /// The calls of a write of the byte "other" of RPDO 1, on the bus of `copy`.
  Calls write_on(CanOpenNodeController& copy, std::uint8_t value) {
    trial_bus.calls.clear();
    EXPECT_EQ(copy.execute_configured_operation(write_other(), "", {value}), ok("OK"));
    return trial_bus.calls;
  }

  /// As `write_on`, on the controller that was copied.
  Calls write(std::uint8_t value) {
    backend.calls.clear();
    EXPECT_EQ(controller.execute_configured_operation(write_other(), "", {value}), ok("OK"));
    return backend.calls;
  }

  static void set_mode_on(CanOpenNodeController& copy, std::uint8_t mode) {
    OperationConfig setting;
    setting.kind = "ci402_set_mode";
    EXPECT_TRUE(copy.execute_configured_operation(setting, "wheel", {mode}).ok);
  }

  static OperationConfig write_other() {
    OperationConfig op;
    op.kind = "pdo_write";
    op.pdo_number = 1;
    op.field = "other";
    return op;
  }

  ScriptedBackend trial_bus;
};

TEST_F(ControllerCopy, sends_the_image_of_the_other_without_a_load) {
  CanOpenNodeController copy(controller, trial_bus);
  EXPECT_EQ(write_on(copy, 0xA1), Calls{"rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18"});
}

TEST_F(ControllerCopy, loads_an_image_that_the_other_has_not_loaded) {
  CanOpenNodeController fresh(node_id, path.backend(), board);
  CanOpenNodeController copy(fresh, trial_bus);
  EXPECT_EQ(write_on(copy, 0xA1),
            (Calls{"read 5 0x6040/0", "read 5 0x6060/0", "read 5 0x6061/0", "read 5 0x60FF/0",
                   "rpdo 5 1 len 8: 31 32 33 A1 35 36 37 38"}));
}

TEST_F(ControllerCopy, load_keeps_the_bytes_that_the_other_has_mirrored) {
  controller.forget_rpdo_shadows();
  set_mode("wheel", 4);
  CanOpenNodeController copy(controller, trial_bus);
  const Calls calls = write_on(copy, 0xA1);
  EXPECT_EQ(calls.size(), 5U) << "every object is read all the same";
  EXPECT_EQ(last(calls), "rpdo 5 1 len 8: 31 32 04 A1 35 36 37 38");
}

TEST_F(ControllerCopy, forget_before_the_copy_holds_for_the_copy) {
  set_mode("wheel", 4);
  controller.forget_rpdo_shadows();
  CanOpenNodeController copy(controller, trial_bus);
  const Calls calls = write_on(copy, 0xA1);
  EXPECT_EQ(calls.size(), 5U);
  EXPECT_EQ(last(calls), "rpdo 5 1 len 8: 31 32 33 A1 35 36 37 38");
}

TEST_F(ControllerCopy, forget_before_the_copy_holds_for_the_other) {
  controller.forget_rpdo_shadows();
  const CanOpenNodeController copy(controller, trial_bus);
  const Calls calls = write(0xA1);
  EXPECT_EQ(calls.size(), 5U);
  EXPECT_EQ(last(calls), "rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18");
}

TEST_F(ControllerCopy, begins_with_the_modes_of_the_other) {
  set_mode("wheel", 4);
  const CanOpenNodeController copy(controller, trial_bus);
  EXPECT_EQ(copy.motor_mode("wheel"), 4);
  EXPECT_EQ(copy.motor_mode("claw"), 7);
  EXPECT_EQ(copy.motor_mode("nobody"), 0);
}

/// Mirrors are numbered; those of the copy come after those that it was given.
TEST_F(ControllerCopy, mirror_reaches_an_image_that_the_other_has_mirrored_often) {
  set_mode("wheel", 3);
  set_mode("wheel", 4);
  CanOpenNodeController copy(controller, trial_bus);
  set_mode_on(copy, 6);
  EXPECT_EQ(write_on(copy, 0xA1), Calls{"rpdo 5 1 len 8: 11 12 06 A1 15 16 17 18"});
}

TEST_F(ControllerCopy, what_it_does_leaves_images_of_the_other_alone) {
  CanOpenNodeController copy(controller, trial_bus);
  write_on(copy, 0xA1);
  set_mode_on(copy, 6);
  copy.forget_rpdo_shadows();
  EXPECT_EQ(next_send(1), Calls{"rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"});
}

TEST_F(ControllerCopy, what_it_does_leaves_modes_of_the_other_alone) {
  CanOpenNodeController copy(controller, trial_bus);
  set_mode_on(copy, 6);
  EXPECT_EQ(copy.motor_mode("wheel"), 6);
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(ControllerCopy, what_it_does_makes_no_call_on_the_bus_of_the_other) {
  backend.calls.clear();
  CanOpenNodeController copy(controller, trial_bus);
  write_on(copy, 0xA1);
  set_mode_on(copy, 6);
  EXPECT_EQ(backend.calls, Calls{});
}

TEST_F(ControllerCopy, what_the_other_does_leaves_its_images_alone) {
  CanOpenNodeController copy(controller, trial_bus);
  write(0xA1);
  set_mode("wheel", 4);
  controller.forget_rpdo_shadows();
  EXPECT_EQ(write_on(copy, 0xA2), Calls{"rpdo 5 1 len 8: 11 12 13 A2 15 16 17 18"});
}

TEST_F(ControllerCopy, what_the_other_does_leaves_its_modes_alone) {
  const CanOpenNodeController copy(controller, trial_bus);
  set_mode("wheel", 4);
  EXPECT_EQ(copy.motor_mode("wheel"), 7);
}

TEST_F(ControllerCopy, reads_the_node_id_at_every_call_as_the_other) {
  CanOpenNodeController copy(controller, trial_bus);
  node_id = 9;
  EXPECT_EQ(last(write_on(copy, 0xA1)), "rpdo 9 1 len 8: 11 12 13 A1 15 16 17 18");
}

TEST_F(ControllerCopy, works_on_when_the_other_is_gone) {
  std::optional<CanOpenNodeController> other;
  other.emplace(controller, backend);
  CanOpenNodeController copy(*other, trial_bus);
  other.reset();
  EXPECT_EQ(last(write_on(copy, 0xA1)), "rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18");
}

/// Made while the other sends; it has the image that was sent then.
TEST_F(ControllerCopy, waits_until_an_operation_on_the_images_has_ended) {
  using Copy = std::unique_ptr<CanOpenNodeController>;
  std::unique_ptr<BlockedThread<Copy>> thread;
  backend.during_call = [&](const std::string& /*call*/) {
    thread = std::make_unique<BlockedThread<Copy>>(
        [&] { return std::make_unique<CanOpenNodeController>(controller, trial_bus); });
    EXPECT_TRUE(thread->is_blocked());
    EXPECT_TRUE(still_waits(thread->result()));
  };
  write(0xA1);
  ASSERT_TRUE(is_done(thread->result()));
  const Copy copy = thread->result().get();
  EXPECT_EQ(write_on(*copy, 0xA2), Calls{"rpdo 5 1 len 8: 11 12 13 A2 15 16 17 18"});
}

/// What was written before the wait comes first: a copy takes its turn.
TEST_F(ControllerCopy, waits_its_turn_behind_an_operation_that_came_before) {
  using Copy = std::unique_ptr<CanOpenNodeController>;
  std::unique_ptr<BlockedThread<OperationResult>> mode;
  std::unique_ptr<BlockedThread<Copy>> copying;
  backend.during_call = [&](const std::string& call) {
    if (call.rfind("rpdo", 0) != 0) {
      return;
    }
    mode = std::make_unique<BlockedThread<OperationResult>>([&] {
      OperationConfig setting;
      setting.kind = "ci402_set_mode";
      return controller.execute_configured_operation(setting, "wheel", {4});
    });
    copying = std::make_unique<BlockedThread<Copy>>(
        [&] { return std::make_unique<CanOpenNodeController>(controller, trial_bus); });
  };
  // Not by `write`, which would look at the calls while the other thread makes one.
  EXPECT_TRUE(controller.execute_configured_operation(write_other(), "", {0xA1}).ok);
  EXPECT_TRUE(mode->result().get().ok);
  const Copy copy = copying->result().get();
  EXPECT_EQ(write_on(*copy, 0xA2), Calls{"rpdo 5 1 len 8: 11 12 04 A2 15 16 17 18"});
}

}  // namespace
}  // namespace velmora_can_bridge
