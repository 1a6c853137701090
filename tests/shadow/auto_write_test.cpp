#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

/// Writes the object 0x2000/2, which is the field "byte".
class AutoWrite : public ShadowTest {
 protected:
  AutoWrite() {
    op.kind = "auto_write";
    op.index = 0x2000;
    op.sub_index = 2;
  }
};

// --- the path ---

struct AutoPathRow {
  const char* name;
  std::uint8_t pdo_number;
  const char* transport;
  std::uint16_t index;
  const char* last_call;
};

void PrintTo(const AutoPathRow& row, std::ostream* out) { *out << row.name; }

class AutoWritePath : public AutoWrite, public testing::WithParamInterface<AutoPathRow> {};

TEST_P(AutoWritePath, is_chosen_by_mapping_and_transport) {
  op.pdo_number = GetParam().pdo_number;
  op.transport = GetParam().transport;
  op.index = GetParam().index;
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), GetParam().last_call);
  const bool by_sdo = last(backend.calls).rfind("write", 0) == 0;
  EXPECT_EQ(backend.calls.size(), by_sdo ? 1U : 5U);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AutoWritePath,
    testing::Values(
        AutoPathRow{"mapped_object_goes_by_rpdo", 0, "", 0x2000,
                    "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        AutoPathRow{"configured_rpdo_is_used", 1, "", 0x2000,
                    "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        AutoPathRow{"any_other_transport_allows_the_rpdo", 0, "pdo", 0x2000,
                    "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        AutoPathRow{"transport_is_compared_with_its_case", 0, "SDO", 0x2000,
                    "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        AutoPathRow{"sdo_transport_wins_over_a_mapping", 0, "sdo", 0x2000, "write 5 0x2000/2 A1"},
        AutoPathRow{"sdo_transport_wins_over_a_configured_rpdo", 1, "sdo", 0x2000,
                    "write 5 0x2000/2 A1"},
        AutoPathRow{"sdo_transport_looks_no_rpdo_up", 9, "sdo", 0x2000, "write 5 0x2000/2 A1"},
        AutoPathRow{"unmapped_object_goes_by_sdo", 0, "", 0x2003, "write 5 0x2003/2 A1"},
        AutoPathRow{"unmapped_object_goes_by_sdo_with_any_transport", 0, "pdo", 0x2003,
                    "write 5 0x2003/2 A1"}),
    row_name);

TEST_F(AutoWrite, rpdo_numbered_0_is_never_found) {
  board.pdos[0].number = 0;
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 A1"});
}

TEST_F(AutoWrite, index_mapped_at_another_sub_index_alone_fails_in_the_rpdo) {
  op.sub_index = 3;
  EXPECT_EQ(run({0xA1}), failed("RPDO mapping not found for device"));
  EXPECT_EQ(backend.calls, loads);
}

TEST_F(AutoWrite, configured_rpdo_that_the_board_lacks_fails_in_the_rpdo) {
  op.pdo_number = 9;
  EXPECT_EQ(run({0xA1}), failed("RPDO mapping not found for device"));
  EXPECT_TRUE(backend.calls.empty());
}

// --- the value ---

struct ValueRow {
  const char* name;
  const char* data_type;
  Bytes payload;
  const char* send;
  const char* write;
};

void PrintTo(const ValueRow& row, std::ostream* out) { *out << row.name; }

class AutoWriteValue : public AutoWrite, public testing::WithParamInterface<ValueRow> {
 protected:
  AutoWriteValue() {
    op.data_type = GetParam().data_type;
    op.index = 0x2002;
    op.sub_index = 0;
  }
};

TEST_P(AutoWriteValue, goes_encoded_into_the_field) {
  EXPECT_EQ(run(GetParam().payload), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({GetParam().send}));
}

TEST_P(AutoWriteValue, goes_encoded_by_sdo) {
  op.transport = "sdo";
  EXPECT_EQ(run(GetParam().payload), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{GetParam().write});
}

INSTANTIATE_TEST_SUITE_P(Rows, AutoWriteValue,
                         testing::Values(ValueRow{"raw_payload_is_whole",
                                                  "",
                                                  {1, 2, 3, 4},
                                                  "rpdo 5 1 len 8: 11 12 13 14 01 02 03 04",
                                                  "write 5 0x2002/0 01 02 03 04"},
                                         ValueRow{"u16_of_a_longer_payload_is_cut",
                                                  "u16",
                                                  {1, 2, 3, 4},
                                                  "rpdo 5 1 len 8: 11 12 13 14 01 02 17 18",
                                                  "write 5 0x2002/0 01 02"},
                                         ValueRow{"s8_is_not_extended",
                                                  "s8",
                                                  {0xFF},
                                                  "rpdo 5 1 len 8: 11 12 13 14 FF 16 17 18",
                                                  "write 5 0x2002/0 FF"},
                                         ValueRow{"raw_without_payload_writes_no_byte",
                                                  "raw",
                                                  {},
                                                  "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18",
                                                  "write 5 0x2002/0"}),
                         row_name);

