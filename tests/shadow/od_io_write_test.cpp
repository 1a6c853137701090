#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

/// Device "io" at 0x2000: payload {0, 0, 2, ...} addresses the field "byte".
class OdIoWrite : public ShadowTest {
 protected:
  OdIoWrite() { op.kind = "od_io_write"; }

  OperationResult run_io(const Bytes& payload) { return run(payload, "io"); }
};

// --- refusals before any bus call ---

TEST_F(OdIoWrite, unknown_device_is_named) {
  EXPECT_EQ(run({0, 0, 2, 1}, "IO"), failed("Device not found: IO"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(OdIoWrite, unknown_device_is_found_before_a_short_payload) {
  EXPECT_EQ(run({}, "nobody"), failed("Device not found: nobody"));
}

TEST_F(OdIoWrite, payload_of_less_than_three_bytes_is_refused) {
  for (const Bytes& payload : {Bytes{}, Bytes{0}, Bytes{0, 0}}) {
    EXPECT_EQ(run_io(payload), failed("payload too short for od_io_write (need offset+sub+data)"));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(OdIoWrite, short_payload_is_refused_on_the_sdo_path_as_well) {
  op.transport = "sdo";
  EXPECT_EQ(run_io({0, 0}), failed("payload too short for od_io_write (need offset+sub+data)"));
}

// --- the path ---

struct WritePathRow {
  const char* name;
  const char* transport;
  Bytes payload;
  const char* last_call;
};

void PrintTo(const WritePathRow& row, std::ostream* out) { *out << row.name; }

class OdIoWritePath : public OdIoWrite, public testing::WithParamInterface<WritePathRow> {};

TEST_P(OdIoWritePath, is_chosen_by_transport_then_by_the_mapped_objects) {
  op.transport = GetParam().transport;
  EXPECT_EQ(run_io(GetParam().payload), ok("OK"));
  EXPECT_EQ(last(backend.calls), GetParam().last_call);
  const bool by_sdo = last(backend.calls).rfind("write", 0) == 0;
  EXPECT_EQ(backend.calls.size(), by_sdo ? 1U : 5U);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, OdIoWritePath,
    testing::Values(
        WritePathRow{"mapped_object_goes_by_rpdo",
                     "",
                     {0, 0, 2, 0xA1},
                     "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        WritePathRow{"offset_is_added_to_the_base",
                     "",
                     {1, 0, 0, 0xA1},
                     "rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18"},
        WritePathRow{"any_other_transport_allows_the_rpdo",
                     "pdo",
                     {0, 0, 2, 0xA1},
                     "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        WritePathRow{"transport_is_compared_with_its_case",
                     "SDO",
                     {0, 0, 2, 0xA1},
                     "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        WritePathRow{
            "sdo_transport_wins_over_a_mapping", "sdo", {0, 0, 2, 0xA1}, "write 5 0x2000/2 A1"},
        WritePathRow{"other_sub_index_goes_by_sdo", "", {0, 0, 3, 0xA1}, "write 5 0x2000/3 A1"},
        WritePathRow{"other_index_goes_by_sdo", "", {3, 0, 2, 0xA1}, "write 5 0x2003/2 A1"},
        WritePathRow{"offset_is_little_endian", "", {0x34, 0x12, 7, 1}, "write 5 0x3234/7 01"},
        WritePathRow{"offset_wraps_at_16_bits", "", {0x05, 0xE0, 7, 1}, "write 5 0x0005/7 01"},
        WritePathRow{"no_data_is_an_empty_sdo_write", "sdo", {0, 0, 2}, "write 5 0x2000/2"},
        WritePathRow{"no_data_sends_the_image_unchanged",
                     "",
                     {0, 0, 2},
                     "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"},
        WritePathRow{
            "data_goes_whole_by_sdo", "sdo", {0, 0, 2, 1, 2, 3}, "write 5 0x2000/2 01 02 03"},
        WritePathRow{"surplus_data_reaches_no_neighbour",
                     "",
                     {0, 0, 2, 0xA1, 0xEE, 0xEE},
                     "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        WritePathRow{"data_shorter_than_the_field_leaves_its_rest",
                     "",
                     {2, 0, 0, 0xA1, 0xA2},
                     "rpdo 5 1 len 8: 11 12 13 14 A1 A2 17 18"}),
    row_name);

TEST_F(OdIoWrite, board_without_pdos_goes_by_sdo) {
  board.pdos.clear();
  EXPECT_EQ(run_io({0, 0, 2, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 01"});
}

TEST_F(OdIoWrite, pdo_of_another_direction_is_passed_over) {
  board.pdos[0].direction = "TPDO";
  EXPECT_EQ(run_io({0, 0, 2, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 01"});
}

TEST_F(OdIoWrite, earlier_of_two_rpdos_that_map_the_object_is_used) {
  board.pdos.insert(board.pdos.begin(), {7, "RPDO", 0, {{0x2000, 9, 8, ""}, {0x2000, 2, 8, ""}}});
  EXPECT_EQ(run_io({0, 0, 2, 0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/9", "read 5 0x2000/2",
                                  "rpdo 5 7 len 2: 00 A1 00 00 00 00 00 00"}));
}

TEST_F(OdIoWrite, first_of_two_mappings_of_the_object_is_written) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 8, ""}, {0x2000, 2, 8, ""}, {0x2000, 2, 8, ""}}}};
  run_io({0, 0, 2, 0xA1});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 3: 11 A1 13 00 00 00 00 00");
}

TEST_F(OdIoWrite, object_of_a_later_entry_of_the_number_is_placed_by_that_entry) {
  board.pdos.push_back({1, "RPDO", 0, {{0x2009, 0, 8, "x"}, {0x2009, 1, 8, "x"}}});
  run_io({9, 0, 1, 0xA1});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 00 A1 13 14 15 16 17 18");
}

TEST_F(OdIoWrite, rpdo_numbered_0_is_used_when_it_maps_the_object) {
  board.pdos = {{0, "RPDO", 0, {{0x2000, 2, 8, ""}}}};
  EXPECT_EQ(run_io({0, 0, 2, 0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/2", "rpdo 5 0 len 1: A1 00 00 00 00 00 00 00"}));
}

TEST_F(OdIoWrite, refresh_flag_plays_no_part) {
  next_send();
  op.refresh_shadow = 1;
  run_io({0, 0, 2, 0xA1});
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"});
}

TEST_F(OdIoWrite, consults_no_other_member_of_the_operation) {
  op.index = 0x7777;
  op.sub_index = 77;
  op.index_offset = 1;
  op.pdo_number = 9;
  op.field = "wide";
  op.fields = {"wide"};
  EXPECT_EQ(run_io({0, 0, 2, 0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"}));
}

TEST_F(OdIoWrite, sdo_write_leaves_the_image_alone) {
  next_send();
  op.transport = "sdo";
  run_io({0, 0, 2, 0xA1});
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(OdIoWrite, sdo_write_neither_loads_nor_syncs_the_image) {
  op.transport = "sdo";
  run_io({0, 0, 2, 0xA1});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 A1"});
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

// --- failures of the bus ---

TEST_F(OdIoWrite, refused_sdo_write_names_the_object) {
  op.transport = "sdo";
  backend.refuse();
  EXPECT_EQ(run_io({1, 0, 100, 1}), failed("SDO write failed at 0x2001/100"));
  EXPECT_EQ(backend.calls.size(), 1U);
}

TEST_F(OdIoWrite, exception_of_the_sdo_write_passes_to_the_caller) {
  op.transport = "sdo";
  backend.raise_exception();
  EXPECT_THROW(run_io({0, 0, 2, 1}), BusException);
  EXPECT_EQ(run_io({0, 0, 2, 1}), ok("OK"));
}

class OdIoWriteFailing : public OdIoWrite, public testing::WithParamInterface<FailingCall> {};

TEST_P(OdIoWriteFailing, leaves_the_image_that_the_next_send_shows) {
  expect_failing_call(GetParam(), {0, 0, 2, 0xA1}, "0x2000/2",
                      {0x11, 0x12, 0xA1, 0x14, 0x15, 0x16, 0x17, 0x18}, "io");
}

INSTANTIATE_TEST_SUITE_P(Calls, OdIoWriteFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
