#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

class PdoWritePatch : public ShadowTest {
 protected:
  PdoWritePatch() {
    op.kind = "pdo_write";
    op.pdo_number = 1;
  }
};

// --- which RPDO ---

TEST_F(PdoWritePatch, rpdo_is_found_by_the_object_when_no_number_is_configured) {
  op.pdo_number = 0;
  op.index = 0x2002;
  op.fields = {"byte"};
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"}));
}

TEST_F(PdoWritePatch, configured_number_wins_over_the_object) {
  board.pdos.push_back({2, "RPDO", 0, {{0x2003, 0, 8, "byte"}}});
  op.pdo_number = 2;
  op.index = 0x2000;
  op.field = "byte";
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2003/0", "rpdo 5 2 len 1: A1 00 00 00 00 00 00 00"}));
}

TEST_F(PdoWritePatch, object_that_no_rpdo_maps_is_refused_on_both_paths) {
  op.pdo_number = 0;
  op.index = 0x2003;
  op.fields = {"byte"};
  for (const char* transport : {"", "sdo"}) {
    SCOPED_TRACE(transport);
    op.transport = transport;
    EXPECT_EQ(run({0xA1}), failed("No RPDO mapping found for device"));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(PdoWritePatch, rpdo_numbered_0_is_never_found) {
  board.pdos[0].number = 0;
  op.pdo_number = 0;
  op.index = 0x2000;
  op.field = "byte";
  EXPECT_EQ(run({0xA1}), failed("No RPDO mapping found for device"));
  EXPECT_TRUE(backend.calls.empty());
}

// --- one field ---

struct SingleRow {
  const char* name;
  const char* kind;
  const char* field;
  std::uint16_t index;
  std::uint8_t sub_index;
  Bytes payload;
  const char* send;
};

void PrintTo(const SingleRow& row, std::ostream* out) { *out << row.name; }

class PdoWriteOneField : public PdoWritePatch, public testing::WithParamInterface<SingleRow> {
 protected:
  PdoWriteOneField() {
    op.kind = GetParam().kind;
    op.field = GetParam().field;
    op.index = GetParam().index;
    op.sub_index = GetParam().sub_index;
  }
};

TEST_P(PdoWriteOneField, takes_the_whole_payload) {
  EXPECT_EQ(run(GetParam().payload), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({GetParam().send}));
}

INSTANTIATE_TEST_SUITE_P(Rows, PdoWriteOneField,
                         testing::Values(SingleRow{"by_name",
                                                   "pdo_write",
                                                   "word",
                                                   0,
                                                   0,
                                                   {0xA1, 0xA2},
                                                   "rpdo 5 1 len 8: A1 A2 13 14 15 16 17 18"},
                                         SingleRow{"name_wins_over_the_object",
                                                   "pdo_write",
                                                   "byte",
                                                   0x2001,
                                                   0,
                                                   {0xA1},
                                                   "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
                                         SingleRow{"by_object",
                                                   "pdo_write",
                                                   "",
                                                   0x2001,
                                                   0,
                                                   {0xA1},
                                                   "rpdo 5 1 len 8: 11 12 13 A1 15 16 17 18"},
                                         SingleRow{"by_index_with_its_sub_index",
                                                   "pdo_write",
                                                   "",
                                                   0x2000,
                                                   2,
                                                   {0xA1},
                                                   "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
                                         SingleRow{"surplus_bytes_are_dropped",
                                                   "pdo_write",
                                                   "byte",
                                                   0,
                                                   0,
                                                   {0xA1, 0xEE},
                                                   "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"},
                                         SingleRow{"missing_bytes_stay",
                                                   "pdo_write",
                                                   "word",
                                                   0,
                                                   0,
                                                   {0xA1},
                                                   "rpdo 5 1 len 8: A1 12 13 14 15 16 17 18"},
                                         SingleRow{"no_bytes_send_the_image_unchanged",
                                                   "pdo_write",
                                                   "word",
                                                   0,
                                                   0,
                                                   {},
                                                   "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"},
                                         SingleRow{"patch_writes_missing_bytes_like_a_write",
                                                   "pdo_patch",
                                                   "word",
                                                   0,
                                                   0,
                                                   {0xA1},
                                                   "rpdo 5 1 len 8: A1 12 13 14 15 16 17 18"},
                                         SingleRow{"patch_by_object",
                                                   "pdo_patch",
                                                   "",
                                                   0x2000,
                                                   1,
                                                   {0xA1, 0xA2, 0xEE},
                                                   "rpdo 5 1 len 8: A1 A2 13 14 15 16 17 18"}),
                         row_name);

class PdoWriteOneFieldBySdo : public PdoWritePatch,
                              public testing::WithParamInterface<const char*> {
 protected:
  PdoWriteOneFieldBySdo() {
    op.kind = GetParam();
    op.transport = "sdo";
    op.field = "word";
  }
};

TEST_P(PdoWriteOneFieldBySdo, payload_goes_whole_to_the_mapped_object) {
  op.index = 0x7777;
  op.sub_index = 77;
  for (const Bytes& payload : {Bytes{}, Bytes{1}, Bytes{1, 2}, Bytes{1, 2, 3}}) {
    backend.calls.clear();
    EXPECT_EQ(run(payload), ok("OK (SDO)"));
    static constexpr const char* texts[] = {"", " 01", " 01 02", " 01 02 03"};
    EXPECT_EQ(backend.calls, Calls{std::string("write 5 0x2000/1") + texts[payload.size()]});
  }
}

TEST_P(PdoWriteOneFieldBySdo, object_is_found_without_a_name) {
  op.field = "";
  op.index = 0x2000;
  op.sub_index = 2;
  EXPECT_EQ(run({0xA1}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2000/2 A1"});
}

TEST_P(PdoWriteOneFieldBySdo, refused_write_names_the_index_alone) {
  backend.refuse();
  EXPECT_EQ(run({1, 2}), failed("SDO write 0x2000 failed"));
  EXPECT_EQ(backend.calls.size(), 1U);
}

TEST_P(PdoWriteOneFieldBySdo, exception_of_the_write_passes_to_the_caller) {
  backend.raise_exception();
  EXPECT_THROW(run({1, 2}), BusException);
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

INSTANTIATE_TEST_SUITE_P(Kinds, PdoWriteOneFieldBySdo, testing::Values("pdo_write", "pdo_patch"));

// --- several fields ---

struct SeveralRow {
  const char* name;
  const char* kind;
  std::vector<std::string> fields;
  Bytes payload;
  const char* send;
};

void PrintTo(const SeveralRow& row, std::ostream* out) { *out << row.name; }

class PdoWriteSeveralFields : public PdoWritePatch,
                              public testing::WithParamInterface<SeveralRow> {};

TEST_P(PdoWriteSeveralFields, payload_is_cut_in_list_order) {
  op.kind = GetParam().kind;
  op.fields = GetParam().fields;
  EXPECT_EQ(run(GetParam().payload), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({GetParam().send}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PdoWriteSeveralFields,
    testing::Values(SeveralRow{"all_fields",
                               "pdo_write",
                               {"word", "byte", "flags", "wide"},
                               {1, 2, 3, 4, 5, 6, 7, 8},
                               "rpdo 5 1 len 8: 01 02 03 04 05 06 07 08"},
                    SeveralRow{"order_of_the_list_not_of_the_frame",
                               "pdo_write",
                               {"flags", "word"},
                               {1, 2, 3},
                               "rpdo 5 1 len 8: 02 03 13 01 15 16 17 18"},
                    SeveralRow{"field_named_twice_keeps_the_later_value",
                               "pdo_write",
                               {"byte", "byte"},
                               {1, 2},
                               "rpdo 5 1 len 8: 11 12 02 14 15 16 17 18"},
                    SeveralRow{"surplus_payload_is_ignored",
                               "pdo_write",
                               {"byte"},
                               {1, 0xEE, 0xEE},
                               "rpdo 5 1 len 8: 11 12 01 14 15 16 17 18"},
                    SeveralRow{"patch_of_all_fields",
                               "pdo_patch",
                               {"word", "byte"},
                               {1, 2, 3},
                               "rpdo 5 1 len 8: 01 02 03 14 15 16 17 18"},
                    SeveralRow{"patch_writes_the_fields_that_fit",
                               "pdo_patch",
                               {"word", "byte", "wide"},
                               {1, 2, 3},
                               "rpdo 5 1 len 8: 01 02 03 14 15 16 17 18"},
                    SeveralRow{"patch_leaves_a_field_that_fits_in_part_alone",
                               "pdo_patch",
                               {"byte", "word"},
                               {1, 2},
                               "rpdo 5 1 len 8: 11 12 01 14 15 16 17 18"},
                    SeveralRow{"patch_skips_later_fields_that_would_fit",
                               "pdo_patch",
                               {"word", "byte"},
                               {1},
                               "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"},
                    SeveralRow{"patch_without_payload_sends_the_image_unchanged",
                               "pdo_patch",
                               {"word", "byte"},
                               {},
                               "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"},
                    SeveralRow{"patch_does_not_look_past_the_field_that_does_not_fit",
                               "pdo_patch",
                               {"word", "unknown"},
                               {1},
                               "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18"}),
    row_name);

TEST_F(PdoWritePatch, list_of_fields_wins_over_the_single_field) {
  op.fields = {"byte"};
  op.field = "wide";
  EXPECT_EQ(run({0xA1, 0xA2}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18");
}

TEST_F(PdoWritePatch, field_of_less_than_a_byte_takes_no_payload) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 9, 7, "bits"}, {0x2000, 2, 8, "byte"}}}};
  op.fields = {"bits", "byte", "bits"};
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, (Calls{"read 5 0x2000/2", "rpdo 5 1 len 2: A1 00 00 00 00 00 00 00"}));
}

TEST_F(PdoWritePatch, field_of_less_than_a_byte_is_an_empty_sdo_write) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 9, 7, "bits"}, {0x2000, 2, 8, "byte"}}}};
  op.transport = "sdo";
  op.fields = {"bits", "byte"};
  EXPECT_EQ(run({0xA1}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, (Calls{"write 5 0x2000/9", "write 5 0x2000/2 A1"}));
}

TEST_F(PdoWritePatch, field_beyond_the_frame_takes_its_payload_all_the_same) {
  board.pdos[0].mappings.push_back({0x2003, 0, 16, "beyond"});
  op.fields = {"beyond", "byte"};
  EXPECT_EQ(run({0xEE, 0xEE, 0xA1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18");
}

TEST_F(PdoWritePatch, write_with_a_short_payload_keeps_the_fields_before_unsent) {
  op.fields = {"word", "byte", "wide"};
  EXPECT_EQ(run({1, 2, 3, 4, 5, 6}), failed("payload too short for field wide"));
  EXPECT_EQ(backend.calls, loads);
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 01 02 03 14 15 16 17 18"});
}

TEST_F(PdoWritePatch, unknown_field_keeps_the_fields_before_unsent) {
  op.fields = {"byte", "unknown", "flags"};
  EXPECT_EQ(run({1, 2, 3}), failed("RPDO field not found: unknown"));
  EXPECT_EQ(backend.calls, loads);
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 11 12 01 14 15 16 17 18"});
}

// --- several fields by SDO ---

class PdoWriteBySdo : public PdoWritePatch {
 protected:
  PdoWriteBySdo() {
    op.transport = "sdo";
    op.fields = {"word", "byte", "flags"};
  }
};

TEST_F(PdoWriteBySdo, each_field_goes_to_its_own_object_without_a_load) {
  EXPECT_EQ(run({1, 2, 3, 4, 5}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x2000/1 01 02", "write 5 0x2000/2 03", "write 5 0x2001/0 04"}));
}

TEST_F(PdoWriteBySdo, image_is_not_touched) {
  next_send();
  op.refresh_shadow = 1;
  run({1, 2, 3, 4});
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(PdoWriteBySdo, image_is_not_synced) {
  op.refresh_shadow = 1;
  run({1, 2, 3, 4});
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(PdoWriteBySdo, upper_case_transport_sends_the_rpdo) {
  op.transport = "SDO";
  EXPECT_EQ(run({1, 2, 3, 4}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 01 02 03 04 15 16 17 18"}));
}

TEST_F(PdoWriteBySdo, patch_writes_the_fields_that_fit) {
  op.kind = "pdo_patch";
  EXPECT_EQ(run({1, 2, 3}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls, (Calls{"write 5 0x2000/1 01 02", "write 5 0x2000/2 03"}));
}

TEST_F(PdoWriteBySdo, patch_without_payload_writes_nothing) {
  op.kind = "pdo_patch";
  EXPECT_EQ(run({}), ok("OK (SDO)"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(PdoWriteBySdo, short_payload_is_refused_after_the_fields_before) {
  EXPECT_EQ(run({1, 2, 3}), failed("payload too short for field flags"));
  EXPECT_EQ(backend.calls, (Calls{"write 5 0x2000/1 01 02", "write 5 0x2000/2 03"}));
}

struct SdoFailure {
  const char* name;
  std::size_t position;
  const char* message;
};

void PrintTo(const SdoFailure& row, std::ostream* out) { *out << row.name; }

class PdoWriteBySdoFailing : public PdoWriteBySdo,
                             public testing::WithParamInterface<SdoFailure> {};

TEST_P(PdoWriteBySdoFailing, refused_write_names_object_with_sub_index_as_the_last_call) {
  backend.serve(GetParam().position);
  backend.refuse();
  EXPECT_EQ(run({1, 2, 3, 4}), failed(GetParam().message));
  EXPECT_EQ(backend.calls.size(), GetParam().position + 1);
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_P(PdoWriteBySdoFailing, exception_of_a_write_is_the_last_call) {
  backend.serve(GetParam().position);
  backend.raise_exception();
  EXPECT_THROW(run({1, 2, 3, 4}), BusException);
  EXPECT_EQ(backend.calls.size(), GetParam().position + 1);
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

INSTANTIATE_TEST_SUITE_P(Writes, PdoWriteBySdoFailing,
                         testing::Values(SdoFailure{"first", 0, "SDO write 0x2000/1 failed"},
                                         SdoFailure{"second", 1, "SDO write 0x2000/2 failed"},
                                         SdoFailure{"third", 2, "SDO write 0x2001/0 failed"}),
                         row_name);

// --- refused lookups, and their order ---

struct WriteRefusalRow {
  const char* name;
  std::uint8_t pdo_number;
  std::vector<std::string> fields;
  const char* field;
  Bytes payload;
  bool loads;  ///< whether the image is prepared before the lookup
  const char* message;
};

void PrintTo(const WriteRefusalRow& row, std::ostream* out) { *out << row.name; }

class PdoWriteRefusal : public PdoWritePatch, public testing::WithParamInterface<WriteRefusalRow> {
 protected:
  PdoWriteRefusal() {
    op.pdo_number = GetParam().pdo_number;
    op.fields = GetParam().fields;
    op.field = GetParam().field;
    op.index = 0x2003;
  }

  static Calls prepared() { return GetParam().loads ? loads : Calls{}; }
};

TEST_P(PdoWriteRefusal, comes_after_the_load) {
  EXPECT_EQ(run(GetParam().payload), failed(GetParam().message));
  EXPECT_EQ(backend.calls, prepared());
}

TEST_P(PdoWriteRefusal, comes_after_a_refresh) {
  if (GetParam().loads) {
    next_send();
  }
  op.refresh_shadow = 1;
  EXPECT_EQ(run(GetParam().payload), failed(GetParam().message));
  EXPECT_EQ(backend.calls, prepared());
}

TEST_P(PdoWriteRefusal, is_the_same_by_sdo_without_a_bus_call) {
  op.transport = "sdo";
  EXPECT_EQ(run(GetParam().payload), failed(GetParam().message));
  EXPECT_TRUE(backend.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PdoWriteRefusal,
    testing::Values(
        WriteRefusalRow{
            "unknown_name", 1, {}, "unknown", {1}, true, "RPDO mapping not found for device"},
        WriteRefusalRow{
            "name_in_another_case", 1, {}, "Byte", {1}, true, "RPDO mapping not found for device"},
        WriteRefusalRow{
            "unknown_object", 1, {}, "", {1}, true, "RPDO mapping not found for device"},
        WriteRefusalRow{"name_in_an_unknown_rpdo",
                        9,
                        {},
                        "byte",
                        {1},
                        false,
                        "RPDO mapping not found for device"},
        WriteRefusalRow{"object_in_an_unknown_rpdo",
                        9,
                        {},
                        "",
                        {1},
                        false,
                        "RPDO mapping not found for device"},
        WriteRefusalRow{
            "fields_in_an_unknown_rpdo", 9, {"unknown"}, "", {}, false, "RPDO 9 not found"},
        WriteRefusalRow{"fields_in_the_highest_unknown_rpdo",
                        255,
                        {"byte"},
                        "",
                        {1},
                        false,
                        "RPDO 255 not found"},
        WriteRefusalRow{"unknown_first_of_several",
                        1,
                        {"unknown", "byte"},
                        "",
                        {1, 2},
                        true,
                        "RPDO field not found: unknown"},
        WriteRefusalRow{"unknown_field_before_a_short_payload",
                        1,
                        {"unknown"},
                        "",
                        {},
                        true,
                        "RPDO field not found: unknown"},
        WriteRefusalRow{
            "empty_name_among_several", 1, {""}, "", {1}, true, "RPDO field not found: "},
        WriteRefusalRow{"short_payload_before_an_unknown_field",
                        1,
                        {"word", "unknown"},
                        "",
                        {1},
                        true,
                        "payload too short for field word"},
        WriteRefusalRow{
            "no_payload", 1, {"byte"}, "", {}, true, "payload too short for field byte"}),
    row_name);

TEST_F(PdoWritePatch, refused_load_is_reported_before_a_refused_lookup) {
  op.fields = {"unknown"};
  backend.refuse();
  EXPECT_EQ(run({}), failed("RPDO shadow sync failed for device"));
}

TEST_F(PdoWritePatch, number_that_is_not_found_is_reported_before_any_load) {
  op.pdo_number = 0;
  op.index = 0x2003;
  op.refresh_shadow = 1;
  EXPECT_EQ(run({}), failed("No RPDO mapping found for device"));
  EXPECT_TRUE(backend.calls.empty());
}

// --- several entries of one number ---

class PdoWriteLaterEntry : public PdoWritePatch {
 protected:
  PdoWriteLaterEntry() {
    board.pdos.push_back({1, "TPDO", 0, {{0x2003, 0, 8, "late"}}});
    board.pdos.push_back({1, "RPDO", 0, {{0x2004, 0, 8, ""}, {0x2003, 0, 8, "late"}}});
  }
};

TEST_F(PdoWriteLaterEntry, object_is_found_there) {
  op.index = 0x2003;
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 8: 00 A1 13 14 15 16 17 18");
}

TEST_F(PdoWriteLaterEntry, name_is_not) {
  op.field = "late";
  EXPECT_EQ(run({0xA1}), failed("RPDO mapping not found for device"));
}

TEST_F(PdoWriteLaterEntry, name_among_several_is_not) {
  op.fields = {"late"};
  EXPECT_EQ(run({0xA1}), failed("RPDO field not found: late"));
}

// --- failures of the bus ---

class PdoWriteFailing : public PdoWritePatch, public testing::WithParamInterface<FailingCall> {
 protected:
  PdoWriteFailing() { op.fields = {"byte", "word"}; }
};

TEST_P(PdoWriteFailing, leaves_the_image_that_the_next_send_shows) {
  expect_failing_call(GetParam(), {0xA1, 0xA2, 0xA3}, "device",
                      {0xA2, 0xA3, 0xA1, 0x14, 0x15, 0x16, 0x17, 0x18});
}

TEST_P(PdoWriteFailing, leaves_the_image_of_one_field_as_well) {
  op.fields.clear();
  op.field = "flags";
  expect_failing_call(GetParam(), {0xA1}, "device",
                      {0x11, 0x12, 0x13, 0xA1, 0x15, 0x16, 0x17, 0x18});
}

TEST_P(PdoWriteFailing, leaves_the_image_of_a_patch_as_well) {
  op.kind = "pdo_patch";
  expect_failing_call(GetParam(), {0xA1, 0xA2}, "device",
                      {0x11, 0x12, 0xA1, 0x14, 0x15, 0x16, 0x17, 0x18});
}

TEST_P(PdoWriteFailing, leaves_the_refreshed_image_with_the_write) {
  op.refresh_shadow = 1;
  expect_failing_call_of_refresh(GetParam(), {0xA1, 0xA2, 0xA3}, [](Frame& frame) {
    frame[0] = 0xA2;
    frame[1] = 0xA3;
    frame[2] = 0xA1;
  });
}

INSTANTIATE_TEST_SUITE_P(Calls, PdoWriteFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge
