#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr auto no_fields = "pdo_bit_patch requires fields";
constexpr auto bad_named = "payload for named pdo_bit_patch must be [value]";
constexpr auto pdo_too_short = "payload too short for pdo_bit_patch (need 3 bytes)";
constexpr auto bad_field_index = "Invalid field_index for pdo_bit_patch";
constexpr auto bad_bit = "Invalid bit_index or bit_value";
constexpr auto pdo_not_single = "pdo_bit_patch requires a single-byte RPDO field";

/// Patches "flags", which the node holds as 0x14 = 0b00010100, or "byte", held as 0x13.
class PdoBitPatch : public ShadowTest {
 protected:
  PdoBitPatch() {
    op.kind = "pdo_bit_patch";
    op.pdo_number = 1;
    op.fields = {"flags", "byte"};
  }
};

// --- the change ---

TEST_F(PdoBitPatch, every_bit_is_set_and_cleared_alone) {
  for (std::uint8_t bit = 0; bit < 8; ++bit) {
    for (const std::uint8_t before : {std::uint8_t{0x00}, std::uint8_t{0xFF}, std::uint8_t{0x5A}}) {
      backend.objects[{0x2001, 0}] = {before};
      for (const std::uint8_t value : {std::uint8_t{0}, std::uint8_t{1}}) {
        SCOPED_TRACE(testing::Message() << "bit " << +bit << " of " << +before << " to " << +value);
        controller.forget_rpdo_shadows();
        Frame changed = start;
        const unsigned weight = 1U << bit;
        changed[3] = static_cast<std::uint8_t>(value == 1 ? before | weight : before & ~weight);
        EXPECT_EQ(run({1, bit, value}), ok("OK"));
        EXPECT_EQ(last(backend.calls), sent(changed));
      }
    }
  }
}

TEST_F(PdoBitPatch, bit_that_is_set_already_is_delivered_again) {
  EXPECT_EQ(run({1, 2, 1}), ok("OK"));
  EXPECT_EQ(run({1, 2, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({sent(start), sent(start)}));
}

TEST_F(PdoBitPatch, bit_that_is_clear_already_is_delivered_again) {
  EXPECT_EQ(run({1, 0, 0}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({sent(start)}));
}

TEST_F(PdoBitPatch, second_patch_builds_on_the_first_without_a_load) {
  run({1, 7, 1});
  run({1, 0, 1});
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 13 94 15 16 17 18",
                                        "rpdo 5 1 len 8: 11 12 13 95 15 16 17 18"}));
}

// --- the two forms ---

struct FormRow {
  const char* name;
  std::uint8_t named;
  std::uint8_t bit_index;
  Bytes payload;
  const char* send;
};

void PrintTo(const FormRow& row, std::ostream* out) { *out << row.name; }

class PdoBitPatchForm : public PdoBitPatch, public testing::WithParamInterface<FormRow> {};

