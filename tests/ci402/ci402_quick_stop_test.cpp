#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

class Ci402QuickStop : public DriveTest {
 protected:
  Ci402QuickStop() { op.kind = "ci402_quick_stop"; }

  void run_kind(const char* kind) {
    OperationConfig other;
    other.kind = kind;
    EXPECT_TRUE(controller.execute_configured_operation(other, "wheel", {}).ok);
    backend.calls.clear();
  }

  static inline const Calls sequence{"write 5 0x6040/0 02 00"};
};

TEST_F(Ci402QuickStop, writes_the_quick_stop_command_alone) {
  EXPECT_EQ(run_wheel(), ok("Quick stop sent"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402QuickStop, is_not_mirrored) {
  run_wheel();
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(Ci402QuickStop, after_enable_the_next_send_repeats_enable_operation) {
  run_kind("ci402_enable");
  EXPECT_EQ(run_wheel(), ok("Quick stop sent"));
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 0F 00 13 14 15 16 17 18");
}

TEST_F(Ci402QuickStop, after_disable_the_next_send_repeats_shutdown) {
  run_kind("ci402_disable");
  EXPECT_EQ(run_wheel(), ok("Quick stop sent"));
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 06 00 13 14 15 16 17 18");
}

TEST_F(Ci402QuickStop, leaves_the_recorded_mode) {
  run_wheel();
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(Ci402QuickStop, unknown_device_is_named_without_a_bus_call) {
  EXPECT_EQ(run({}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Ci402QuickStop, any_payload_is_ignored) {
  for (const Bytes& payload : {Bytes{3}, Bytes{1, 2, 3, 4}, Bytes(300, 0xFF)}) {
    backend.calls.clear();
    EXPECT_EQ(run_wheel(payload), ok("Quick stop sent"));
    EXPECT_EQ(backend.calls, sequence);
  }
}

TEST_F(Ci402QuickStop, consults_no_member_of_the_operation) {
  op.transport = "sdo";
  op.index = 0x7777;
  op.sub_index = 7;
  op.index_offset = 7;
  op.pdo_number = 9;
  op.fixed_data = {9};
  EXPECT_EQ(run_wheel(), ok("Quick stop sent"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402QuickStop, node_id_is_read_afresh) {
  node_id = 127;
  run_wheel();
  EXPECT_EQ(backend.calls, Calls{"write 127 0x6040/0 02 00"});
}

class Ci402QuickStopFailing : public Ci402QuickStop,
                              public testing::WithParamInterface<FailingStep> {};

TEST_P(Ci402QuickStopFailing, refused_write_leaves_the_image_alone) {
  expect_refused(GetParam(), sequence, "wheel");
}

TEST_P(Ci402QuickStopFailing, throwing_write_leaves_the_image_alone) {
  expect_thrown(GetParam(), sequence, "wheel");
}

INSTANTIATE_TEST_SUITE_P(Calls, Ci402QuickStopFailing,
                         testing::Values(FailingStep{"quick_stop", 0,
                                                     "SDO write controlword (quick_stop) failed", 7,
                                                     "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}),
                         row_name);

}  // namespace
}  // namespace velmora_can_bridge
