#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

// --- which RPDO maps an object ---

class FindRpdoForOd : public ControllerTest {
 protected:
  static PdoConfig pdo(std::uint8_t number, const char* direction, std::uint16_t index,
                       std::uint8_t sub_index = 0) {
    return {number, direction, 0, {{0x1F00, 0, 8, ""}, {index, sub_index, 8, ""}}};
  }
};

TEST_F(FindRpdoForOd, first_in_list_order_wins_whatever_its_number) {
  board.pdos = {pdo(4, "RPDO", 0x2001), pdo(3, "RPDO", 0x2000), pdo(2, "RPDO", 0x2000)};
  EXPECT_EQ(controller.find_rpdo_for_od(0x2000), 3);
}

TEST_F(FindRpdoForOd, any_sub_index_counts) {
  board.pdos = {pdo(1, "RPDO", 0x2000, 77)};
  EXPECT_EQ(controller.find_rpdo_for_od(0x2000), 1);
}

TEST_F(FindRpdoForOd, passes_over_other_directions) {
  board.pdos = {pdo(1, "TPDO", 0x2000), pdo(2, "rpdo", 0x2000), pdo(3, "RPDO ", 0x2000),
                pdo(4, "", 0x2000), pdo(5, "RPDO", 0x2000)};
  EXPECT_EQ(controller.find_rpdo_for_od(0x2000), 5);
}

TEST_F(FindRpdoForOd, passes_over_number_0) {
  board.pdos = {pdo(0, "RPDO", 0x2000), pdo(6, "RPDO", 0x2000)};
  EXPECT_EQ(controller.find_rpdo_for_od(0x2000), 6);
}

TEST_F(FindRpdoForOd, no_rpdo_is_0) {
  EXPECT_EQ(controller.find_rpdo_for_od(0x2000), 0);
  board.pdos = {pdo(0, "RPDO", 0x2000), pdo(1, "TPDO", 0x2000), pdo(2, "RPDO", 0x2001)};
  EXPECT_EQ(controller.find_rpdo_for_od(0x2000), 0);
}

// --- loading an image ---

class RpdoShadow : public ShadowTest {
 protected:
  RpdoShadow() {
    op.kind = "pdo_write";
    op.pdo_number = 1;
  }

  /// Gives the board one RPDO of these mappings and the node none of its usual objects.
  void map(std::vector<PdoMapping> mappings) {
    board.pdos = {{1, "RPDO", 0, std::move(mappings)}};
    backend.objects.clear();
  }

  /// Adds one more entry of RPDO 1.
  void map_also(std::vector<PdoMapping> mappings) {
    board.pdos.push_back({1, "RPDO", 0, std::move(mappings)});
  }

  /// Leaves an image of EE bytes, which a refresh loads anew.
  void spoil_image() {
    const auto objects = backend.objects;
    for (const PdoConfig& pdo : board.pdos) {
      for (const PdoMapping& mapping : pdo.mappings) {
        backend.objects[{mapping.index, mapping.sub_index}] = Bytes(8, 0xEE);
      }
    }
    next_send();
    backend.calls.clear();
    backend.objects = objects;
  }
};

