#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr auto untouched = "rpdo 5 2 len 8: 21 22 23 24 25 26 27 28";

class ClawAction : public DriveTest {
 protected:
  explicit ClawAction(const char* action = "") {
    op.kind = "claw_action";
    op.action = action;
  }
};

// --- refusals before any bus call ---

TEST_F(ClawAction, unknown_device_is_named_first) {
  EXPECT_EQ(run({}, "Claw"), failed("Device not found: Claw"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(ClawAction, device_without_a_homing_record_is_refused_whatever_the_action) {
  for (const char* action : {"extend", "home", "query", "Extend", ""}) {
    SCOPED_TRACE(action);
    op.action = action;
    EXPECT_EQ(run_wheel(), failed("claw_action requires homing_record in device_od_map"));
  }
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(ClawAction, unknown_action_is_answered_as_it_stands) {
  for (const char* action :
       {"", "Extend", "HOME", " query", "query ", "exten", "extends", "stop"}) {
    SCOPED_TRACE(action);
    op.action = action;
    EXPECT_EQ(run_claw(), failed(std::string("Unknown claw_action: ") + action));
  }
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(controller.motor_mode("claw"), 7);
}

TEST_F(ClawAction, profile_of_the_device_plays_no_part) {
  board.device_od_map["claw"].profile = "io";
  op.action = "home";
  EXPECT_EQ(run_claw(), ok("Claw home command sent"));
}

TEST_F(ClawAction, other_members_of_the_operation_and_the_payload_play_no_part) {
  op.transport = "pdo";
  op.index = 0x7777;
  op.sub_index = 7;
  op.index_offset = 7;
  op.pdo_number = 1;
  op.fixed_data = {9};
  op.action = "home";
  EXPECT_EQ(run_claw({1, 2, 3}), ok("Claw home command sent"));
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x6860/0 06", "write 5 0x6840/0 0F 00", "write 5 0x6840/0 1F 00"}));
}

// --- extend ---

class ClawExtend : public ClawAction {
 protected:
  ClawExtend() : ClawAction("extend") {}

  static inline const Calls sequence{"write 5 0x6860/0 03", "write 5 0x6840/0 06 00",
                                     "write 5 0x6840/0 0F 00", "write 5 0x3000/9 01"};
};

TEST_F(ClawExtend, writes_mode_then_controlwords_then_the_command) {
  EXPECT_EQ(run_claw(), ok("Claw extend command sent"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(ClawExtend, mode_is_recorded_and_mirrored_with_the_last_controlword) {
  run_claw();
  EXPECT_EQ(controller.motor_mode("claw"), 3);
  EXPECT_EQ(image(2), "rpdo 5 2 len 8: 0F 00 03 24 25 26 27 28");
}

TEST_F(ClawExtend, other_devices_keep_mode_and_image) {
  run_claw();
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
  EXPECT_EQ(image(1), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(ClawExtend, command_is_not_mirrored) {
  board.device_od_map["claw"].homing_record = 0x6861;  // the object at byte 3
  run_claw();
  EXPECT_EQ(image(2), "rpdo 5 2 len 8: 0F 00 03 24 25 26 27 28");
}

TEST_F(ClawExtend, command_is_not_mirrored_where_its_own_sub_index_is_mapped) {
  board.pdos[1].mappings[2] = {0x3000, 9, 8, "command"};
  run_claw();
  EXPECT_EQ(image(2), "rpdo 5 2 len 8: 0F 00 03 24 25 26 27 28");
}

TEST_F(ClawExtend, index_of_the_mode_wraps_at_16_bits) {
  board.device_od_map["claw"].base_index = 0xFFF0;
  run_claw();
  EXPECT_EQ(backend.calls, (Calls{"write 5 0x0010/0 03", "write 5 0xFFF0/0 06 00",
                                  "write 5 0xFFF0/0 0F 00", "write 5 0x3000/9 01"}));
}

TEST_F(ClawExtend, node_id_is_read_afresh_at_every_write) {
  backend.during_call = [&](const std::string& /*call*/) { ++node_id; };
  run_claw();
  EXPECT_EQ(backend.calls, (Calls{"write 5 0x6860/0 03", "write 6 0x6840/0 06 00",
                                  "write 7 0x6840/0 0F 00", "write 8 0x3000/9 01"}));
}

class ClawExtendFailing : public ClawExtend, public testing::WithParamInterface<FailingStep> {};

TEST_P(ClawExtendFailing, refused_write_undoes_nothing_done_before) {
  expect_refused(GetParam(), sequence, "claw");
}

TEST_P(ClawExtendFailing, throwing_write_undoes_nothing_done_before) {
  expect_thrown(GetParam(), sequence, "claw");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ClawExtendFailing,
    testing::Values(FailingStep{"mode", 0, "SDO write modes_of_operation (velocity) failed", 7,
                                untouched},
                    FailingStep{"shutdown", 1, "SDO write controlword (shutdown) failed", 3,
                                "rpdo 5 2 len 8: 21 22 03 24 25 26 27 28"},
                    FailingStep{"enable_operation", 2, "SDO write controlword (enable) failed", 3,
                                "rpdo 5 2 len 8: 21 22 03 24 25 26 27 28"},
                    FailingStep{"command", 3, "SDO write claw extend command failed", 3,
                                "rpdo 5 2 len 8: 0F 00 03 24 25 26 27 28"}),
    row_name);

// --- home ---

class ClawHome : public ClawAction {
 protected:
  ClawHome() : ClawAction("home") {}

  static inline const Calls sequence{"write 5 0x6860/0 06", "write 5 0x6840/0 0F 00",
                                     "write 5 0x6840/0 1F 00"};
};

TEST_F(ClawHome, writes_mode_then_bit_4_clear_then_set_with_no_shutdown) {
  EXPECT_EQ(run_claw(), ok("Claw home command sent"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(ClawHome, mode_is_recorded_and_mirrored_with_the_last_controlword) {
  run_claw();
  EXPECT_EQ(controller.motor_mode("claw"), 6);
  EXPECT_EQ(image(2), "rpdo 5 2 len 8: 1F 00 06 24 25 26 27 28");
}

TEST_F(ClawHome, other_devices_keep_mode_and_image) {
  run_claw();
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
  EXPECT_EQ(image(1), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(ClawHome, node_id_is_read_afresh_at_every_write) {
  backend.during_call = [&](const std::string& /*call*/) { ++node_id; };
  run_claw();
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x6860/0 06", "write 6 0x6840/0 0F 00", "write 7 0x6840/0 1F 00"}));
}

class ClawHomeFailing : public ClawHome, public testing::WithParamInterface<FailingStep> {};

TEST_P(ClawHomeFailing, refused_write_undoes_nothing_done_before) {
  expect_refused(GetParam(), sequence, "claw");
}

TEST_P(ClawHomeFailing, throwing_write_undoes_nothing_done_before) {
  expect_thrown(GetParam(), sequence, "claw");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ClawHomeFailing,
    testing::Values(FailingStep{"mode", 0, "SDO write homing mode failed", 7, untouched},
                    FailingStep{"bit_4_clear", 1, "SDO write controlword (homing clear) failed", 6,
                                "rpdo 5 2 len 8: 21 22 06 24 25 26 27 28"},
                    FailingStep{"bit_4_set", 2, "SDO write controlword (start homing) failed", 6,
                                "rpdo 5 2 len 8: 21 22 06 24 25 26 27 28"}),
    row_name);

// --- query ---

class ClawQuery : public ClawAction {
 protected:
  ClawQuery() : ClawAction("query") {
    backend.objects[{0x3000, 1}] = {0x02, 0xAA};
    backend.objects[{0x3000, 2}] = {0x01};
  }

  static inline const Calls sequence{"read 5 0x3000/1", "read 5 0x3000/2"};
};

TEST_F(ClawQuery, answers_the_first_byte_of_each_state) {
  EXPECT_EQ(run_claw(), ok("OK", {0x02, 0x01}));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(ClawQuery, surplus_bytes_of_the_second_state_are_dropped) {
  backend.objects[{0x3000, 2}] = {0xFF, 1, 2, 3};
  EXPECT_EQ(run_claw(), ok("OK", {0x02, 0xFF}));
}

TEST_F(ClawQuery, changes_neither_mode_nor_image) {
  run_claw();
  EXPECT_EQ(controller.motor_mode("claw"), 7);
  EXPECT_EQ(image(2), untouched);
}

TEST_F(ClawQuery, does_not_load_an_image) {
  controller.forget_rpdo_shadows();
  run_claw();
  EXPECT_EQ(next_send(2).size(), 5U);
}

TEST_F(ClawQuery, action_state_without_bytes_fails_before_the_second_read) {
  backend.objects[{0x3000, 1}] = {};
  EXPECT_EQ(run_claw(), failed("SDO read action_state failed"));
  EXPECT_EQ(backend.calls, Calls{"read 5 0x3000/1"});
}

TEST_F(ClawQuery, position_state_without_bytes_fails_with_no_data) {
  backend.objects[{0x3000, 2}] = {};
  EXPECT_EQ(run_claw(), failed("SDO read position_state failed"));
  EXPECT_EQ(backend.calls, sequence);
}

TEST_F(ClawQuery, bytes_that_a_refused_read_left_are_dropped) {
  backend.refuse({9});
  EXPECT_EQ(run_claw(), failed("SDO read action_state failed"));
  backend.serve(1);
  backend.refuse({9});
  EXPECT_EQ(run_claw(), failed("SDO read position_state failed"));
}

TEST_F(ClawQuery, node_id_is_read_afresh_at_every_read) {
  backend.during_call = [&](const std::string& /*call*/) { ++node_id; };
  run_claw();
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x3000/1", "read 6 0x3000/2"}));
}

class ClawQueryFailing : public ClawQuery, public testing::WithParamInterface<FailingStep> {};

TEST_P(ClawQueryFailing, refused_read_changes_nothing) {
  expect_refused(GetParam(), sequence, "claw");
}

TEST_P(ClawQueryFailing, throwing_read_changes_nothing) {
  expect_thrown(GetParam(), sequence, "claw");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ClawQueryFailing,
    testing::Values(FailingStep{"action_state", 0, "SDO read action_state failed", 7, untouched},
                    FailingStep{"position_state", 1, "SDO read position_state failed", 7,
                                untouched}),
    row_name);

}  // namespace
}  // namespace velmora_can_bridge