struct RefusedValue {
  const char* name;
  const char* data_type;
  Bytes payload;
};

void PrintTo(const RefusedValue& row, std::ostream* out) { *out << row.name; }

class AutoWriteRefusedValue : public AutoWrite, public testing::WithParamInterface<RefusedValue> {
 protected:
  AutoWriteRefusedValue() { op.data_type = GetParam().data_type; }
};

TEST_P(AutoWriteRefusedValue, touches_nothing_on_the_rpdo_path) {
  EXPECT_EQ(run(GetParam().payload), failed("payload too short for auto_write"));
  EXPECT_TRUE(backend.calls.empty());
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_P(AutoWriteRefusedValue, is_found_before_a_missing_rpdo) {
  op.pdo_number = 9;
  EXPECT_EQ(run(GetParam().payload), failed("payload too short for auto_write"));
}

TEST_P(AutoWriteRefusedValue, has_a_text_of_its_own_on_the_sdo_path) {
  op.transport = "sdo";
  op.pdo_number = 1;
  EXPECT_EQ(run(GetParam().payload), failed("payload too short for auto_write (SDO)"));
  op.transport = "";
  op.pdo_number = 0;
  op.index = 0x2003;
  EXPECT_EQ(run(GetParam().payload), failed("payload too short for auto_write (SDO)"));
  EXPECT_TRUE(backend.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(Rows, AutoWriteRefusedValue,
                         testing::Values(RefusedValue{"u8_without_payload", "u8", {}},
                                         RefusedValue{"u32_of_three_bytes", "u32", {1, 2, 3}},
                                         RefusedValue{"unknown_type", "U8", {1, 2, 3, 4}}),
                         row_name);

// --- what the derived write is given ---

TEST_F(AutoWrite, field_name_wins_over_the_object) {
  op.field = "flags";
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18"}));
}

TEST_F(AutoWrite, list_of_fields_is_passed_on) {
  op.fields = {"flags", "byte"};
  EXPECT_EQ(run({0xA1, 0xA2}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 A2 A1 15 16 17 18"}));
}

TEST_F(AutoWrite, list_of_fields_is_written_whole_not_patched) {
  op.fields = {"flags", "byte"};
  EXPECT_EQ(run({0xA1}), failed("payload too short for field byte"));
}

TEST_F(AutoWrite, list_of_fields_plays_no_part_on_the_sdo_path) {
  op.transport = "sdo";
  op.fields = {"flags", "byte"};
  op.field = "wide";
  EXPECT_EQ(run({0xA1, 0xA2}), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 A1 A2"});
}

TEST_F(AutoWrite, found_rpdo_is_the_one_written) {
  board.pdos = {{4, "RPDO", 0, {{0x2000, 1, 8, ""}, {0x2000, 2, 8, ""}}},
                {3, "RPDO", 0, {{0x2000, 2, 8, ""}}}};
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 4 len 2: 11 A1 00 00 00 00 00 00");
}

TEST_F(AutoWrite, refresh_flag_is_passed_on) {
  next_send();
  set_node(restarted);
  op.refresh_shadow = 1;
  run({0xA1});
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 21 22 A1 24 25 26 27 28"}));
}

TEST_F(AutoWrite, operation_itself_is_not_changed) {
  run({0xA1});
  EXPECT_EQ(op.kind, "auto_write");
  EXPECT_EQ(op.pdo_number, 0);
}

TEST_F(AutoWrite, sdo_write_leaves_the_image_alone) {
  next_send();
  op.transport = "sdo";
  run({0xA1});
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

// --- failures of the bus ---

TEST_F(AutoWrite, refused_sdo_write_names_the_object) {
  op.transport = "sdo";
  op.sub_index = 100;
  backend.refuse();
  EXPECT_EQ(run({1}), failed("SDO write failed at 0x2000/100"));
  EXPECT_EQ(backend.calls.size(), 1U);
}

TEST_F(AutoWrite, exception_of_the_sdo_write_passes_to_the_caller) {
  op.transport = "sdo";
  backend.raise_exception();
  EXPECT_THROW(run({1}), BusException);
  EXPECT_EQ(run({1}), ok("OK"));
}

class AutoWriteFailing : public AutoWrite, public testing::WithParamInterface<FailingCall> {};

TEST_P(AutoWriteFailing, leaves_the_image_that_the_next_send_shows) {
  expect_failing_call(GetParam(), {0xA1}, "device",
                      {0x11, 0x12, 0xA1, 0x14, 0x15, 0x16, 0x17, 0x18});
}

TEST_P(AutoWriteFailing, leaves_the_refreshed_image_with_the_write) {
  op.refresh_shadow = 1;
  expect_failing_call_of_refresh(GetParam(), {0xA1}, [](Frame& frame) { frame[2] = 0xA1; });
}

INSTANTIATE_TEST_SUITE_P(Calls, AutoWriteFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
