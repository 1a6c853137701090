#include "support/controller_test.hpp"

namespace velmora_can_bridge {
namespace {

/// What one configuration and payload lead to, on a node that accepts everything.
struct WriteRow {
  const char* name;
  std::uint8_t subindex_in_payload;
  Bytes fixed_data;
  Bytes default_data;
  const char* data_type;
  Bytes payload;
  const char* call;  ///< the one bus call; null when nothing may be sent
  const char* message;
};

void PrintTo(const WriteRow& row, std::ostream* out) { *out << row.name; }

constexpr auto write_too_short = "payload too short for sdo_write";
constexpr auto need_sub = "payload empty for sdo_write (need sub+data)";

class SdoWrite : public ControllerTest {
 protected:
  SdoWrite() {
    op.kind = "sdo_write";
    op.index = 0x2001;
    op.sub_index = 4;
  }
};

class SdoWriteChoice : public SdoWrite, public testing::WithParamInterface<WriteRow> {};

TEST_P(SdoWriteChoice, writes_once_or_says_why_not) {
  const WriteRow& row = GetParam();
  op.subindex_in_payload = row.subindex_in_payload;
  op.fixed_data = row.fixed_data;
  op.default_data = row.default_data;
  op.data_type = row.data_type;

  const OperationResult result = run(row.payload);

  if (row.call == nullptr) {
    EXPECT_EQ(result, failed(row.message));
    EXPECT_TRUE(backend.calls.empty());
  } else {
    EXPECT_EQ(result, ok(row.message));
    EXPECT_EQ(backend.calls, std::vector<std::string>{row.call});
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SdoWriteChoice,
    testing::Values(
        WriteRow{"fixed_data_wins_over_the_payload",
                 0,
                 {1, 2},
                 {},
                 "",
                 {9, 9, 9},
                 "write 5 0x2001/4 01 02",
                 "OK"},
        WriteRow{"fixed_data_wins_over_default_data_and_type",
                 0,
                 {1, 2},
                 {7},
                 "u32",
                 {},
                 "write 5 0x2001/4 01 02",
                 "OK"},
        WriteRow{"fixed_data_wins_over_an_unknown_type",
                 0,
                 {1},
                 {},
                 "U16",
                 {9},
                 "write 5 0x2001/4 01",
                 "OK"},
        WriteRow{"default_data_stands_in_for_an_empty_payload",
                 0,
                 {},
                 {7},
                 "",
                 {},
                 "write 5 0x2001/4 07",
                 "OK"},
        WriteRow{"default_data_is_not_cut_to_the_type",
                 0,
                 {},
                 {7, 8, 9},
                 "u8",
                 {},
                 "write 5 0x2001/4 07 08 09",
                 "OK"},
        WriteRow{
            "payload_wins_over_default_data", 0, {}, {7}, "", {5}, "write 5 0x2001/4 05", "OK"},
        WriteRow{"payload_too_short_does_not_fall_back_to_default_data",
                 0,
                 {},
                 {7},
                 "u16",
                 {5},
                 nullptr,
                 write_too_short},
        WriteRow{
            "no_type_and_no_payload_writes_no_bytes", 0, {}, {}, "", {}, "write 5 0x2001/4", "OK"},
        WriteRow{
            "raw_and_no_payload_writes_no_bytes", 0, {}, {}, "raw", {}, "write 5 0x2001/4", "OK"},
        WriteRow{"raw_writes_the_whole_payload",
                 0,
                 {},
                 {},
                 "raw",
                 {1, 2, 3, 4, 5},
                 "write 5 0x2001/4 01 02 03 04 05",
                 "OK"},
        WriteRow{"u16_of_one_byte_is_refused", 0, {}, {}, "u16", {0x34}, nullptr, write_too_short},
        WriteRow{
            "u16_of_two_bytes", 0, {}, {}, "u16", {0x34, 0x12}, "write 5 0x2001/4 34 12", "OK"},
        WriteRow{"u16_drops_surplus_bytes",
                 0,
                 {},
                 {},
                 "u16",
                 {0x34, 0x12, 0xFF},
                 "write 5 0x2001/4 34 12",
                 "OK"},
        WriteRow{
            "s32_is_not_extended", 0, {}, {}, "s32", {0xFF, 0xFF, 0xFF}, nullptr, write_too_short},
        WriteRow{"u8_of_no_bytes_is_refused", 0, {}, {}, "u8", {}, nullptr, write_too_short},
        WriteRow{
            "upper_case_type_is_unknown", 0, {}, {}, "U16", {1, 2, 3, 4}, nullptr, write_too_short},
        WriteRow{
            "unknown_type_of_no_bytes_is_refused", 0, {}, {}, "f32", {}, nullptr, write_too_short},
        WriteRow{"sub_index_alone_writes_no_bytes", 1, {}, {}, "", {3}, "write 5 0x2001/3", "OK"},
        WriteRow{
            "sub_index_then_data", 1, {}, {}, "", {3, 0xAA, 0xBB}, "write 5 0x2001/3 AA BB", "OK"},
        WriteRow{"sub_index_form_ignores_fixed_data",
                 1,
                 {1, 2},
                 {7},
                 "",
                 {3, 0xAA, 0xBB},
                 "write 5 0x2001/3 AA BB",
                 "OK"},
        WriteRow{"sub_index_form_ignores_the_type",
                 1,
                 {},
                 {},
                 "u32",
                 {3, 0xAA},
                 "write 5 0x2001/3 AA",
                 "OK"},
        WriteRow{"any_set_flag_counts", 255, {}, {}, "", {3}, "write 5 0x2001/3", "OK"},
        WriteRow{"sub_index_form_needs_a_payload", 1, {}, {}, "", {}, nullptr, need_sub},
        WriteRow{"sub_index_form_needs_a_payload_whatever_is_configured",
                 1,
                 {1},
                 {7},
                 "raw",
                 {},
                 nullptr,
                 need_sub}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(SdoWrite, refused_write_names_the_object) {
  backend.refuse();
  EXPECT_EQ(run({1}), failed("SDO write failed at 0x2001/4"));
  EXPECT_EQ(backend.calls.size(), 1U);
}

TEST_F(SdoWrite, refused_write_names_the_sub_index_of_the_payload) {
  op.subindex_in_payload = 1;
  backend.refuse();
  EXPECT_EQ(run({12, 1}), failed("SDO write failed at 0x2001/12"));
}

TEST_F(SdoWrite, ignores_the_device) { EXPECT_EQ(run({1}, "nobody"), ok("OK")); }

}  // namespace
}  // namespace velmora_can_bridge
