#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "problem_texts.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

class ValueChecks : public testing::TestWithParam<ProblemCase> {};

TEST_P(ValueChecks, of) {
  EXPECT_EQ(texts_of(parse_board(GetParam().yaml).problems), GetParam().problems);
}

/// A field with so many bits; what its description says stands in line 2.
ProblemCase field(const std::string& name, const std::string& bits, const std::string& keys,
                  const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: [{index: 0x2000, "
          "bit_length: " +
              bits + ",\n" + keys + "}]}]}]",
          problems};
}

/// An object reached by SDO; what its description says stands in line 2.
ProblemCase object(const std::string& name, const std::string& keys, const Texts& problems) {
  // The mapping tells what no type does, but for a length.
  return {name,
          "nodes: [{node_id: 1, objects: [{index: 0x2000,\n" + keys +
              "}], pdos: [{number: 1, direction: TPDO, mappings: [{index: 0x2000, bit_length: "
              "12}]}]}]",
          problems};
}

/// A field of a TPDO.
ProblemCase in_tpdo(const std::string& name, const std::string& keys, const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, pdos: [{number: 1, direction: TPDO, mappings: [{index: 0x2000, " +
              keys + "}]}]}]",
          problems};
}

ProblemCase wrong_type(const std::string& name, const std::string& bits, const std::string& type,
                       const std::string& advice) {
  return field(
      name, bits, "type: " + type,
      {"2:7: error: type: " + type + " does not suit a field of " + bits + " bits, " + advice});
}

INSTANTIATE_TEST_SUITE_P(
    types_of_fields, ValueChecks,
    testing::Values(field("u8", "8", "type: u8", {}), field("s8", "8", "type: s8", {}),
                    field("u16", "16", "type: u16", {}), field("s16", "16", "type: s16", {}),
                    field("u32", "32", "type: u32", {}), field("s32", "32", "type: s32", {}),
                    field("float32", "32", "type: float32", {}),
                    field("u64", "64", "type: u64", {}), field("s64", "64", "type: s64", {}),
                    field("of_a_length_without_type", "24", "unit: a", {}),
                    wrong_type("too_long", "8", "u16", "write u8 or s8"),
                    wrong_type("too_short", "16", "u8", "write u16 or s16"),
                    wrong_type("float_of_16", "16", "float32", "write u16 or s16"),
                    wrong_type("float_of_64", "64", "float32", "write u64 or s64"),
                    wrong_type("integer_of_24", "24", "u32", "leave the type out"),
                    wrong_type("integer_of_16", "32", "s16", "write u32, s32 or float32"),
                    in_tpdo("u8_of_12", "bit_length: 12,\ntype: u8",
                            {"2:7: error: type: u8 does not suit a field of 12 bits, leave the "
                             "type out"}),
                    in_tpdo("float_of_36", "bit_length: 36,\ntype: float32",
                            {"2:7: error: type: float32 does not suit a field of 36 bits, leave "
                             "the type out"}),
                    in_tpdo("part_of_a_byte", "bit_length: 12,\nunit: V", {}),
                    in_tpdo("name_with_an_equals_sign", "bit_length: 8,\nfield: a=b",
                            {"2:8: warning: field: \"a=b\" cannot be named in words, where "
                             "\"=\" and \":\" end a name"}),
                    in_tpdo("name_with_a_colon", "bit_length: 8,\nfield: a:b",
                            {"2:8: warning: field: \"a:b\" cannot be named in words, where "
                             "\"=\" and \":\" end a name"}),
                    in_tpdo("name_of_a_number", "bit_length: 8,\nfield: 0x1F",
                            {"2:8: warning: field: \"0x1F\" cannot be named in words, where it "
                             "is a number"}),
                    wrong_type("text", "8", "text", "write u8 or s8"),
                    wrong_type("bytes", "32", "bytes", "write u32, s32 or float32")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    ranges, ValueChecks,
    testing::Values(
        object("one_number", "type: u8, minimum: 5, maximum: 5", {}),
        object("ends_of_the_type", "type: s16, minimum: -32768, maximum: 32767", {}),
        object("turned_round", "minimum: 6, maximum: 5",
               {"2:22: error: maximum: 5 is less than the minimum, 6"}),
        object("turned_round_below_0", "type: s8, minimum: -1, maximum: -2",
               {"2:33: error: maximum: -2 is less than the minimum, -1"}),
        object("above_the_type", "type: u8, maximum: 256",
               {"2:20: error: maximum: 256 does not fit into u8 (0 to 255)"}),
        object("below_the_type", "type: u8, minimum: -1",
               {"2:20: error: minimum: -1 does not fit into u8 (0 to 255)"}),
        object("below_the_longest_type", "type: u64, minimum: -1",
               {"2:21: error: minimum: -1 does not fit into u64 (0 to 18446744073709551615)"}),
        object("below_a_signed_type", "type: s32, minimum: -2147483649",
               {"2:21: error: minimum: -2147483649 does not fit into s32 (-2147483648 to "
                "2147483647)"}),
        object("of_a_float", "type: float32, minimum: -5, maximum: 7, values: {a: 1}, unit: V",
               {"2:16: error: minimum: counts are for whole numbers, not for float32",
                "2:29: error: maximum: counts are for whole numbers, not for float32",
                "2:41: error: values: counts are for whole numbers, not for float32"}),
        object("scale_of_a_float", "type: float32, scale: 0.5, unit: V", {}),
        object("of_unknown_type", "minimum: -5, maximum: 18446744073709551615", {}),
        field("unsigned_bits", "8", "minimum: 0, maximum: 255", {}),
        field("signed_bits", "8", "minimum: -128, maximum: 127", {}),
        field("above_the_bits", "8", "maximum: 256",
              {"2:10: error: maximum: 256 does not fit into 8 bits (0 to 255)"}),
        field("neither_signed_nor_unsigned", "8", "minimum: -1, maximum: 200",
              {"2:23: error: maximum: 200 does not fit into 8 bits (-128 to 127)"}),
        field("bits_beside_a_wrong_type", "8", "type: x, maximum: 256",
              {"2:7: error: type: expected u8, s8, u16, s16, u32, s32, u64, s64, float32, text or "
               "bytes, found \"x\""}),
        ProblemCase{"unreadable_bits",
                    "nodes: [{node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: [\n"
                    "{index: 0x2000, bit_length: x, type: u8, maximum: 255}]}]}]",
                    {"2:29: error: bit_length: expected a number from 1 to 64, found \"x\""}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    codes, ValueChecks,
    testing::Values(
        object("ends_of_the_type", "type: s8, values: {low: -128, high: 127}", {}),
        object("outside_the_type", "type: u8, values: {a: 1, b: 256}",
               {"2:29: error: values, b: 256 does not fit into u8 (0 to 255)"}),
        field("outside_the_bits", "8", "values: {a: 256}",
              {"2:13: error: values, a: 256 does not fit into 8 bits (0 to 255)"}),
        object("outside_its_own_range",
               "type: u8, minimum: 2, maximum: 3, values: {a: 1, b: 2, c: 4}",
               {"2:47: warning: values, a: 1 is less than the minimum, 2",
                "2:59: warning: values, c: 4 is more than the maximum, 3"}),
        object("twice", "values: {a: 1, b: 2, c: 0x01}",
               {"2:25: error: values: 1 has the name \"a\" already, a code has one name"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    parts, ValueChecks,
    testing::Values(
        object("scale_with_unit", "scale: 2, unit: mm", {}),
        object("scale_without_unit", "scale: 2",
               {"2:8: error: scale: a count is so much of what? write its unit as well"}),
        object("scale_beside_an_unreadable_unit", "scale: 2, unit: ''",
               {"2:17: error: unit: expected a unit without blanks, such as mm/s, found the text "
                "\"\""}),
        object("text_with_unit", "type: text, unit: a", {}),
        object("numbers_of_a_text",
               "type: text, minimum: 1, maximum: 2, unit: V, scale: 2, values: {a: 1}",
               {"2:13: error: minimum: only a number has one, not text",
                "2:25: error: maximum: only a number has one, not text",
                "2:46: error: scale: only a number has one, not text",
                "2:56: error: values: only a number has one, not text"}),
        object("range_of_bytes", "type: bytes, minimum: 1",
               {"2:14: error: minimum: only a number has one, not bytes"})),
    RowName());

/// An object of a node with a drive; what its description says stands in line 2.
ProblemCase known_object(const std::string& name, const std::string& index, const std::string& keys,
                         const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, device_od_map: {wheel: {profile: ci402, base_index: 0x6040}}, "
          "pdos: [{number: 1, direction: TPDO, mappings: [{index: 0x2001, bit_length: 16}]}], "
          "objects: [{index: " +
              index + ",\n" + keys + "}]}]",
          problems};
}

INSTANTIATE_TEST_SUITE_P(
    known_objects, ValueChecks,
    testing::Values(
        known_object("own_type", "0x60FF", "type: s32, unit: m", {}),
        known_object("float_of_a_drive", "0x60FF", "type: float32",
                     {"2:7: error: type: float32, but 0x60FF/0 is the target velocity of "
                      "\"wheel\", write s32"}),
        known_object("other_sign_of_a_drive", "0x6083", "type: s32",
                     {"2:7: error: type: s32, but 0x6083/0 is the profile acceleration of "
                      "\"wheel\", write u32"}),
        known_object("text_of_a_drive", "0x60FF", "type: text",
                     {"2:7: error: type: text, but 0x60FF/0 is the target velocity of \"wheel\", "
                      "write a type of 4 bytes"}),
        known_object("other_sign_of_every_node", "0x1017", "type: s16",
                     {"2:7: error: type: s16, but 0x1017/0 is the producer heartbeat time, write "
                      "u16"}),
        known_object("other_length_of_every_node", "0x1017", "type: u32",
                     {"2:7: error: type: u32, but 0x1017/0 is the producer heartbeat time, write a "
                      "type of 2 bytes"}),
        known_object("text_of_every_node", "0x1008", "unit: a", {}),
        known_object("above_the_profile", "0x6060", "maximum: 300",
                     {"2:10: error: maximum: 300 does not fit into s8 (-128 to 127)"}),
        known_object("within_the_profile", "0x6060", "minimum: -128, values: {a: 127}", {}),
        known_object("code_beyond_the_profile", "0x1017", "values: {a: -1}",
                     {"2:13: error: values, a: -1 does not fit into u16 (0 to 65535)"}),
        known_object("length_of_a_mapping", "0x2001", "unit: V", {}),
        known_object("nobody_tells_the_length", "0x2002", "unit: V",
                     {"1:177: warning: type is missing: nothing tells how many bytes 0x2002/0 "
                      "has"})),
    RowName());

/// A set_mode of an LED whose mode has this minimum; the operation stands in line 2.
ProblemCase led_mode(const std::string& name, const std::string& minimum, const Texts& problems) {
  return {
      name,
      "nodes: [{node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: [{index: 0x2000, "
      "field: mode, bit_length: 8, minimum: " +
          minimum +
          "}, {index: 0x2001, field: period, bit_length: 16, minimum: 9}]}], operations: {op:\n"
          "{kind: led_write, pdo_number: 1, led_operation: set_mode, fields: [mode, period]}}}]",
      problems};
}

/// A set_led whose mode, behind three colours, has a minimum beyond 3; the operation stands in
/// line 2.
ProblemCase led_mode_behind_colours(const std::string& name, const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: [{index: 0x2000, "
          "field: red, bit_length: 8, minimum: 9}, {index: 0x2001, field: rest, bit_length: 16}, "
          "{index: 0x2002, field: mode, bit_length: 8, minimum: 5}, {index: 0x2003, field: period, "
          "bit_length: 16}]}], operations: {op:\n{kind: led_write, pdo_number: 1, led_operation: "
          "set_led, fields: [red, rest, mode, period]}}}]",
          problems};
}

/// A set_target of a drive with this range; the operation stands in line 2.
ProblemCase target(const std::string& name, const std::string& object, const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, device_od_map: {wheel: {profile: ci402, base_index: 0x6040}}, "
          "objects: [{" +
              object + "}], operations: {op:\n{kind: ci402_set_target}}}]",
          problems};
}

INSTANTIATE_TEST_SUITE_P(
    operations, ValueChecks,
    testing::Values(
        led_mode("mode_in_its_range", "3", {}),
        led_mode("mode_beyond_its_range", "4",
                 {"2:68: error: fields: \"mode\" is the mode, 0 to 3, but its minimum is 4"}),
        led_mode_behind_colours(
            "mode_behind_colours",
            {"2:78: error: fields: \"mode\" is the mode, 0 to 3, but its minimum is 5"}),
        target("target_in_its_range", "index: 0x60FF, minimum: 32767, maximum: 40000", {}),
        target("target_above_16_bits", "index: 0x60FF, minimum: 32768",
               {"2:8: warning: kind: takes a target of 16 bits, and the range of 0x60FF/0 has none "
                "of them"}),
        target("target_below_16_bits", "index: 0x607A, maximum: -32769",
               {"2:8: warning: kind: takes a target of 16 bits, and the range of 0x607A/0 has none "
                "of them"})),
    RowName());

/// A mapping of this index with a unit in line 2.
ProblemCase mapping_of(const std::string& name, const std::string& index, const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: [{index: " + index +
              ", bit_length: 8,\nunit: V, minimum: 1}]}]}]",
          problems};
}

INSTANTIATE_TEST_SUITE_P(
    dummies, ValueChecks,
    testing::Values(
        mapping_of("dummy", "7",
                   {"2:1: error: mapping: a dummy entry carries no value that \"unit\" could "
                    "describe"}),
        mapping_of("no_dummy", "8", {})),
    RowName());

}  // namespace
}  // namespace velmora_can_bridge
