#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

class Ci402Disable : public DriveTest {
 protected:
  Ci402Disable() { op.kind = "ci402_disable"; }

  static inline const Calls sequence{"write 5 0x6040/0 06 00"};
};

TEST_F(Ci402Disable, writes_shutdown_alone) {
  EXPECT_EQ(run_wheel(), ok("Motor disabled"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402Disable, controlword_is_mirrored) {
  run_wheel();
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 06 00 13 14 15 16 17 18");
}

TEST_F(Ci402Disable, leaves_the_recorded_mode) {
  run_wheel();
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(Ci402Disable, unknown_device_is_named_without_a_bus_call) {
  EXPECT_EQ(run({}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Ci402Disable, any_payload_is_ignored) {
  for (const Bytes& payload : {Bytes{3}, Bytes{1, 2, 3, 4}, Bytes(300, 0xFF)}) {
    backend.calls.clear();
    EXPECT_EQ(run_wheel(payload), ok("Motor disabled"));
    EXPECT_EQ(backend.calls, sequence);
  }
}

TEST_F(Ci402Disable, consults_no_member_of_the_operation) {
  op.transport = "sdo";
  op.index = 0x7777;
  op.sub_index = 7;
  op.index_offset = 7;
  op.pdo_number = 9;
  op.fixed_data = {9};
  EXPECT_EQ(run_wheel(), ok("Motor disabled"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402Disable, node_id_is_read_afresh) {
  node_id = 127;
  run_wheel();
  EXPECT_EQ(backend.calls, Calls{"write 127 0x6040/0 06 00"});
}

class Ci402DisableFailing : public Ci402Disable, public testing::WithParamInterface<FailingStep> {};

TEST_P(Ci402DisableFailing, refused_write_leaves_the_image_alone) {
  expect_refused(GetParam(), sequence, "wheel");
}

TEST_P(Ci402DisableFailing, throwing_write_leaves_the_image_alone) {
  expect_thrown(GetParam(), sequence, "wheel");
}

INSTANTIATE_TEST_SUITE_P(Calls, Ci402DisableFailing,
                         testing::Values(FailingStep{"shutdown", 0,
                                                     "SDO write controlword (disable) failed", 7,
                                                     "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}),
                         row_name);

}  // namespace
}  // namespace velmora_can_bridge