TEST_F(RpdoShadow, first_operation_reads_every_mapped_object_once_in_frame_order) {
  EXPECT_EQ(next_send(), loaded_then({"rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}));
}

TEST_F(RpdoShadow, later_operations_read_nothing) {
  next_send();
  set_node(restarted);
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(RpdoShadow, device_name_is_not_looked_up) {
  board.device_od_map.clear();
  op.field = "byte";
  EXPECT_EQ(run({9}, "nobody"), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 09 14 15 16 17 18"}));
}

TEST_F(RpdoShadow, answer_that_is_too_short_leaves_the_rest_of_its_field_0) {
  spoil_image();
  backend.objects[{0x2000, 1}] = {0xA1};
  backend.objects[{0x2000, 2}] = {};
  backend.objects[{0x2002, 0}] = {0xD1, 0xD2, 0xD3};
  op.kind = "pdo_patch";
  op.fields = {"word"};
  op.refresh_shadow = 1;
  EXPECT_EQ(run({}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: A1 00 00 14 D1 D2 D3 00"}));
}

TEST_F(RpdoShadow, answer_that_is_too_long_reaches_no_neighbour) {
  backend.answer_read({0xA1, 0xA2, 0xEE, 0xEE});
  backend.answer_read({0xB1, 0xEE});
  backend.answer_read({0xC1, 0xEE, 0xEE});
  backend.answer_read({0xD1, 0xD2, 0xD3, 0xD4, 0xEE});
  EXPECT_EQ(next_send(), loaded_then({"rpdo 5 1 len 8: A1 A2 B1 C1 D1 D2 D3 D4"}));
}

TEST_F(RpdoShadow, long_answer_is_cut_to_its_field_before_the_next_is_refused) {
  next_send();
  op.refresh_shadow = 1;
  op.field = "wide";
  backend.answer_read({0xA1, 0xA2, 0xEE, 0xEE, 0xEE});
  backend.refuse();
  backend.refuse();
  run({});
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: A1 A2 13 14 15 16 17 18"}));
}

TEST_F(RpdoShadow, field_over_the_end_of_the_frame_is_cut) {
  map({{0x2000, 1, 48, "a"}, {0x2000, 2, 32, "b"}});
  backend.objects = {{{0x2000, 1}, {1, 2, 3, 4, 5, 6}}, {{0x2000, 2}, {7, 8, 9, 10}}};
  EXPECT_EQ(next_send(), (Calls{"read 5 0x2000/1", "read 5 0x2000/2",
                                "rpdo 5 1 len 8: 01 02 03 04 05 06 07 08"}));
}

TEST_F(RpdoShadow, field_beyond_the_frame_is_not_read) {
  map({{0x2000, 1, 64, "a"}, {0x2000, 2, 8, "b"}, {0x2000, 3, 255, "c"}, {0x2000, 4, 8, "d"}});
  EXPECT_EQ(next_send(), (Calls{"read 5 0x2000/1", "rpdo 5 1 len 8: 00 00 00 00 00 00 00 00"}));
}

TEST_F(RpdoShadow, field_that_owns_no_whole_byte_is_not_read) {
  map({{0x2000, 1, 0, "none"}, {0x2000, 2, 7, "bits"}, {0x2000, 3, 8, "byte"}});
  backend.objects = {{{0x2000, 3}, {0x33}}};
  EXPECT_EQ(next_send(), (Calls{"read 5 0x2000/3", "rpdo 5 1 len 2: 33 00 00 00 00 00 00 00"}));
}

TEST_F(RpdoShadow, field_of_fifteen_bits_owns_one_byte) {
  map({{0x2000, 1, 15, "a"}, {0x2000, 2, 8, "b"}});
  backend.objects = {{{0x2000, 1}, {1, 0xEE}}, {{0x2000, 2}, {2}}};
  EXPECT_EQ(last(next_send()), "rpdo 5 1 len 3: 01 02 00 00 00 00 00 00");
}

TEST_F(RpdoShadow, dummy_entries_are_0_and_not_read) {
  map({{0x0005, 0, 8, "low"}, {0x2000, 1, 8, "a"}, {0x0007, 0, 16, "high"}, {0x2000, 2, 8, "b"}});
  backend.objects = {{{0x2000, 1}, {1}}, {{0x2000, 2}, {2}}};
  EXPECT_EQ(next_send(), (Calls{"read 5 0x2000/1", "read 5 0x2000/2",
                                "rpdo 5 1 len 5: 00 01 00 00 02 00 00 00"}));
}

TEST_F(RpdoShadow, dummy_entry_that_was_written_is_0_again_after_a_load) {
  map({{0x0005, 0, 8, "pad"}, {0x2000, 1, 8, "a"}});
  op.field = "pad";
  run({0x77});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 2: 77 00 00 00 00 00 00 00"});
  controller.forget_rpdo_shadows();
  EXPECT_EQ(last(next_send()), "rpdo 5 1 len 2: 00 00 00 00 00 00 00 00");
}

struct DummyRow {
  const char* name;
  std::uint16_t index;
  Calls loads;
};

void PrintTo(const DummyRow& row, std::ostream* out) { *out << row.name; }

class RpdoShadowDummy : public RpdoShadow, public testing::WithParamInterface<DummyRow> {};

TEST_P(RpdoShadowDummy, is_an_index_from_1_to_7) {
  map({{GetParam().index, 0, 8, "a"}});
  backend.objects = {{{GetParam().index, 0}, {0x77}}};
  Calls expected = GetParam().loads;
  expected.push_back(expected.empty() ? "rpdo 5 1 len 1: 00 00 00 00 00 00 00 00"
                                      : "rpdo 5 1 len 1: 77 00 00 00 00 00 00 00");
  EXPECT_EQ(next_send(), expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, RpdoShadowDummy,
                         testing::Values(DummyRow{"index_0", 0x0000, {"read 5 0x0000/0"}},
                                         DummyRow{"boolean", 0x0001, {}},
                                         DummyRow{"unsigned32", 0x0007, {}},
                                         DummyRow{"real32", 0x0008, {"read 5 0x0008/0"}},
                                         DummyRow{"mode_of_base_fff0", 0x0010, {"read 5 0x0010/0"}},
                                         DummyRow{"last_below_0020", 0x001F, {"read 5 0x001F/0"}},
                                         DummyRow{"index_0020", 0x0020, {"read 5 0x0020/0"}}),
                         row_name);

TEST_F(RpdoShadow, rpdo_of_dummies_alone_loads_without_a_read) {
  map({{0x0001, 0, 1, "bit"}, {0x0005, 0, 8, "pad"}});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 2: 00 00 00 00 00 00 00 00"});
}

TEST_F(RpdoShadow, rpdo_without_a_bit_sends_8_zeros_of_length_0) {
  map({{0x2000, 1, 0, "none"}});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 0: 00 00 00 00 00 00 00 00"});
}

TEST_F(RpdoShadow, object_mapped_twice_is_read_twice) {
  map({{0x2000, 1, 8, "a"}, {0x2000, 1, 8, "b"}});
  backend.answer_read({1});
  backend.answer_read({2});
  EXPECT_EQ(next_send(), (Calls{"read 5 0x2000/1", "read 5 0x2000/1",
                                "rpdo 5 1 len 2: 01 02 00 00 00 00 00 00"}));
}

TEST_F(RpdoShadow, entries_of_other_numbers_or_directions_are_not_loaded) {
  board.pdos.insert(board.pdos.begin(), {1, "TPDO", 0, {{0x3000, 0, 64, "word"}}});
  board.pdos.push_back({2, "RPDO", 0, {{0x3001, 0, 64, "word"}}});
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

struct LoadLengthRow {
  const char* name;
  std::vector<std::uint8_t> bit_lengths;
  const char* send;
};

void PrintTo(const LoadLengthRow& row, std::ostream* out) { *out << row.name; }

class RpdoShadowLength : public RpdoShadow, public testing::WithParamInterface<LoadLengthRow> {};

TEST_P(RpdoShadowLength, goes_with_the_send) {
  std::vector<PdoMapping> mappings;
  for (const std::uint8_t bits : GetParam().bit_lengths) {
    mappings.push_back({0x2000, 0, bits, "a"});
  }
  map(mappings);
  EXPECT_EQ(last(next_send()), GetParam().send);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RpdoShadowLength,
    testing::Values(
        LoadLengthRow{"one_bit", {1}, "rpdo 5 1 len 1: 00 00 00 00 00 00 00 00"},
        LoadLengthRow{"nine_bits", {8, 1}, "rpdo 5 1 len 2: 00 00 00 00 00 00 00 00"},
        LoadLengthRow{"sum_before_rounding", {12, 12}, "rpdo 5 1 len 3: 00 00 00 00 00 00 00 00"},
        LoadLengthRow{"full", {64}, "rpdo 5 1 len 8: 00 00 00 00 00 00 00 00"},
        LoadLengthRow{"over_full", {64, 64}, "rpdo 5 1 len 8: 00 00 00 00 00 00 00 00"}),
    row_name);

// --- several entries of one number ---

TEST_F(RpdoShadow, entries_of_one_number_are_walked_in_order_each_from_byte_0) {
  map({{0x2000, 1, 8, "a"}, {0x2000, 2, 16, "b"}});
  map_also({{0x2001, 1, 16, "c"}});
  backend.objects = {{{0x2000, 1}, {1}}, {{0x2000, 2}, {2, 3}}, {{0x2001, 1}, {0xC1, 0xC2}}};
  EXPECT_EQ(next_send(), (Calls{"read 5 0x2000/1", "read 5 0x2000/2", "read 5 0x2001/1",
                                "rpdo 5 1 len 3: C1 C2 03 00 00 00 00 00"}));
}

TEST_F(RpdoShadow, later_dummy_entry_overwrites_with_zeros) {
  map({{0x2000, 1, 32, "a"}});
  map_also({{0x2001, 1, 8, "b"}, {0x0005, 0, 8, ""}});
  backend.objects = {{{0x2000, 1}, {1, 2, 3, 4}}, {{0x2001, 1}, {0xB1}}};
  EXPECT_EQ(last(next_send()), "rpdo 5 1 len 4: B1 00 03 04 00 00 00 00");
}

TEST_F(RpdoShadow, later_short_answer_overwrites_with_its_zero_rest) {
  map({{0x2000, 1, 32, "a"}});
  map_also({{0x2001, 1, 24, "b"}});
  backend.objects = {{{0x2000, 1}, {1, 2, 3, 4}}, {{0x2001, 1}, {0xB1}}};
  EXPECT_EQ(last(next_send()), "rpdo 5 1 len 4: B1 00 00 04 00 00 00 00");
}

TEST_F(RpdoShadow, refused_object_of_a_refresh_leaves_what_the_walk_has_built_so_far) {
  map({{0x2000, 1, 32, "a"}});
  map_also({{0x2001, 1, 16, "b"}});
  spoil_image();
  op.refresh_shadow = 1;
  op.fields = {"a"};
  op.kind = "pdo_patch";
  backend.answer_read({1, 2, 3, 4});
  backend.refuse();
  EXPECT_EQ(run({}), ok("OK"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/1", "read 5 0x2001/1",
                                  "rpdo 5 1 len 4: 01 02 03 04 00 00 00 00"}));
}

TEST_F(RpdoShadow, refused_object_of_a_later_entry_ends_the_load) {
  map({{0x2000, 1, 8, "a"}});
  map_also({{0x2001, 1, 8, "b"}});
  map_also({{0x2002, 1, 8, "c"}});
  op.field = "a";
  backend.serve(1);
  backend.refuse();
  EXPECT_EQ(run({1}), failed("RPDO shadow sync failed for device"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/1", "read 5 0x2001/1"}));
}

// --- a load that fails: all or nothing ---

TEST_F(RpdoShadow, refused_load_leaves_the_image_as_it_was) {
  op.field = "byte";
  backend.serve(2);
  backend.refuse();
  EXPECT_EQ(run({0x99}), failed("RPDO shadow sync failed for device"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/1", "read 5 0x2000/2", "read 5 0x2001/0"}));
  EXPECT_EQ(unsynced_send(), sent({}));
}

TEST_F(RpdoShadow, load_that_throws_leaves_the_image_as_it_was) {
  op.field = "byte";
  backend.serve(2);
  backend.raise_exception();
  EXPECT_THROW(run({0x99}), BusException);
  EXPECT_EQ(unsynced_send(), sent({}));
}

TEST_F(RpdoShadow, operation_after_a_refused_load_loads_again_from_the_first_object) {
  op.field = "byte";
  backend.serve(3);
  backend.refuse();
  run({0x99});
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(RpdoShadow, bytes_that_a_refused_read_left_are_dropped) {
  next_send();
  op.refresh_shadow = 1;
  op.field = "wide";
  backend.refuse({0xEE, 0xEE});
  run({});
  EXPECT_EQ(backend.calls, loaded_then({sent(start)}));
}

// --- a refresh: every object is tried ---

TEST_F(RpdoShadow, refresh_reads_a_synced_image_again) {
  next_send();
  set_node(restarted);
  op.refresh_shadow = 1;
  op.field = "byte";
  EXPECT_EQ(run({0x99}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 21 22 99 24 25 26 27 28"}));
}

TEST_F(RpdoShadow, any_set_refresh_flag_counts) {
  next_send();
  op.refresh_shadow = 0x80;
  op.field = "byte";
  run({0x13});
  EXPECT_EQ(backend.calls, loaded_then({sent(start)}));
}

TEST_F(RpdoShadow, refresh_marks_the_image_synced) {
  op.refresh_shadow = 1;
  op.field = "byte";
  run({0x99});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 11 12 99 14 15 16 17 18"});
}

TEST_F(RpdoShadow, refresh_of_a_silent_node_sends_zeros_and_the_write_with_the_full_length) {
  op.refresh_shadow = 1;
  op.field = "byte";
  for (int read = 0; read < 4; ++read) {
    backend.refuse();
  }
  EXPECT_EQ(run({0x99}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 00 00 99 00 00 00 00 00"}));
}

TEST_F(RpdoShadow, refresh_marks_the_image_synced_even_when_the_node_refused) {
  op.refresh_shadow = 1;
  op.field = "byte";
  for (int read = 0; read < 4; ++read) {
    backend.refuse();
  }
  run({0x99});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 00 00 99 00 00 00 00 00"});
}

TEST_F(RpdoShadow, refresh_from_a_node_that_never_answered_leaves_zeros_that_count_as_loaded) {
  op.refresh_shadow = 1;
  op.field = "byte";
  for (int read = 0; read < 4; ++read) {
    backend.refuse();
  }
  EXPECT_EQ(run({0x99}), ok("OK")) << "nobody is told";
  backend.calls.clear();

  op.refresh_shadow = 0;
  op.field = "flags";
  EXPECT_EQ(run({0x77}), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 00 00 99 77 00 00 00 00"}) << "nothing is read";
  op.refresh_shadow = 1;
  op.field = "byte";
  backend.calls.clear();
  EXPECT_EQ(run({0x99}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 99 14 15 16 17 18"}))
      << "until it is loaded again";
}

TEST_F(RpdoShadow, refresh_that_throws_does_not_mark_the_image_synced) {
  op.refresh_shadow = 1;
  op.field = "byte";
  backend.serve(1);
  backend.raise_exception();
  EXPECT_THROW(run({0x99}), BusException);
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(RpdoShadow, refresh_that_throws_leaves_a_synced_image_synced) {
  next_send();
  set_node(restarted);
  op.refresh_shadow = 1;
  op.field = "byte";
  backend.serve(3);
  backend.raise_exception();
  EXPECT_THROW(run({0x99}), BusException);
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(RpdoShadow, refresh_after_a_failed_send_discards_the_unsent_bytes) {
  op.field = "byte";
  backend.serve(4);
  backend.refuse();
  EXPECT_EQ(run({0x99}), failed("RPDO send failed"));
  backend.calls.clear();

  op.refresh_shadow = 1;
  op.field = "flags";
  EXPECT_EQ(run({0x77}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 13 77 15 16 17 18"}));
}

TEST_F(RpdoShadow, unsent_bytes_go_with_the_next_send) {
  op.field = "byte";
  backend.serve(4);
  backend.refuse();
  run({0x99});
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 11 12 99 14 15 16 17 18"});
}

// --- an RPDO that the board does not have ---

TEST_F(RpdoShadow, unknown_rpdo_is_left_to_the_look_up_without_a_bus_call) {
  op.pdo_number = 9;
  op.fields = {"byte"};
  for (const bool refresh : {false, true}) {
    SCOPED_TRACE(refresh);
    op.refresh_shadow = refresh ? 1 : 0;
    EXPECT_EQ(run({1}), failed("RPDO 9 not found"));
    EXPECT_TRUE(backend.calls.empty());
  }
}

TEST_F(RpdoShadow, pdo_of_another_direction_is_unknown) {
  board.pdos.push_back({9, "TPDO", 0, {{0x3000, 0, 8, "byte"}}});
  op.pdo_number = 9;
  op.fields = {"byte"};
  EXPECT_EQ(run({1}), failed("RPDO 9 not found"));
  EXPECT_TRUE(backend.calls.empty());
}

// --- each RPDO for itself ---

class TwoRpdos : public RpdoShadow {
 protected:
  TwoRpdos() {
    board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 8, "a"}}}, {200, "RPDO", 0, {{0x2000, 2, 16, "a"}}}};
    backend.objects = {{{0x2000, 1}, {1}}, {{0x2000, 2}, {2, 3}}};
  }
};

TEST_F(TwoRpdos, each_is_loaded_by_its_own_first_operation) {
  EXPECT_EQ(next_send(1), (Calls{"read 5 0x2000/1", "rpdo 5 1 len 1: 01 00 00 00 00 00 00 00"}));
  EXPECT_EQ(next_send(200),
            (Calls{"read 5 0x2000/2", "rpdo 5 200 len 2: 02 03 00 00 00 00 00 00"}));
}

TEST_F(TwoRpdos, write_of_one_leaves_the_other_alone) {
  next_send(1);
  next_send(200);
  op.field = "a";
  run({0x99});
  EXPECT_EQ(next_send(1), Calls{"rpdo 5 1 len 1: 99 00 00 00 00 00 00 00"});
  EXPECT_EQ(next_send(200), Calls{"rpdo 5 200 len 2: 02 03 00 00 00 00 00 00"});
}

TEST_F(TwoRpdos, refresh_of_one_does_not_mark_the_other_synced) {
  op.refresh_shadow = 1;
  op.field = "a";
  run({0x99});
  EXPECT_EQ(next_send(200).size(), 2U);
}

// --- forgetting ---

TEST_F(TwoRpdos, forget_makes_the_next_operation_on_each_load_afresh) {
  next_send(1);
  next_send(200);
  backend.objects = {{{0x2000, 1}, {0x71}}, {{0x2000, 2}, {0x72, 0x73}}};
  controller.forget_rpdo_shadows();
  EXPECT_EQ(next_send(1), (Calls{"read 5 0x2000/1", "rpdo 5 1 len 1: 71 00 00 00 00 00 00 00"}));
  EXPECT_EQ(next_send(200),
            (Calls{"read 5 0x2000/2", "rpdo 5 200 len 2: 72 73 00 00 00 00 00 00"}));
  EXPECT_EQ(next_send(1), Calls{"rpdo 5 1 len 1: 71 00 00 00 00 00 00 00"});
}

TEST_F(RpdoShadow, forget_leaves_nothing_of_the_image_to_a_refresh_that_the_node_refuses) {
  next_send();
  controller.forget_rpdo_shadows();
  EXPECT_EQ(unsynced_send(), sent({}));
}

TEST_F(RpdoShadow, forget_before_any_operation_changes_nothing) {
  controller.forget_rpdo_shadows();
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(RpdoShadow, forget_makes_no_bus_call) {
  next_send();
  controller.forget_rpdo_shadows();
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(RpdoShadow, forget_discards_unsent_bytes_at_the_next_load) {
  op.field = "byte";
  backend.serve(4);
  backend.refuse();
  run({0x99});
  controller.forget_rpdo_shadows();
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

// --- where a write goes ---

TEST_F(RpdoShadow, surplus_bytes_of_a_write_reach_no_neighbour) {
  op.field = "byte";
  run({0xA1, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18");
}

TEST_F(RpdoShadow, bytes_that_a_write_does_not_give_stay_as_they_are) {
  op.field = "wide";
  run({0xA1, 0xA2});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 13 14 A1 A2 17 18");
}

TEST_F(RpdoShadow, write_over_the_end_of_the_frame_is_cut) {
  map({{0x2000, 1, 48, "a"}, {0x2000, 2, 32, "b"}});
  op.field = "b";
  run({0xB1, 0xB2, 0xB3, 0xB4});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 00 00 00 00 00 00 B1 B2");
}

TEST_F(RpdoShadow, write_beyond_the_frame_changes_nothing) {
  map({{0x2000, 1, 64, "a"}, {0x2000, 2, 8, "b"}, {0x2000, 3, 255, "c"}, {0x2000, 4, 255, "d"}});
  for (const char* field : {"b", "c", "d"}) {
    op.field = field;
    EXPECT_EQ(run(Bytes(40, 0xEE)), ok("OK"));
    EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 00 00 00 00 00 00 00 00");
  }
}

TEST_F(RpdoShadow, write_of_less_than_a_byte_changes_nothing) {
  map({{0x2000, 1, 7, "bits"}, {0x2000, 2, 8, "byte"}});
  backend.objects = {{{0x2000, 2}, {0x22}}};
  op.field = "bits";
  EXPECT_EQ(run({0xEE}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 2: 22 00 00 00 00 00 00 00");
}

TEST_F(RpdoShadow, object_mapped_twice_is_written_where_its_field_name_says) {
  map({{0x2000, 1, 8, "first"}, {0x2000, 1, 8, "second"}});
  op.field = "second";
  run({0xA2});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 2: 00 A2 00 00 00 00 00 00");
}

TEST_F(RpdoShadow, equal_names_are_told_apart_by_their_objects) {
  map({{0x2000, 1, 8, "same"}, {0x2000, 2, 8, "same"}, {0x2000, 3, 8, "same"}});
  op.index = 0x2000;
  op.sub_index = 3;
  run({0xA3});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 3: 00 00 A3 00 00 00 00 00");
}

TEST_F(RpdoShadow, empty_names_are_told_apart_by_their_objects) {
  map({{0x2000, 1, 8, ""}, {0x2000, 2, 16, ""}, {0x2000, 3, 8, ""}});
  op.index = 0x2000;
  op.sub_index = 2;
  run({0xA2, 0xA3});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 4: 00 A2 A3 00 00 00 00 00");
}

TEST_F(RpdoShadow, place_in_a_later_entry_of_the_number_counts_from_its_own_byte_0) {
  map({{0x2000, 1, 32, "same"}});
  map_also({{0x2001, 1, 8, "same"}, {0x2001, 2, 8, "same"}});
  op.index = 0x2001;
  op.sub_index = 2;
  run({0xA2});
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 4: 00 A2 00 00 00 00 00 00");
}

TEST_F(RpdoShadow, same_object_in_another_rpdo_is_not_written) {
  board.pdos.push_back({2, "RPDO", 0, {{0x2000, 2, 8, "byte"}}});
  next_send(2);
  op.field = "byte";
  run({0xA1});
  EXPECT_EQ(next_send(2), Calls{"rpdo 5 2 len 1: 13 00 00 00 00 00 00 00"});
}

TEST_F(RpdoShadow, node_id_is_read_afresh_at_every_bus_call) {
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
  op.field = "byte";
  other.execute_configured_operation(op, "device", {1});
  EXPECT_EQ(renaming.calls, (Calls{"read 5 0x2000/1", "read 6 0x2000/2", "read 7 0x2001/0",
                                   "read 8 0x2002/0", "rpdo 9 1 len 8: 00 00 01 00 00 00 00 00"}));
}

}  // namespace
}  // namespace velmora_can_bridge
