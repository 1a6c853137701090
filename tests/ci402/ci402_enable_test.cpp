#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr auto frame_1_untouched = "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18";

class Ci402Enable : public DriveTest {
 protected:
  Ci402Enable() { op.kind = "ci402_enable"; }

  static inline const Calls sequence{"write 5 0x6060/0 07", "write 5 0x6040/0 06 00",
                                     "write 5 0x6040/0 0F 00"};
};

TEST_F(Ci402Enable, writes_mode_then_shutdown_then_enable_operation) {
  EXPECT_EQ(run_wheel(), ok("Motor enabled"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402Enable, controlword_is_mirrored_but_the_mode_is_not) {
  run_wheel();
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 0F 00 13 14 15 16 17 18");
}

TEST_F(Ci402Enable, enabling_again_repeats_the_whole_sequence) {
  run_wheel();
  backend.calls.clear();
  EXPECT_EQ(run_wheel(), ok("Motor enabled"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402Enable, leaves_the_recorded_mode) {
  run_wheel();
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(Ci402Enable, writes_any_recorded_mode_as_it_is) {
  for (int mode = 0; mode <= 255; ++mode) {
    SCOPED_TRACE(mode);
    set_mode("wheel", static_cast<std::uint8_t>(mode));
    OperationConfig written;
    written.kind = "sdo_write";
    written.index = 0x6060;
    controller.execute_configured_operation(written, "", {static_cast<std::uint8_t>(mode)});
    run_wheel();
    ASSERT_EQ(backend.calls.size(), 4U);
    EXPECT_EQ(backend.calls[1], backend.calls[0]);
  }
}

TEST_F(Ci402Enable, drive_without_a_recorded_mode_is_given_mode_0) {
  board.device_od_map["spare"] = {"ci402", 0x7040, 0};
  EXPECT_EQ(run({}, "spare"), ok("Motor enabled"));
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x7060/0 00", "write 5 0x7040/0 06 00", "write 5 0x7040/0 0F 00"}));
  EXPECT_EQ(controller.motor_mode("spare"), 0);
}

TEST_F(Ci402Enable, unknown_device_is_named_without_a_bus_call) {
  EXPECT_EQ(run({}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_EQ(run({}, ""), failed("Device not found: "));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Ci402Enable, any_payload_is_ignored) {
  for (const Bytes& payload : {Bytes{3}, Bytes{1, 2, 3, 4}, Bytes(300, 0xFF)}) {
    backend.calls.clear();
    EXPECT_EQ(run_wheel(payload), ok("Motor enabled"));
    EXPECT_EQ(backend.calls, sequence);
  }
}

TEST_F(Ci402Enable, consults_no_member_of_the_operation) {
  op.transport = "sdo";
  op.index = 0x7777;
  op.sub_index = 7;
  op.index_offset = 7;
  op.pdo_number = 9;
  op.fixed_data = {9};
  op.refresh_shadow = 1;
  EXPECT_EQ(run_wheel(), ok("Motor enabled"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(Ci402Enable, index_of_the_mode_wraps_at_16_bits) {
  board.device_od_map["wheel"].base_index = 0xFFF0;
  EXPECT_EQ(run_wheel(), ok("Motor enabled"));
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x0010/0 07", "write 5 0xFFF0/0 06 00", "write 5 0xFFF0/0 0F 00"}));
}

TEST_F(Ci402Enable, node_id_is_read_afresh_at_every_write) {
  backend.during_call = [&](const std::string& /*call*/) { ++node_id; };
  run_wheel();
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x6060/0 07", "write 6 0x6040/0 06 00", "write 7 0x6040/0 0F 00"}));
}

TEST_F(Ci402Enable, image_that_is_not_loaded_stays_so) {
  controller.forget_rpdo_shadows();
  run_wheel();
  EXPECT_EQ(next_send().size(), 5U);
}

class Ci402EnableFailing : public Ci402Enable, public testing::WithParamInterface<FailingStep> {};

TEST_P(Ci402EnableFailing, refused_write_ends_the_sequence) {
  expect_refused(GetParam(), sequence, "wheel");
}

TEST_P(Ci402EnableFailing, throwing_write_ends_the_sequence) {
  expect_thrown(GetParam(), sequence, "wheel");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, Ci402EnableFailing,
    testing::Values(
        FailingStep{"mode", 0, "SDO write modes_of_operation failed", 7, frame_1_untouched},
        FailingStep{"shutdown", 1, "SDO write controlword (shutdown) failed", 7, frame_1_untouched},
        FailingStep{"enable_operation", 2, "SDO write controlword (enable) failed", 7,
                    frame_1_untouched}),
    row_name);

}  // namespace
}  // namespace velmora_can_bridge