TEST_P(PdoBitPatchForm, says_which_bit_changes) {
  op.named = GetParam().named;
  op.bit_index = GetParam().bit_index;
  EXPECT_EQ(run(GetParam().payload), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({GetParam().send}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PdoBitPatchForm,
    testing::Values(
        FormRow{"first_field", 0, 0, {1, 7, 1}, "rpdo 5 1 len 8: 11 12 13 94 15 16 17 18"},
        FormRow{"last_field", 0, 0, {2, 7, 1}, "rpdo 5 1 len 8: 11 12 93 14 15 16 17 18"},
        FormRow{"configured_bit_plays_no_part_in_the_indexed_form",
                0,
                8,
                {1, 0, 1},
                "rpdo 5 1 len 8: 11 12 13 15 15 16 17 18"},
        FormRow{"later_bytes_of_the_indexed_form_are_ignored",
                0,
                0,
                {1, 7, 1, 9, 9},
                "rpdo 5 1 len 8: 11 12 13 94 15 16 17 18"},
        FormRow{"named_bit_is_set", 1, 6, {1}, "rpdo 5 1 len 8: 11 12 13 54 15 16 17 18"},
        FormRow{"named_bit_is_cleared", 1, 2, {0}, "rpdo 5 1 len 8: 11 12 13 10 15 16 17 18"},
        FormRow{"any_set_flag_is_the_named_form",
                255,
                0,
                {1},
                "rpdo 5 1 len 8: 11 12 13 15 15 16 17 18"}),
    row_name);

TEST_F(PdoBitPatch, last_of_255_fields_is_reached) {
  op.fields.assign(254, "byte");
  op.fields.emplace_back("flags");
  EXPECT_EQ(run({255, 7, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 13 94 15 16 17 18");
}

// --- which RPDO and field ---

TEST_F(PdoBitPatch, rpdo_is_found_by_the_object_when_no_number_is_configured) {
  op.pdo_number = 0;
  op.index = 0x2002;
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 13 94 15 16 17 18");
}

TEST_F(PdoBitPatch, configured_number_wins_over_the_object) {
  board.pdos.push_back({2, "RPDO", 0, {{0x2003, 0, 8, "flags"}}});
  op.pdo_number = 2;
  op.index = 0x2000;
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 2 len 1: 80 00 00 00 00 00 00 00");
}

TEST_F(PdoBitPatch, rpdo_numbered_0_is_used_when_the_board_has_one) {
  board.pdos[0].number = 0;
  op.pdo_number = 0;
  op.index = 0x2001;
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 0 len 8: 11 12 13 94 15 16 17 18"}));
}

TEST_F(PdoBitPatch, field_of_twelve_bits_is_patched_in_its_one_byte) {
  board.pdos = {{1, "RPDO", 0, {{0x2001, 0, 12, "flags"}, {0x2000, 2, 8, "byte"}}}};
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 3: 94 13 00 00 00 00 00 00");
}

TEST_F(PdoBitPatch, single_field_name_plays_no_part) {
  op.field = "byte";
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 13 94 15 16 17 18");
}

// --- refusals before any bus call, in their order ---

struct PdoRefusalRow {
  const char* name;
  std::vector<std::string> fields;
  std::uint8_t named;
  std::uint8_t bit_index;
  Bytes payload;
  std::uint8_t pdo_number;
  const char* message;
};

void PrintTo(const PdoRefusalRow& row, std::ostream* out) { *out << row.name; }

class PdoBitPatchRefusal : public PdoBitPatch, public testing::WithParamInterface<PdoRefusalRow> {
 protected:
  PdoBitPatchRefusal() {
    board.pdos[0].mappings.push_back({0x2003, 0, 8, "beyond"});
    board.pdos.push_back({1, "TPDO", 0, {{0x2003, 1, 8, "sent"}}});
    board.pdos.push_back({1, "RPDO", 0, {{0x2003, 2, 8, "late"}}});
    op.fields = GetParam().fields;
    op.named = GetParam().named;
    op.bit_index = GetParam().bit_index;
    op.pdo_number = GetParam().pdo_number;
    op.field = "flags";
    op.index = 0x7777;
  }
};

TEST_P(PdoBitPatchRefusal, touches_nothing) {
  for (const char* transport : {"", "sdo"}) {
    SCOPED_TRACE(transport);
    op.transport = transport;
    op.refresh_shadow = 1;
    EXPECT_EQ(run(GetParam().payload), failed(GetParam().message));
  }
  EXPECT_TRUE(backend.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PdoBitPatchRefusal,
    testing::Values(
        PdoRefusalRow{"no_fields", {}, 0, 0, {1, 1, 1}, 1, no_fields},
        PdoRefusalRow{"no_fields_named", {}, 1, 0, {1}, 1, no_fields},
        PdoRefusalRow{"no_fields_before_the_payload", {}, 0, 0, {}, 1, no_fields},
        PdoRefusalRow{"no_fields_before_the_named_payload", {}, 1, 0, {}, 1, no_fields},
        PdoRefusalRow{"named_without_payload", {"flags"}, 1, 0, {}, 1, bad_named},
        PdoRefusalRow{"named_with_two_bytes", {"flags"}, 1, 0, {1, 1}, 1, bad_named},
        PdoRefusalRow{"named_with_an_indexed_payload", {"flags"}, 1, 0, {1, 1, 1}, 1, bad_named},
        PdoRefusalRow{"named_payload_before_the_bit", {"flags"}, 1, 8, {}, 1, bad_named},
        PdoRefusalRow{"indexed_without_payload", {"flags"}, 0, 0, {}, 1, pdo_too_short},
        PdoRefusalRow{"indexed_with_two_bytes", {"flags"}, 0, 0, {1, 1}, 1, pdo_too_short},
        PdoRefusalRow{"short_payload_before_the_field", {"flags"}, 0, 0, {9, 9}, 1, pdo_too_short},
        PdoRefusalRow{"field_0", {"flags"}, 0, 0, {0, 1, 1}, 1, bad_field_index},
        PdoRefusalRow{
            "field_after_the_last", {"flags", "byte"}, 0, 0, {3, 1, 1}, 1, bad_field_index},
        PdoRefusalRow{"field_255", {"flags"}, 0, 0, {255, 1, 1}, 1, bad_field_index},
        PdoRefusalRow{
            "field_number_before_the_bit", {"flags"}, 0, 0, {2, 8, 2}, 1, bad_field_index},
        PdoRefusalRow{"bit_8", {"flags"}, 0, 0, {1, 8, 1}, 1, bad_bit},
        PdoRefusalRow{"bit_255", {"flags"}, 0, 0, {1, 255, 0}, 1, bad_bit},
        PdoRefusalRow{"value_2", {"flags"}, 0, 0, {1, 1, 2}, 1, bad_bit},
        PdoRefusalRow{"value_255", {"flags"}, 0, 0, {1, 1, 255}, 1, bad_bit},
        PdoRefusalRow{"named_bit_8", {"flags"}, 1, 8, {1}, 1, bad_bit},
        PdoRefusalRow{"named_value_2", {"flags"}, 1, 0, {2}, 1, bad_bit},
        PdoRefusalRow{"bit_before_the_rpdo", {"flags"}, 0, 0, {1, 8, 1}, 9, bad_bit},
        PdoRefusalRow{"unknown_rpdo", {"flags"}, 0, 0, {1, 1, 1}, 9, "RPDO 9 not found"},
        PdoRefusalRow{
            "object_that_no_rpdo_maps", {"flags"}, 0, 0, {1, 1, 1}, 0, "RPDO 0 not found"},
        PdoRefusalRow{"rpdo_before_the_field", {"x"}, 0, 0, {1, 1, 1}, 200, "RPDO 200 not found"},
        PdoRefusalRow{"unknown_field", {"x"}, 0, 0, {1, 1, 1}, 1, pdo_not_single},
        PdoRefusalRow{"empty_field", {""}, 1, 0, {1}, 1, pdo_not_single},
        PdoRefusalRow{"field_of_sixteen_bits", {"word"}, 0, 0, {1, 1, 1}, 1, pdo_not_single},
        PdoRefusalRow{"field_beyond_the_frame", {"beyond"}, 0, 0, {1, 1, 1}, 1, pdo_not_single},
        PdoRefusalRow{"field_of_another_direction", {"sent"}, 0, 0, {1, 1, 1}, 1, pdo_not_single},
        PdoRefusalRow{"field_of_a_later_entry", {"late"}, 0, 0, {1, 1, 1}, 1, pdo_not_single},
        PdoRefusalRow{"second_field_unknown", {"flags", "x"}, 0, 0, {2, 1, 1}, 1, pdo_not_single}),
    row_name);

// --- refresh ---

TEST_F(PdoBitPatch, refresh_patches_what_the_node_has_now) {
  next_send();
  set_node(restarted);
  op.refresh_shadow = 1;
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 21 22 23 A4 25 26 27 28"}));
}

TEST_F(PdoBitPatch, refresh_of_a_silent_node_is_not_reported) {
  op.refresh_shadow = 0x80;
  for (int read = 0; read < 4; ++read) {
    backend.refuse();
  }
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 00 00 00 80 00 00 00 00"}));
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 00 00 00 80 00 00 00 00"});
}

// --- delivery by SDO ---

class PdoBitPatchBySdo : public PdoBitPatch {
 protected:
  PdoBitPatchBySdo() {
    op.transport = "sdo";
    op.fields = {"byte"};
    op.index = 0x7777;
    op.sub_index = 77;
  }
};

TEST_F(PdoBitPatchBySdo, changed_byte_alone_goes_to_the_mapped_object) {
  EXPECT_EQ(run({1, 7, 1}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, loaded_then({"write 5 0x2000/2 93"}));
}

TEST_F(PdoBitPatchBySdo, change_is_in_the_image_for_the_next_send) {
  run({1, 7, 1});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 11 12 93 14 15 16 17 18"});
}

TEST_F(PdoBitPatchBySdo, image_is_patched_not_the_object_as_it_is_now) {
  next_send();
  set_node(restarted);
  run({1, 7, 1});
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 93"});
}

TEST_F(PdoBitPatchBySdo, unchanged_byte_is_written_again) {
  run({1, 0, 1});
  EXPECT_EQ(backend.calls, loaded_then({"write 5 0x2000/2 13"}));
}

TEST_F(PdoBitPatchBySdo, upper_case_transport_sends_the_rpdo) {
  op.transport = "SDO";
  EXPECT_EQ(run({1, 7, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 93 14 15 16 17 18"}));
}

TEST_F(PdoBitPatchBySdo, refresh_comes_before_the_write) {
  next_send();
  set_node(restarted);
  op.refresh_shadow = 1;
  EXPECT_EQ(run({1, 7, 1}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, loaded_then({"write 5 0x2000/2 A3"}));
}

// --- failures of the bus ---

class PdoBitPatchFailing : public PdoBitPatch, public testing::WithParamInterface<FailingCall> {
 protected:
  static constexpr Frame changed{0x11, 0x12, 0x93, 0x14, 0x15, 0x16, 0x17, 0x18};
};

TEST_P(PdoBitPatchFailing, leaves_the_image_that_the_next_send_shows) {
  expect_failing_call(GetParam(), {2, 7, 1}, "device", changed);
}

TEST_P(PdoBitPatchFailing, leaves_the_same_image_when_delivered_by_sdo) {
  op.transport = "sdo";
  expect_failing_call(GetParam(), {2, 7, 1}, "device", "write 5 0x2000/2 93",
                      "SDO write 0x2000/2 failed", changed);
}

TEST_P(PdoBitPatchFailing, leaves_the_refreshed_image_with_the_bit) {
  op.refresh_shadow = 1;
  expect_failing_call_of_refresh(GetParam(), {2, 7, 1}, [](Frame& frame) { frame[2] |= 0x80; });
}

INSTANTIATE_TEST_SUITE_P(Calls, PdoBitPatchFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
