#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

/// Pumps at 0x2000: channel 1 is the field "word", channel 7 is reached by SDO.
class PumpDuty : public ShadowTest {
 protected:
  PumpDuty() {
    op.kind = "pump_duty";
    op.index = 0x2000;
    op.pump_pdo_number = 1;
    op.rpdo_channels = {1};
    op.sdo_channels = {7};
  }

  OperationResult run_pump(const Bytes& payload) { return run(payload, "io"); }
};

// --- refusals before any bus call ---

TEST_F(PumpDuty, unknown_device_is_found_before_a_short_payload) {
  EXPECT_EQ(run({}, "IO"), failed("Device not found: IO"));
  EXPECT_EQ(run({1, 2, 3}, "IO"), failed("Device not found: IO"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(PumpDuty, payload_of_two_bytes_or_less_is_refused_before_the_channel) {
  for (const char* transport : {"", "sdo"}) {
    op.transport = transport;
    for (const Bytes& payload : {Bytes{}, Bytes{1}, Bytes{1, 2}, Bytes{99, 2}}) {
      EXPECT_EQ(run_pump(payload), failed("payload too short for pump_duty"));
    }
  }
  EXPECT_TRUE(backend.calls.empty());
}

struct RefusalRow {
  const char* name;
  std::uint8_t channel;
  std::uint8_t pdo_number;
  const char* message;
};

void PrintTo(const RefusalRow& row, std::ostream* out) { *out << row.name; }

class PumpDutyRefusal : public PumpDuty, public testing::WithParamInterface<RefusalRow> {
 protected:
  PumpDutyRefusal() {
    op.rpdo_channels = {1, 5, 100};
    op.sdo_channels = {7, 5, 100};
    board.pdos.push_back({2, "TPDO", 0, {{0x2000, 1, 16, ""}}});
    board.pdos.push_back({1, "RPDO", 0, {{0x2000, 5, 16, "later entry"}}});
  }
};

TEST_P(PumpDutyRefusal, touches_nothing) {
  op.pump_pdo_number = GetParam().pdo_number;
  EXPECT_EQ(run_pump({GetParam().channel, 2, 3}), failed(GetParam().message));
  EXPECT_TRUE(backend.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PumpDutyRefusal,
    testing::Values(RefusalRow{"channel_in_neither_list", 3, 1, "Invalid pump channel: 3"},
                    RefusalRow{"channel_0_in_neither_list", 0, 1, "Invalid pump channel: 0"},
                    RefusalRow{"channel_255_in_neither_list", 255, 1, "Invalid pump channel: 255"},
                    RefusalRow{"channel_before_the_rpdo", 3, 9, "Invalid pump channel: 3"},
                    RefusalRow{"unknown_rpdo", 1, 9, "RPDO 9 not found"},
                    RefusalRow{"rpdo_0_is_not_looked_up_by_the_index", 1, 0, "RPDO 0 not found"},
                    RefusalRow{"unknown_rpdo_255", 1, 255, "RPDO 255 not found"},
                    RefusalRow{"pdo_of_another_direction", 1, 2, "RPDO 2 not found"},
                    RefusalRow{"rpdo_before_the_mapping", 100, 9, "RPDO 9 not found"},
                    RefusalRow{"unmapped_channel", 100, 1, "pump ch100 not in RPDO mappings"},
                    RefusalRow{"channel_mapped_in_a_later_entry", 5, 1,
                               "pump ch5 not in RPDO mappings"}),
    row_name);

TEST_F(PumpDuty, empty_lists_make_every_channel_invalid) {
  op.rpdo_channels = {};
  op.sdo_channels = {};
  for (int channel = 0; channel <= 255; ++channel) {
    EXPECT_EQ(run_pump({static_cast<std::uint8_t>(channel), 2, 3}),
              failed("Invalid pump channel: " + std::to_string(channel)));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(PumpDuty, channel_mapped_for_another_object_is_not_in_the_mappings) {
  op.index = 0x2001;
  op.rpdo_channels = {1, 0};
  EXPECT_EQ(run_pump({1, 2, 3}), failed("pump ch1 not in RPDO mappings"));
}

// --- the path ---

struct PathRow {
  const char* name;
  const char* transport;
  Bytes rpdo_channels;
  Bytes sdo_channels;
  Bytes payload;
  const char* last_call;
};

void PrintTo(const PathRow& row, std::ostream* out) { *out << row.name; }

class PumpDutyPath : public PumpDuty, public testing::WithParamInterface<PathRow> {};

TEST_P(PumpDutyPath, is_chosen_by_transport_then_by_the_lists) {
  op.transport = GetParam().transport;
  op.rpdo_channels = GetParam().rpdo_channels;
  op.sdo_channels = GetParam().sdo_channels;
  EXPECT_EQ(run_pump(GetParam().payload), ok("Pump duty set"));
  EXPECT_EQ(last(backend.calls), GetParam().last_call);
  const bool by_sdo = last(backend.calls).rfind("write", 0) == 0;
  EXPECT_EQ(backend.calls.size(), by_sdo ? 1U : 5U);
}

constexpr auto by_rpdo = "rpdo 5 1 len 8: A1 A2 13 14 15 16 17 18";

INSTANTIATE_TEST_SUITE_P(
    Rows, PumpDutyPath,
    testing::Values(
        PathRow{"rpdo_channel", "", {1}, {}, {1, 0xA1, 0xA2}, by_rpdo},
        PathRow{"rpdo_channel_further_down_the_list", "", {9, 8, 1}, {}, {1, 0xA1, 0xA2}, by_rpdo},
        PathRow{"channel_in_both_lists_goes_by_rpdo", "", {1}, {1}, {1, 0xA1, 0xA2}, by_rpdo},
        PathRow{"fourth_byte_is_ignored", "", {1}, {}, {1, 0xA1, 0xA2, 0xA3}, by_rpdo},
        PathRow{"any_other_transport_allows_the_rpdo", "pdo", {1}, {}, {1, 0xA1, 0xA2}, by_rpdo},
        PathRow{"transport_is_compared_with_its_case", "SDO", {1}, {}, {1, 0xA1, 0xA2}, by_rpdo},
        PathRow{"duty_longer_than_the_field_reaches_no_neighbour",
                "",
                {2},
                {},
                {2, 0xA1, 0xA2},
                "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
        PathRow{"sdo_channel", "", {1}, {7}, {7, 0xA1, 0xA2}, "write 5 0x2000/7 A1 A2"},
        PathRow{"sdo_channel_drops_the_fourth_byte",
                "",
                {},
                {7},
                {7, 0xA1, 0xA2, 0xA3},
                "write 5 0x2000/7 A1 A2"},
        PathRow{
            "sdo_channel_may_be_mapped", "", {}, {1}, {1, 0xA1, 0xA2}, "write 5 0x2000/1 A1 A2"},
        PathRow{"sdo_channel_0", "", {}, {0}, {0, 0xA1, 0xA2}, "write 5 0x2000/0 A1 A2"},
        PathRow{"sdo_transport_wins_over_the_rpdo_list",
                "sdo",
                {1},
                {},
                {1, 0xA1, 0xA2},
                "write 5 0x2000/1 A1 A2"},
        PathRow{"sdo_transport_takes_a_channel_of_neither_list",
                "sdo",
                {},
                {},
                {255, 0xA1, 0xA2},
                "write 5 0x2000/255 A1 A2"}),
    row_name);

TEST_F(PumpDuty, channel_0_is_mapped_at_sub_index_0) {
  op.index = 0x2001;
  op.rpdo_channels = {0};
  EXPECT_EQ(run_pump({0, 0xA1, 0xA2}), ok("Pump duty set"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18"}));
}

TEST_F(PumpDuty, duty_shorter_than_the_field_leaves_its_rest) {
  op.index = 0x2002;
  op.rpdo_channels = {0};
  EXPECT_EQ(run_pump({0, 0xA1, 0xA2}), ok("Pump duty set"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 13 14 A1 A2 17 18"}));
}

TEST_F(PumpDuty, loaded_image_is_not_loaded_again) {
  next_send();
  run_pump({1, 0xA1, 0xA2});
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: A1 A2 13 14 15 16 17 18"});
}

TEST_F(PumpDuty, first_of_two_mappings_of_the_channel_is_written) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 2, 16, ""}, {0x2000, 1, 16, ""}, {0x2000, 1, 16, ""}}}};
  run_pump({1, 0xA1, 0xA2});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 6: 13 00 A1 A2 11 12 00 00");
}

TEST_F(PumpDuty, rpdo_numbered_0_is_used_when_the_board_has_one) {
  board.pdos.push_back({0, "RPDO", 0, {{0x2000, 1, 16, ""}}});
  op.pump_pdo_number = 0;
  EXPECT_EQ(run_pump({1, 0xA1, 0xA2}), ok("Pump duty set"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/1", "rpdo 5 0 len 2: A1 A2 00 00 00 00 00 00"}));
}

TEST_F(PumpDuty, rpdo_of_the_other_kinds_is_not_consulted) {
  board.pdos.push_back({2, "RPDO", 0, {{0x2000, 1, 16, ""}}});
  op.pdo_number = 1;
  op.pump_pdo_number = 2;
  run_pump({1, 0xA1, 0xA2});
  EXPECT_EQ(last(backend.calls), "rpdo 5 2 len 2: A1 A2 00 00 00 00 00 00");
}

TEST_F(PumpDuty, consults_no_other_member_of_the_operation) {
  next_send();
  op.sub_index = 77;
  op.index_offset = 1;
  op.field = "wide";
  op.fields = {"wide"};
  op.refresh_shadow = 1;
  run_pump({1, 0xA1, 0xA2});
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: A1 A2 13 14 15 16 17 18"});
}

TEST_F(PumpDuty, base_index_of_the_device_plays_no_part) {
  board.device_od_map["io"].base_index = 0x7000;
  run_pump({7, 0xA1, 0xA2});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/7 A1 A2"});
}

TEST_F(PumpDuty, by_sdo_leaves_the_image_of_a_mapped_channel_alone) {
  next_send();
  op.transport = "sdo";
  run_pump({1, 0xA1, 0xA2});
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(PumpDuty, by_sdo_leaves_the_image_of_channel_0_alone) {
  next_send();
  op.index = 0x2001;
  op.transport = "sdo";
  run_pump({0, 0xA1, 0xA2});
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(PumpDuty, by_sdo_neither_loads_nor_syncs_the_image) {
  op.transport = "sdo";
  run_pump({1, 0xA1, 0xA2});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/1 A1 A2"});
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(PumpDuty, node_id_is_read_afresh_at_every_call) {
  backend.during_call = [&](const std::string& /*call*/) { ++node_id; };
  run_pump({1, 0xA1, 0xA2});
  run_pump({7, 0xA1, 0xA2});
  EXPECT_EQ(backend.calls,
            (Calls{"read 5 0x2000/1", "read 6 0x2000/2", "read 7 0x2001/0", "read 8 0x2002/0",
                   "rpdo 9 1 len 8: A1 A2 13 14 15 16 17 18", "write 10 0x2000/7 A1 A2"}));
}

// --- failures of the bus ---

TEST_F(PumpDuty, refused_sdo_write_names_the_channel) {
  for (const char* transport : {"", "sdo"}) {
    op.transport = transport;
    backend.refuse();
    EXPECT_EQ(run_pump({7, 0xA1, 0xA2}), failed("SDO write pump ch7 failed"));
  }
  op.sdo_channels = {255};
  backend.refuse();
  EXPECT_EQ(run_pump({255, 0xA1, 0xA2}), failed("SDO write pump ch255 failed"));
  EXPECT_EQ(backend.calls.size(), 3U);
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(PumpDuty, exception_of_the_sdo_write_passes_to_the_caller) {
  backend.raise_exception();
  EXPECT_THROW(run_pump({7, 0xA1, 0xA2}), BusException);
  EXPECT_EQ(run_pump({7, 0xA1, 0xA2}), ok("Pump duty set"));
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

class PumpDutyFailing : public PumpDuty, public testing::WithParamInterface<FailingCall> {};

TEST_P(PumpDutyFailing, leaves_the_image_that_the_next_send_shows) {
  expect_failing_call(GetParam(), {1, 0xA1, 0xA2}, "io",
                      {0xA1, 0xA2, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18}, "io");
}

INSTANTIATE_TEST_SUITE_P(Calls, PumpDutyFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
