#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr auto too_short = "payload too short for bit_patch (mask+values)";
constexpr auto not_single = "bit_patch requires a single-byte RPDO field";

/// Patches the field "flags", which the node holds as 0x14 = 0b00010100.
class BitPatch : public ShadowTest {
 protected:
  BitPatch() {
    op.kind = "bit_patch";
    op.pdo_number = 1;
    op.field = "flags";
  }
};

// --- the change ---

struct ChangeRow {
  const char* name;
  Bytes payload;
  std::uint8_t patched;
};

void PrintTo(const ChangeRow& row, std::ostream* out) { *out << row.name; }

class BitPatchChange : public BitPatch, public testing::WithParamInterface<ChangeRow> {};

TEST_P(BitPatchChange, goes_with_the_whole_frame) {
  Frame changed = start;
  changed[3] = GetParam().patched;
  EXPECT_EQ(run(GetParam().payload), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({sent(changed)}));
}

TEST_P(BitPatchChange, reads_and_writes_the_object_by_sdo) {
  op.transport = "sdo";
  ScriptedBackend expected;
  expected.sdo_write(5, 0x2001, 0, {GetParam().patched});
  EXPECT_EQ(run(GetParam().payload), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2001/0", expected.calls[0]}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BitPatchChange,
    testing::Values(ChangeRow{"sets_bits", {0x81, 0xFF}, 0x95},
                    ChangeRow{"clears_bits", {0x05, 0x00}, 0x10},
                    ChangeRow{"sets_one_clears_one", {0x06, 0x02}, 0x12},
                    ChangeRow{"empty_mask_changes_nothing", {0, 0xFF}, 0x14},
                    ChangeRow{"full_mask_writes_the_value", {0xFF, 0xA5}, 0xA5},
                    ChangeRow{"later_bytes_are_ignored", {0x81, 0x80, 0xFF, 0xFF}, 0x94}),
    row_name);

TEST_F(BitPatch, second_patch_builds_on_the_first_without_a_load) {
  run({0x80, 0x80});
  backend.calls.clear();
  EXPECT_EQ(run({0x04, 0x00}), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 13 90 15 16 17 18"});
}

TEST_F(BitPatch, refresh_flag_plays_no_part) {
  next_send();
  op.refresh_shadow = 1;
  run({0, 0});
  EXPECT_EQ(backend.calls, Calls{sent(start)});
}

TEST_F(BitPatch, upper_case_transport_sends_the_rpdo) {
  op.transport = "SDO";
  EXPECT_EQ(run({0xFF, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 13 01 15 16 17 18");
}

// --- which field ---

TEST_F(BitPatch, first_of_the_fields_wins_over_the_single_field) {
  op.fields = {"byte", "flags"};
  EXPECT_EQ(run({0xFF, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 01 14 15 16 17 18");
}

TEST_F(BitPatch, empty_name_patches_the_first_field_without_a_name) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 2, 8, "a"}, {0x2001, 0, 8, ""}, {0x2000, 1, 8, ""}}}};
  op.field = "";
  EXPECT_EQ(run({0xF0, 0xA0}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 3: 13 A4 11 00 00 00 00 00");
}

TEST_F(BitPatch, field_of_twelve_bits_is_patched_in_its_one_byte) {
  board.pdos = {{1, "RPDO", 0, {{0x2001, 0, 12, "flags"}, {0x2000, 2, 8, "byte"}}}};
  EXPECT_EQ(run({0xFF, 0xA5}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 3: A5 13 00 00 00 00 00 00");
}

TEST_F(BitPatch, rpdo_is_found_by_the_object_when_no_number_is_configured) {
  op.pdo_number = 0;
  op.index = 0x2002;
  EXPECT_EQ(run({0xFF, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 13 01 15 16 17 18");
}

TEST_F(BitPatch, configured_number_wins_over_the_object) {
  board.pdos.push_back({2, "RPDO", 0, {{0x2003, 0, 8, "flags"}}});
  op.pdo_number = 2;
  op.index = 0x2000;
  EXPECT_EQ(run({0xFF, 1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 2 len 1: 01 00 00 00 00 00 00 00");
}

TEST_F(BitPatch, rpdo_numbered_0_is_used_when_the_board_has_one) {
  board.pdos[0].number = 0;
  op.pdo_number = 0;
  op.index = 0x2001;
  EXPECT_EQ(run({0xFF, 1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 0 len 8: 11 12 13 01 15 16 17 18"}));
}

TEST_F(BitPatch, last_byte_of_the_frame_is_patched) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 56, "pad"}, {0x2001, 0, 8, "flags"}}}};
  EXPECT_EQ(run({0x01, 0x01}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 00 00 00 00 00 15");
}

// --- refusals before any bus call, in their order ---

struct BitRefusalRow {
  const char* name;
  std::uint8_t pdo_number;
  const char* field;
  Bytes payload;
  const char* message;
};

void PrintTo(const BitRefusalRow& row, std::ostream* out) { *out << row.name; }

class BitPatchRefusal : public BitPatch, public testing::WithParamInterface<BitRefusalRow> {
 protected:
  BitPatchRefusal() {
    board.pdos[0].mappings.push_back({0x2003, 0, 16, "beyond"});
    board.pdos.push_back({1, "TPDO", 0, {{0x2003, 1, 8, "sent"}}});
    board.pdos.push_back({1, "RPDO", 0, {{0x2003, 2, 8, "late"}}});
    op.pdo_number = GetParam().pdo_number;
    op.field = GetParam().field;
    op.index = 0x7777;
  }
};

TEST_P(BitPatchRefusal, touches_nothing) {
  for (const char* transport : {"", "sdo"}) {
    SCOPED_TRACE(transport);
    op.transport = transport;
    EXPECT_EQ(run(GetParam().payload), failed(GetParam().message));
  }
  EXPECT_TRUE(backend.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BitPatchRefusal,
    testing::Values(
        BitRefusalRow{"no_payload", 1, "flags", {}, too_short},
        BitRefusalRow{"mask_alone", 1, "flags", {1}, too_short},
        BitRefusalRow{"short_payload_before_unknown_rpdo", 9, "flags", {1}, too_short},
        BitRefusalRow{"unknown_rpdo", 9, "flags", {1, 1}, "RPDO 9 not found"},
        BitRefusalRow{"highest_rpdo", 255, "flags", {1, 1}, "RPDO 255 not found"},
        BitRefusalRow{"object_that_no_rpdo_maps", 0, "flags", {1, 1}, "RPDO 0 not found"},
        BitRefusalRow{"unknown_rpdo_before_unknown_field", 9, "x", {1, 1}, "RPDO 9 not found"},
        BitRefusalRow{"unknown_field", 1, "x", {1, 1}, not_single},
        BitRefusalRow{"empty_field", 1, "", {1, 1}, not_single},
        BitRefusalRow{"field_of_sixteen_bits", 1, "word", {1, 1}, not_single},
        BitRefusalRow{"wide_field_beyond_the_frame", 1, "beyond", {1, 1}, not_single},
        BitRefusalRow{"field_of_another_direction", 1, "sent", {1, 1}, not_single},
        BitRefusalRow{"field_of_a_later_entry", 1, "late", {1, 1}, not_single}),
    row_name);

TEST_F(BitPatch, field_beyond_the_frame_is_refused_before_any_call) {
  for (const unsigned before : {8U, 9U, 255U}) {
    SCOPED_TRACE(before);
    board.pdos[0].mappings.assign(before, {0x2000, 2, 8, "pad"});
    board.pdos[0].mappings.push_back({0x2003, 7, 8, "flags"});
    EXPECT_EQ(run({0x0F, 0x05}), failed(not_single));
  }
  EXPECT_TRUE(backend.calls.empty());
}

// --- by SDO ---

class BitPatchBySdo : public BitPatch {
 protected:
  BitPatchBySdo() {
    op.transport = "sdo";
    op.field = "byte";
    op.index = 0x7777;
    op.sub_index = 77;
  }
};

TEST_F(BitPatchBySdo, field_beyond_the_frame_is_patched) {
  op.field = "flags";
  backend.objects[{0x2003, 7}] = {0xA0};
  for (const unsigned before : {7U, 8U, 9U, 255U}) {
    SCOPED_TRACE(before);
    board.pdos[0].mappings.assign(before, {0x2000, 2, 8, "pad"});
    board.pdos[0].mappings.push_back({0x2003, 7, 8, "flags"});
    backend.calls.clear();
    EXPECT_EQ(run({0x0F, 0x05}), ok("OK (SDO)"));
    EXPECT_EQ(backend.calls, (Calls{"read 5 0x2003/7", "write 5 0x2003/7 A5"}));
  }
}

TEST_F(BitPatchBySdo, object_without_bytes_is_patched_as_0) {
  backend.answer_read({});
  EXPECT_EQ(run({0xF0, 0xFF}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/2", "write 5 0x2000/2 F0"}));
}

TEST_F(BitPatchBySdo, later_bytes_of_the_object_are_ignored) {
  backend.answer_read({0x80, 0xEE, 0xEE});
  run({0x0F, 0xFF});
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/2", "write 5 0x2000/2 8F"}));
}

TEST_F(BitPatchBySdo, object_is_read_again_by_every_patch) {
  run({0, 0});
  run({0, 0});
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/2", "write 5 0x2000/2 13", "read 5 0x2000/2",
                                  "write 5 0x2000/2 13"}));
}

TEST_F(BitPatchBySdo, image_is_not_touched) {
  next_send();
  run({0xFF, 0xEE});
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(BitPatchBySdo, refused_read_ends_the_patch) {
  backend.refuse({0xEE});
  EXPECT_EQ(run({1, 1}), failed("SDO read 0x2000/2 failed"));
  EXPECT_EQ(backend.calls, Calls{"read 5 0x2000/2"});
}

TEST_F(BitPatchBySdo, refused_write_names_the_object) {
  backend.serve(1);
  backend.refuse();
  EXPECT_EQ(run({1, 1}), failed("SDO write 0x2000/2 failed"));
  EXPECT_EQ(backend.calls.size(), 2U);
}

TEST_F(BitPatchBySdo, exception_of_either_call_passes_to_the_caller) {
  for (const std::size_t position : {std::size_t{0}, std::size_t{1}}) {
    SCOPED_TRACE(position);
    backend.calls.clear();
    backend.serve(position);
    backend.raise_exception();
    EXPECT_THROW(run({1, 1}), BusException);
    EXPECT_EQ(backend.calls.size(), position + 1);
  }
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(BitPatchBySdo, node_id_is_read_afresh_for_the_write) {
  struct Renaming : ScriptedBackend {
    explicit Renaming(std::uint8_t& id) : id_(id) {}
    bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                  Bytes& data) override {
      ++id_;
      return ScriptedBackend::sdo_read(node_id, index, sub_index, data);
    }
    std::uint8_t& id_;
  } renaming(node_id);
  CanOpenNodeController other(node_id, renaming, board);
  other.execute_configured_operation(op, "device", {1, 1});
  EXPECT_EQ(renaming.calls, (Calls{"read 5 0x2000/2", "write 6 0x2000/2 01"}));
}

// --- failures of the bus ---

class BitPatchFailing : public BitPatch, public testing::WithParamInterface<FailingCall> {};

TEST_P(BitPatchFailing, leaves_the_image_that_the_next_send_shows) {
  expect_failing_call(GetParam(), {0x81, 0x81}, "device",
                      {0x11, 0x12, 0x13, 0x95, 0x15, 0x16, 0x17, 0x18});
}

INSTANTIATE_TEST_SUITE_P(Calls, BitPatchFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
