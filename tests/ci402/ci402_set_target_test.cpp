#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

class Ci402SetTarget : public DriveTest {
 protected:
  Ci402SetTarget() { op.kind = "ci402_set_target"; }
};

// --- refusals ---

TEST_F(Ci402SetTarget, unknown_device_is_found_before_a_short_payload) {
  EXPECT_EQ(run({}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_EQ(run({1, 2}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Ci402SetTarget, payload_of_less_than_two_bytes_is_refused_without_a_bus_call) {
  controller.forget_rpdo_shadows();
  for (const char* transport : {"", "sdo"}) {
    op.transport = transport;
    EXPECT_EQ(run_wheel({}), failed("payload too short for set_target (need 2 bytes)"));
    EXPECT_EQ(run_wheel({1}), failed("payload too short for set_target (need 2 bytes)"));
  }
  EXPECT_TRUE(backend.calls.empty());
}

// --- the object and its width ---

struct TargetRow {
  const char* name;
  std::uint8_t mode;
  Bytes payload;
  const char* call;
  const char* message;
};

void PrintTo(const TargetRow& row, std::ostream* out) { *out << row.name; }

class Ci402SetTargetBySdo : public Ci402SetTarget, public testing::WithParamInterface<TargetRow> {};

TEST_P(Ci402SetTargetBySdo, goes_to_the_object_of_the_mode_in_its_width) {
  set_mode("wheel", GetParam().mode);
  op.transport = "sdo";
  EXPECT_EQ(run_wheel(GetParam().payload), ok(GetParam().message));
  EXPECT_EQ(backend.calls, Calls{GetParam().call});
}

INSTANTIATE_TEST_SUITE_P(Rows, Ci402SetTargetBySdo,
                         testing::Values(TargetRow{"position_is_sign_extended",
                                                   1,
                                                   {0xFE, 0xFF},
                                                   "write 5 0x607A/0 FE FF FF FF",
                                                   "Target set via SDO 0x607A value=-2"},
                                         TargetRow{"position_above_zero",
                                                   1,
                                                   {0xFF, 0x7F},
                                                   "write 5 0x607A/0 FF 7F 00 00",
                                                   "Target set via SDO 0x607A value=32767"},
                                         TargetRow{"torque_is_two_bytes",
                                                   4,
                                                   {0x00, 0x80},
                                                   "write 5 0x6071/0 00 80",
                                                   "Target set via SDO 0x6071 value=-32768"},
                                         TargetRow{"torque_drops_further_bytes",
                                                   4,
                                                   {0x34, 0x12, 0x56, 0x78},
                                                   "write 5 0x6071/0 34 12",
                                                   "Target set via SDO 0x6071 value=4660"},
                                         TargetRow{"velocity_below_zero",
                                                   3,
                                                   {0x0C, 0xFE},
                                                   "write 5 0x60FF/0 0C FE FF FF",
                                                   "Target set via SDO 0x60FF value=-500"},
                                         TargetRow{"velocity_lowest",
                                                   3,
                                                   {0x00, 0x80},
                                                   "write 5 0x60FF/0 00 80 FF FF",
                                                   "Target set via SDO 0x60FF value=-32768"},
                                         TargetRow{"velocity_drops_further_bytes",
                                                   3,
                                                   {0x01, 0x00, 0x99, 0x99},
                                                   "write 5 0x60FF/0 01 00 00 00",
                                                   "Target set via SDO 0x60FF value=1"},
                                         TargetRow{"zero",
                                                   3,
                                                   {0, 0},
                                                   "write 5 0x60FF/0 00 00 00 00",
                                                   "Target set via SDO 0x60FF value=0"},
                                         TargetRow{"mode_0_is_velocity",
                                                   0,
                                                   {0xFF, 0xFF},
                                                   "write 5 0x60FF/0 FF FF FF FF",
                                                   "Target set via SDO 0x60FF value=-1"}),
                         row_name);

TEST_F(Ci402SetTarget, every_mode_but_position_and_torque_is_velocity) {
  op.transport = "sdo";
  for (int mode = 0; mode <= 255; ++mode) {
    SCOPED_TRACE(mode);
    set_mode("wheel", static_cast<std::uint8_t>(mode));
    run_wheel({0xFE, 0xFF});
    const char* const expected = mode == 1   ? "write 5 0x607A/0 FE FF FF FF"
                                 : mode == 4 ? "write 5 0x6071/0 FE FF"
                                             : "write 5 0x60FF/0 FE FF FF FF";
    EXPECT_EQ(backend.calls, Calls{expected});
  }
}

TEST_F(Ci402SetTarget, every_value_is_written_whole) {
  op.transport = "sdo";
  for (int value = -32768; value <= 32767; ++value) {
    backend.calls.clear();
    const auto low = static_cast<std::uint8_t>(value & 0xFF);
    const auto high = static_cast<std::uint8_t>((static_cast<unsigned>(value) >> 8U) & 0xFFU);
    ASSERT_EQ(run_wheel({low, high}),
              ok("Target set via SDO 0x60FF value=" + std::to_string(value)));
    ASSERT_EQ(last(backend.calls).substr(22), value < 0 ? " FF FF" : " 00 00");
  }
}

TEST_F(Ci402SetTarget, device_without_a_recorded_mode_gets_a_velocity) {
  board.device_od_map["spare"] = {"ci402", 0x7040, 0};
  EXPECT_EQ(run({1, 0}, "spare"), ok("Target set via SDO 0x70FF value=1"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x70FF/0 01 00 00 00"});
}

TEST_F(Ci402SetTarget, mode_is_that_of_the_device_addressed) {
  set_mode("claw", 1);
  op.transport = "sdo";
  run_wheel({1, 0});
  run_claw({1, 0});
  EXPECT_EQ(backend.calls, (Calls{"write 5 0x60FF/0 01 00 00 00", "write 5 0x687A/0 01 00 00 00"}));
}

TEST_F(Ci402SetTarget, index_of_each_target_wraps_at_16_bits) {
  board.device_od_map["wheel"].base_index = 0xFFF0;
  op.transport = "sdo";
  for (const std::uint8_t mode : Bytes{1, 3, 4}) {
    set_mode("wheel", mode);
    run_wheel({1, 0});
    EXPECT_EQ(backend.calls, Calls{mode == 1   ? "write 5 0x002A/0 01 00 00 00"
                                   : mode == 3 ? "write 5 0x00AF/0 01 00 00 00"
                                               : "write 5 0x0021/0 01 00"});
  }
}

// --- the path ---

TEST_F(Ci402SetTarget, mapped_target_goes_by_rpdo) {
  EXPECT_EQ(run_wheel({0x0C, 0xFE}), ok("Target set via RPDO 0x60FF value=-500"));
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 13 14 0C FE FF FF"});
}

TEST_F(Ci402SetTarget, rpdo_is_loaded_first_when_it_is_not) {
  controller.forget_rpdo_shadows();
  run_wheel({1, 0});
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x6040/0", "read 5 0x6060/0", "read 5 0x6061/0",
                                  "read 5 0x60FF/0", "rpdo 5 1 len 8: 11 12 13 14 01 00 00 00"}));
}

TEST_F(Ci402SetTarget, target_that_no_rpdo_maps_goes_by_sdo) {
  set_mode("wheel", 1);
  EXPECT_EQ(run_wheel({1, 0}), ok("Target set via SDO 0x607A value=1"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x607A/0 01 00 00 00"});
}

TEST_F(Ci402SetTarget, only_the_exact_text_sdo_forces_sdo) {
  for (const char* transport : {"SDO", "Sdo", " sdo", "sdo ", "pdo", "rpdo"}) {
    SCOPED_TRACE(transport);
    backend.calls.clear();
    op.transport = transport;
    EXPECT_EQ(run_wheel({1, 0}), ok("Target set via RPDO 0x60FF value=1"));
    EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 13 14 01 00 00 00"});
  }
}

TEST_F(Ci402SetTarget, by_sdo_leaves_the_image_of_a_mapped_target_alone) {
  op.transport = "sdo";
  EXPECT_EQ(run_wheel({1, 0}), ok("Target set via SDO 0x60FF value=1"));
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(Ci402SetTarget, by_sdo_does_not_load_the_image_of_a_mapped_target) {
  controller.forget_rpdo_shadows();
  op.transport = "sdo";
  run_wheel({1, 0});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x60FF/0 01 00 00 00"});
  EXPECT_EQ(next_send().size(), 5U);
}

TEST_F(Ci402SetTarget, position_by_rpdo_is_four_bytes) {
  set_mode("wheel", 1);
  board.pdos.push_back({3, "RPDO", 0, {{0x2000, 1, 16, "word"}, {0x607A, 0, 32, "position"}}});
  EXPECT_EQ(run_wheel({0xFE, 0xFF}), ok("Target set via RPDO 0x607A value=-2"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 3 len 6: 11 12 FE FF FF FF 00 00");
}

TEST_F(Ci402SetTarget, torque_by_rpdo_is_two_bytes) {
  set_mode("wheel", 4);
  backend.objects[{0x6071, 0}] = {0x55, 0x66, 0x77, 0x88};
  board.pdos.push_back({3, "RPDO", 0, {{0x2000, 1, 16, "word"}, {0x6071, 0, 32, "torque"}}});
  EXPECT_EQ(run_wheel({0x00, 0x80}), ok("Target set via RPDO 0x6071 value=-32768"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 3 len 6: 11 12 00 80 77 88 00 00");
}

TEST_F(Ci402SetTarget, consults_no_member_of_the_operation_but_the_transport) {
  op.index = 0x7777;
  op.sub_index = 7;
  op.index_offset = 7;
  op.pdo_number = 2;
  op.field = "mode";
  op.fields = {"mode"};
  op.refresh_shadow = 1;
  op.fixed_data = {9};
  run_wheel({1, 0});
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 13 14 01 00 00 00"});
}

TEST_F(Ci402SetTarget, leaves_the_recorded_mode) {
  run_wheel({1, 0});
  op.transport = "sdo";
  run_wheel({1, 0});
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
}

TEST_F(Ci402SetTarget, node_id_is_read_afresh_at_every_call) {
  controller.forget_rpdo_shadows();
  backend.during_call = [&](const std::string& /*call*/) { ++node_id; };
  run_wheel({1, 0});
  op.transport = "sdo";
  run_wheel({1, 0});
  EXPECT_EQ(backend.calls,
            (Calls{"read 5 0x6040/0", "read 6 0x6060/0", "read 7 0x6061/0", "read 8 0x60FF/0",
                   "rpdo 9 1 len 8: 11 12 13 14 01 00 00 00", "write 10 0x60FF/0 01 00 00 00"}));
}

// --- the mapping ---

/// RPDOs of the tests' own in the place of those of the fixture.
class Ci402SetTargetMapping : public Ci402SetTarget {
 protected:
  static constexpr std::uint16_t velocity = 0x60FF;
};

TEST_F(Ci402SetTargetMapping, at_another_sub_index_alone_is_not_found_and_does_not_go_by_sdo) {
  board.pdos = {{3, "RPDO", 0, {{velocity, 1, 32, "velocity"}}}};
  EXPECT_EQ(run_wheel({1, 0}), failed("target 0x60FF not found in RPDO mapping"));
  EXPECT_EQ(backend.calls, Calls{"read 5 0x60FF/1"});  // the load comes first
}

TEST_F(Ci402SetTargetMapping, of_a_later_rpdo_does_not_stand_in_for_the_first_that_maps_the_index) {
  board.pdos = {{3, "RPDO", 0, {{velocity, 1, 32, ""}}}, {4, "RPDO", 0, {{velocity, 0, 32, ""}}}};
  EXPECT_EQ(run_wheel({1, 0}), failed("target 0x60FF not found in RPDO mapping"));
}

TEST_F(Ci402SetTargetMapping, that_is_not_found_leaves_the_image_and_the_lock) {
  board.pdos[0].mappings[3].sub_index = 1;
  EXPECT_EQ(run_wheel({1, 0}), failed("target 0x60FF not found in RPDO mapping"));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(Ci402SetTargetMapping, is_looked_for_after_the_load) {
  board.pdos = {{3, "RPDO", 0, {{velocity, 1, 32, "velocity"}}}};
  backend.refuse();
  EXPECT_EQ(run_wheel({1, 0}), failed("RPDO shadow sync failed for wheel"));
}

TEST_F(Ci402SetTargetMapping, of_a_later_entry_of_the_number_is_used) {
  board.pdos = {{3, "TPDO", 0, {{velocity, 0, 32, "velocity"}}},
                {3, "RPDO", 0, {{velocity, 1, 8, "other"}, {0x2000, 2, 8, "byte"}}},
                {4, "RPDO", 0, {{velocity, 0, 32, "velocity"}}},
                {3, "RPDO", 0, {{0x2000, 1, 16, "word"}, {velocity, 0, 32, "velocity"}}}};
  EXPECT_EQ(run_wheel({1, 0}), ok("Target set via RPDO 0x60FF value=1"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 3 len 6: 11 12 01 00 00 00 00 00");
}

TEST_F(Ci402SetTargetMapping, in_a_pdo_of_another_direction_goes_by_sdo) {
  board.pdos = {{3, "TPDO", 0, {{velocity, 0, 32, ""}}}, {3, "rpdo", 0, {{velocity, 0, 32, ""}}}};
  EXPECT_EQ(run_wheel({1, 0}), ok("Target set via SDO 0x60FF value=1"));
}

TEST_F(Ci402SetTargetMapping, in_an_rpdo_numbered_0_goes_by_sdo) {
  board.pdos = {{0, "RPDO", 0, {{velocity, 0, 32, "velocity"}}}};
  EXPECT_EQ(run_wheel({1, 0}), ok("Target set via SDO 0x60FF value=1"));
}

TEST_F(Ci402SetTargetMapping, of_the_first_of_two_rpdos_is_used) {
  board.pdos = {{9, "RPDO", 0, {{velocity, 0, 32, ""}}}, {3, "RPDO", 0, {{velocity, 0, 32, ""}}}};
  run_wheel({1, 0});
  EXPECT_EQ(last(backend.calls), "rpdo 5 9 len 4: 01 00 00 00 00 00 00 00");
}

TEST_F(Ci402SetTargetMapping, first_of_two_in_one_rpdo_is_used) {
  board.pdos = {
      {3, "RPDO", 0, {{velocity, 1, 8, "v"}, {velocity, 0, 16, "v"}, {velocity, 0, 16, "v"}}}};
  run_wheel({1, 2});
  EXPECT_EQ(last(backend.calls), "rpdo 5 3 len 5: 00 01 02 15 16 00 00 00");
}

// --- failures of the bus ---

TEST_F(Ci402SetTarget, refused_sdo_write_names_the_object) {
  op.transport = "sdo";
  struct Row {
    std::uint8_t mode;
    const char* message;
  };
  for (const Row& row :
       {Row{1, "SDO write target 0x607A failed"}, Row{3, "SDO write target 0x60FF failed"},
        Row{4, "SDO write target 0x6071 failed"}}) {
    set_mode("wheel", row.mode);
    backend.refuse();
    EXPECT_EQ(run_wheel({1, 0}), failed(row.message));
    EXPECT_EQ(backend.calls.size(), 1U);
    EXPECT_EQ(controller.motor_mode("wheel"), row.mode);
  }
}

class Ci402SetTargetBySdoFailing : public Ci402SetTarget,
                                   public testing::WithParamInterface<FailingStep> {
 protected:
  Ci402SetTargetBySdoFailing() { op.transport = "sdo"; }
};

TEST_P(Ci402SetTargetBySdoFailing, refused_write_leaves_record_and_image_alone) {
  expect_refused(GetParam(), {"write 5 0x60FF/0 01 00 00 00"}, "wheel", {1, 0});
}

TEST_P(Ci402SetTargetBySdoFailing, throwing_write_leaves_record_and_image_alone) {
  expect_thrown(GetParam(), {"write 5 0x60FF/0 01 00 00 00"}, "wheel", {1, 0});
}

INSTANTIATE_TEST_SUITE_P(Calls, Ci402SetTargetBySdoFailing,
                         testing::Values(FailingStep{"target", 0, "SDO write target 0x60FF failed",
                                                     7, "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}),
                         row_name);

/// A drive whose target velocity is the field "wide".
class Ci402SetTargetFailing : public ShadowTest, public testing::WithParamInterface<FailingCall> {
 protected:
  Ci402SetTargetFailing() {
    op.kind = "ci402_set_target";
    board.device_od_map["wheel"] = {"ci402", 0x2002 - 0xBF, 0};
  }
};

TEST_P(Ci402SetTargetFailing, leaves_the_image_that_the_next_send_shows) {
  const Frame changed{0x11, 0x12, 0x13, 0x14, 0xFE, 0xFF, 0xFF, 0xFF};
  expect_failing_call(GetParam(), {0xFE, 0xFF}, "wheel", sent(changed),
                      "RPDO send target 0x2002 failed", changed, "wheel");
  EXPECT_EQ(controller.motor_mode("wheel"), 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, Ci402SetTargetFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
