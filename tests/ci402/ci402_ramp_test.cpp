#include "support/drive_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr auto ramp_too_short = "payload too short for ci402_ramp (need 4 bytes)";

/// The offset of the profile acceleration, 0x6083.
class Ci402Ramp : public DriveTest {
 protected:
  Ci402Ramp() {
    op.kind = "ci402_ramp";
    op.index_offset = 0x43;
  }
};

struct RampRow {
  const char* name;
  Bytes payload;
  const char* call;
  const char* message;
};

void PrintTo(const RampRow& row, std::ostream* out) { *out << row.name; }

class Ci402RampValue : public Ci402Ramp, public testing::WithParamInterface<RampRow> {};

TEST_P(Ci402RampValue, is_written_as_it_came) {
  EXPECT_EQ(run_wheel(GetParam().payload), ok(GetParam().message));
  EXPECT_EQ(backend.calls, Calls{GetParam().call});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Ci402RampValue,
    testing::Values(RampRow{"five_thousand",
                            {0x88, 0x13, 0, 0},
                            "write 5 0x6083/0 88 13 00 00",
                            "Ramp set to 5000"},
                    RampRow{"zero", {0, 0, 0, 0}, "write 5 0x6083/0 00 00 00 00", "Ramp set to 0"},
                    RampRow{"highest_is_unsigned",
                            {0xFF, 0xFF, 0xFF, 0xFF},
                            "write 5 0x6083/0 FF FF FF FF",
                            "Ramp set to 4294967295"},
                    RampRow{"highest_bit_alone",
                            {0, 0, 0, 0x80},
                            "write 5 0x6083/0 00 00 00 80",
                            "Ramp set to 2147483648"},
                    RampRow{"four_different_bytes",
                            {1, 2, 3, 4},
                            "write 5 0x6083/0 01 02 03 04",
                            "Ramp set to 67305985"},
                    RampRow{"further_bytes_are_ignored",
                            {1, 0, 0, 0, 9, 9},
                            "write 5 0x6083/0 01 00 00 00",
                            "Ramp set to 1"}),
    row_name);

TEST_F(Ci402Ramp, payload_of_less_than_four_bytes_is_refused_without_a_bus_call) {
  for (std::size_t length = 0; length < 4; ++length) {
    EXPECT_EQ(run_wheel(Bytes(length, 1)), failed(ramp_too_short));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Ci402Ramp, unknown_device_is_found_before_a_short_payload) {
  EXPECT_EQ(run({}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_EQ(run({1, 2, 3, 4}, "Wheel"), failed("Device not found: Wheel"));
  EXPECT_TRUE(backend.calls.empty());
}

struct IndexRow {
  const char* name;
  std::uint16_t base_index;
  std::uint16_t index_offset;
  const char* call;
  const char* refusal;
};

void PrintTo(const IndexRow& row, std::ostream* out) { *out << row.name; }

class Ci402RampIndex : public Ci402Ramp, public testing::WithParamInterface<IndexRow> {
 protected:
  Ci402RampIndex() {
    board.device_od_map["wheel"].base_index = GetParam().base_index;
    op.index_offset = GetParam().index_offset;
  }
};

TEST_P(Ci402RampIndex, is_the_base_plus_the_offset_in_16_bits) {
  run_wheel({1, 0, 0, 0});
  EXPECT_EQ(backend.calls, Calls{GetParam().call});
}

TEST_P(Ci402RampIndex, is_named_when_the_write_is_refused) {
  backend.refuse();
  EXPECT_EQ(run_wheel({1, 0, 0, 0}), failed(GetParam().refusal));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Ci402RampIndex,
    testing::Values(IndexRow{"offset", 0x6040, 0x43, "write 5 0x6083/0 01 00 00 00",
                             "SDO write 0x6083 failed"},
                    IndexRow{"no_offset_is_the_controlword", 0x6040, 0,
                             "write 5 0x6040/0 01 00 00 00", "SDO write 0x6040 failed"},
                    IndexRow{"sum_wraps", 0xFFF0, 0x20, "write 5 0x0010/0 01 00 00 00",
                             "SDO write 0x0010 failed"},
                    IndexRow{"sum_wraps_to_0", 0x6040, 0x9FC0, "write 5 0x0000/0 01 00 00 00",
                             "SDO write 0x0000 failed"},
                    IndexRow{"largest_offset_steps_back", 0x6040, 0xFFFF,
                             "write 5 0x603F/0 01 00 00 00", "SDO write 0x603F failed"}),
    row_name);

TEST_F(Ci402Ramp, is_not_mirrored) {
  op.index_offset = 0xBF;
  EXPECT_EQ(run_wheel({1, 2, 3, 4}), ok("Ramp set to 67305985"));
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(Ci402Ramp, on_the_object_of_the_mode_records_no_mode) {
  op.index_offset = 0x20;
  run_wheel({3, 0, 0, 0});
  EXPECT_EQ(controller.motor_mode("wheel"), 7);
  EXPECT_EQ(image(), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
}

TEST_F(Ci402Ramp, consults_no_other_member_of_the_operation) {
  op.transport = "pdo";
  op.index = 0x7777;
  op.sub_index = 7;
  op.pdo_number = 1;
  op.fixed_data = {9};
  op.data_type = "u8";
  run_wheel({1, 2, 3, 4});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x6083/0 01 02 03 04"});
}

TEST_F(Ci402Ramp, node_id_is_read_afresh) {
  node_id = 127;
  run_wheel({1, 2, 3, 4});
  EXPECT_EQ(backend.calls, Calls{"write 127 0x6083/0 01 02 03 04"});
}

class Ci402RampFailing : public Ci402Ramp, public testing::WithParamInterface<FailingStep> {};

TEST_P(Ci402RampFailing, refused_write_leaves_record_and_image_alone) {
  expect_refused(GetParam(), {"write 5 0x6083/0 01 02 03 04"}, "wheel", {1, 2, 3, 4});
}

TEST_P(Ci402RampFailing, throwing_write_leaves_record_and_image_alone) {
  expect_thrown(GetParam(), {"write 5 0x6083/0 01 02 03 04"}, "wheel", {1, 2, 3, 4});
}

INSTANTIATE_TEST_SUITE_P(Calls, Ci402RampFailing,
                         testing::Values(FailingStep{"ramp", 0, "SDO write 0x6083 failed", 7,
                                                     "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}),
                         row_name);

}  // namespace
}  // namespace velmora_can_bridge
