#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

class Ci402SetMode : public DriveTest {
 protected:
  Ci402SetMode() { op.kind = "ci402_set_mode"; }
};

TEST_F(Ci402SetMode, writes_records_mirrors_and_reports_the_mode) {
  EXPECT_EQ(run_wheel({3}), ok("Mode set to 3"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x6060/0 03"});
  EXPECT_EQ(controller.motor_mode("wheel"), 3);
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 03 14 15 16 17 18");
}

TEST_F(Ci402SetMode, bytes_after_the_first_are_ignored) {
  EXPECT_EQ(run_wheel({3, 9, 9}), ok("Mode set to 3"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x6060/0 03"});
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 03 14 15 16 17 18");
}

TEST_F(Ci402SetMode, every_byte_is_an_unsigned_mode) {
  for (int mode = 0; mode <= 255; ++mode) {
    SCOPED_TRACE(mode);
    EXPECT_EQ(run_wheel({static_cast<std::uint8_t>(mode)}),
              ok("Mode set to " + std::to_string(mode)));
    EXPECT_EQ(controller.motor_mode("wheel"), mode);
  }
  EXPECT_EQ(last(backend.calls), "write 5 0x6060/0 FF");
}

TEST_F(Ci402SetMode, mode_0_replaces_an_earlier_one) {
  EXPECT_EQ(run_wheel({0}), ok("Mode set to 0"));
  EXPECT_EQ(controller.motor_mode("wheel"), 0);
}

TEST_F(Ci402SetMode, other_devices_keep_their_mode_and_image) {
  run_wheel({3});
  EXPECT_EQ(controller.motor_mode("claw"), 7);
  EXPECT_EQ(image(2), "rpdo 5 2 len 8: 21 22 23 24 25 26 27 28");
}

TEST_F(Ci402SetMode, devices_on_the_same_objects_have_modes_of_their_own) {
  board.device_od_map["twin"] = board.device_od_map["wheel"];
  EXPECT_EQ(run({3}, "twin"), ok("Mode set to 3"));
  EXPECT_EQ(controller.motor_mode("twin"), 3);
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(Ci402SetMode, empty_payload_is_refused_without_a_bus_call) {
  EXPECT_EQ(run_wheel({}), failed("payload empty for ci402_set_mode"));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(Ci402SetMode, unknown_device_is_found_before_an_empty_payload) {
  EXPECT_EQ(run({}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_EQ(run({3}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(controller.motor_mode("Wheel"), 0);
}

TEST_F(Ci402SetMode, consults_no_member_of_the_operation) {
  op.transport = "sdo";
  op.index = 0x7777;
  op.sub_index = 7;
  op.index_offset = 7;
  op.pdo_number = 9;
  op.fixed_data = {9};
  op.data_type = "u32";
  EXPECT_EQ(run_wheel({3}), ok("Mode set to 3"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x6060/0 03"});
}

TEST_F(Ci402SetMode, index_of_the_mode_wraps_at_16_bits) {
  board.device_od_map["wheel"].base_index = 0xFFF0;
  run_wheel({3});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x0010/0 03"});
}

TEST_F(Ci402SetMode, node_id_is_read_afresh) {
  node_id = 127;
  run_wheel({3});
  EXPECT_EQ(backend.calls, Calls{"write 127 0x6060/0 03"});
}

class Ci402SetModeFailing : public Ci402SetMode, public testing::WithParamInterface<FailingStep> {};

TEST_P(Ci402SetModeFailing, refused_write_leaves_record_and_image_alone) {
  expect_refused(GetParam(), {"write 5 0x6060/0 03"}, "wheel", {3});
}

TEST_P(Ci402SetModeFailing, throwing_write_leaves_record_and_image_alone) {
  expect_thrown(GetParam(), {"write 5 0x6060/0 03"}, "wheel", {3});
}

INSTANTIATE_TEST_SUITE_P(Calls, Ci402SetModeFailing,
                         testing::Values(FailingStep{"mode", 0,
                                                     "SDO write modes_of_operation failed", 7,
                                                     "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}),
                         row_name);

}  // namespace
}  // namespace velmora_can_bridge
