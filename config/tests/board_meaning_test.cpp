// Mistakes of meaning: what a board file says clearly, and what can still never work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>

#include "problem_texts.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

/// The board that the rows change: two drives, a claw, LEDs, pumps and outputs. Nothing is wrong
/// with it.
constexpr const char* base_board = R"(nodes:
  - node_id: 0x10
    device_od_map:
      left: {profile: ci402, base_index: 0x6040}
      right: {profile: ci402, base_index: 0x6840}
      claw: {profile: claw, base_index: 0x7040, homing_record: 0x2100}
      led: {profile: io, base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x60FF, bit_length: 32, field: left_target}
          - {index: 0x6040, bit_length: 16, field: left_control}
      - number: 3
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: red}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: green}
          - {index: 0x2000, sub_index: 3, bit_length: 8, field: blue}
          - {index: 0x2000, sub_index: 4, bit_length: 8, field: mode}
          - {index: 0x2000, sub_index: 5, bit_length: 16, field: period}
          - {index: 0x2300, sub_index: 1, bit_length: 8, field: outputs}
      - number: 5
        direction: RPDO
        cob_id: 0x690
        mappings:
          - {index: 0x2200, sub_index: 1, bit_length: 16, field: pump_1}
          - {index: 0x2200, sub_index: 2, bit_length: 8, field: pump_2}
          - {index: 5, bit_length: 8, field: gap}
          - {index: 0x2400, sub_index: 1, bit_length: 4, field: nibble}
          - {index: 0x2400, sub_index: 2, bit_length: 20, field: behind}
      - number: 1
        direction: TPDO
        mappings:
          - {index: 0x6041, bit_length: 16, field: left_status}
    objects:
      - {index: 0x2500, type: s16, minimum: -100, maximum: 100}
      - {index: 0x2501, type: text}
    operations:
)";

struct MeaningCase {
  std::string name;
  /// The operation's keys in one line; empty for no operation.
  std::string operation;
  /// With columns of the operation's line, which begins "      op: {".
  Texts problems;
};

void PrintTo(const MeaningCase& row, std::ostream* out) { *out << row.name; }

/// Problems of the base board itself, which has a field of 4 bits and one behind it.
const Texts base_problems = {
    "30:13: warning: mapping: operations cannot write the fields of fewer than 8 bits of this "
    "RPDO, "
    "they write whole bytes; write their objects by SDO",
    "31:13: warning: mapping: bits 36 to 55 are not whole bytes, operations on the field miss some "
    "of them"};

class OperationMeaning : public testing::TestWithParam<MeaningCase> {};

TEST_P(OperationMeaning, of) {
  const MeaningCase& row = GetParam();
  Texts expected = base_problems;
  expected.insert(expected.end(), row.problems.begin(), row.problems.end());
  EXPECT_EQ(texts_of(parse_board(base_board + ("      op: {" + row.operation + "}\n")).problems),
            expected);
}

MeaningCase right(const std::string& name, const std::string& operation) {
  return {name, operation, {}};
}

/// A mistake in column `column` of the operation's line.
MeaningCase wrong(const std::string& name, const std::string& operation, std::size_t column,
                  const std::string& problem) {
  return {name, operation, {"40:" + std::to_string(column) + ": " + problem}};
}

INSTANTIATE_TEST_SUITE_P(
    objects, OperationMeaning,
    testing::Values(
        right("read", "kind: sdo_read, index: 0x6041"),
        right("write",
              "kind: sdo_write, index: 0x6083, data_type: u32, default_data: [1, 0, 0, 0]"),
        right("write_of_the_heartbeat_time",
              "kind: sdo_write, index: 0x1017, data_type: u16, default_data: [0xE8, 3]"),
        wrong("write_of_the_heartbeat_time_with_another_type",
              "kind: sdo_write, index: 0x1017, data_type: u32", 55,
              "error: data_type: u32 has 4 bytes, but 0x1017/0 is the producer heartbeat time, "
              "write a type of 2"),
        wrong("write_of_the_period_of_sync_with_another_length",
              "kind: sdo_write, index: 0x1006, fixed_data: [1]", 56,
              "error: fixed_data: 1 byte, but 0x1006/0 is the period of SYNC, write 4"),
        wrong("default_of_the_life_time_factor_with_another_length",
              "kind: sdo_write, index: 0x100D, default_data: [1, 0]", 58,
              "error: default_data: 2 bytes, but 0x100D/0 is the life time factor, write 1"),
        wrong("write_beside_the_guard_time",
              "kind: sdo_write, index: 0x100C, sub_index: 1, data_type: u16", 55,
              "error: sub_index: 0x100C is the guard time, which has sub-index 0 alone"),
        wrong("read_beside_the_overflow_of_sync", "kind: sdo_read, index: 0x1019, sub_index: 1", 54,
              "error: sub_index: 0x1019 is the overflow of the SYNC counter, which has sub-index 0 "
              "alone"),
        wrong("data_type_of_another_sign", "kind: sdo_write, index: 0x2500, data_type: u16", 55,
              "warning: data_type: u16, but 0x2500/0 is described as s16, which counts"),
        right("data_type_of_the_same_sign", "kind: sdo_write, index: 0x2500, data_type: s16"),
        right("payload_form", "kind: sdo_write, index: 0x2200, subindex_in_payload: true"),
        wrong(
            "read_of_another_sub_index", "kind: sdo_read, index: 0x6041, sub_index: 1", 54,
            "error: sub_index: 0x6041 is the statusword of \"left\", which has sub-index 0 alone"),
        wrong("read_of_a_command", "kind: sdo_read, index: 0x2100, sub_index: 9", 54,
              "error: sub_index: 0x2100/9 is the extend command of \"claw\", which can only be "
              "written"),
        wrong("read_multi_of_a_lone_object", "kind: read_multi, index: 0x1000, sub_indices: [0, 1]",
              62, "error: sub_indices: 0x1000 is the device type, which has sub-index 0 alone"),
        wrong("read_multi_of_nothing", "kind: read_multi, index: 0x1018, sub_indices: []", 58,
              "warning: sub_indices: names nothing to read, write the sub-indices of the object"),
        wrong("write_of_the_device_type", "kind: sdo_write, index: 0x1000, data_type: u32", 36,
              "error: index: 0x1000/0 is the device type, which can only be read; use sdo_read"),
        wrong("write_of_the_error_register", "kind: sdo_write, index: 0x1001", 36,
              "error: index: 0x1001/0 is the error register, which can only be read; use sdo_read"),
        wrong("write_of_the_device_name", "kind: sdo_write, index: 0x1008", 36,
              "error: index: 0x1008/0 is the device name, which can only be read; use sdo_read"),
        wrong("write_of_the_identity", "kind: sdo_write, index: 0x1018, sub_index: 1", 36,
              "error: index: 0x1018/1 is the vendor id, which can only be read; use sdo_read"),
        wrong("write_of_the_identity_by_payload",
              "kind: sdo_write, index: 0x1018, subindex_in_payload: true", 36,
              "error: index: 0x1018/0 is the length of the identity, which can only be read; use "
              "sdo_read"),
        wrong("write_of_a_statusword", "kind: sdo_write, index: 0x6841", 36,
              "error: index: 0x6841/0 is the statusword of \"right\", which can only be read; use "
              "sdo_read"),
        wrong("write_of_an_actual_value", "kind: auto_write, index: 0x6064", 37,
              "error: index: 0x6064/0 is the position actual value of \"left\", which can only be "
              "read; use sdo_read"),
        wrong("write_of_the_state_of_a_claw", "kind: sdo_write, index: 0x2100, sub_index: 1", 36,
              "error: index: 0x2100/1 is the action state of \"claw\", which can only be read; use "
              "sdo_read"),
        wrong("data_longer_than_its_type",
              "kind: sdo_write, index: 0x2001, data_type: u8, fixed_data: [1, 2]", 71,
              "error: fixed_data: 2 bytes, but data_type is u8, write 1"),
        wrong("default_shorter_than_its_type",
              "kind: sdo_write, index: 0x2001, data_type: u16, default_data: [1]", 74,
              "error: default_data: 1 byte, but data_type is u16, write 2"),
        wrong("data_of_another_length_than_the_drives",
              "kind: sdo_write, index: 0x6083, fixed_data: [1, 2]", 56,
              "error: fixed_data: 2 bytes, but 0x6083/0 is the profile acceleration of \"left\", "
              "write 4"),
        wrong("data_of_another_length_than_mapped",
              "kind: sdo_write, index: 0x2200, sub_index: 1, fixed_data: [1]", 70,
              "error: fixed_data: 1 byte, but 0x2200/1 is mapped in line 27, write 2"),
        wrong("data_of_another_length_than_described",
              "kind: sdo_write, index: 0x2500, fixed_data: [1]", 56,
              "error: fixed_data: 1 byte, but 0x2500/0 is described as s16, write 2"),
        wrong("data_above_the_maximum", "kind: sdo_write, index: 0x2500, fixed_data: [101, 0]", 56,
              "warning: fixed_data: 101 is more than the maximum, 100"),
        wrong("data_below_the_minimum",
              "kind: sdo_write, index: 0x2500, default_data: [0x9B, 0xFF]", 58,
              "warning: default_data: -101 is less than the minimum, -100"),
        right("data_in_the_range", "kind: sdo_write, index: 0x2500, fixed_data: [0x9C, 0xFF]"),
        wrong("type_of_another_length_than_the_drives",
              "kind: sdo_write, index: 0x6083, data_type: u16", 55,
              "error: data_type: u16 has 2 bytes, but 0x6083/0 is the profile acceleration of "
              "\"left\", write a type of 4"),
        wrong("type_of_another_length_than_described",
              "kind: auto_write, index: 0x2500, data_type: s32", 56,
              "error: data_type: s32 has 4 bytes, but 0x2500/0 is described as s16, write a type "
              "of 2"),
        wrong("default_beside_fixed_data",
              "kind: sdo_write, index: 0x2001, fixed_data: [1], default_data: [2]", 75,
              "warning: default_data: is not read, as fixed_data is written whatever the payload "
              "holds"),
        wrong("sub_index_beside_that_of_the_payload",
              "kind: sdo_write, index: 0x2001, sub_index: 1, subindex_in_payload: true", 55,
              "warning: sub_index: is not read, as subindex_in_payload takes sub-index and data "
              "from the payload"),
        wrong("index_without_prefix", "kind: sdo_read, index: 1018, sub_index: 1", 35,
              "error: index: 1018 is 0x03FA, did you mean 0x1018?"),
        wrong("index_of_a_drive_without_prefix", "kind: sdo_read, index: 6041", 35,
              "warning: index: 6041 is 0x1799, did you mean 0x6041?")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    rpdos, OperationMeaning,
    testing::Values(
        right("fields", "kind: pdo_write, pdo_number: 3, fields: [red, blue]"),
        right("field", "kind: pdo_patch, pdo_number: 3, field: red"),
        right("object", "kind: pdo_write, index: 0x2000, sub_index: 4"),
        wrong("index_that_no_rpdo_maps", "kind: pdo_write, index: 0x2600", 36,
              "error: index: no RPDO of this node maps 0x2600, write the pdo_number of the one to "
              "write"),
        wrong("index_that_a_tpdo_maps", "kind: pdo_patch, index: 0x6041, field: red", 36,
              "error: index: no RPDO of this node maps 0x6041, write the pdo_number of the one to "
              "write"),
        wrong(
            "neither_index_nor_number", "kind: pdo_write, fields: [red]", 11,
            "error: operation: pdo_write does not say which RPDO it writes, write its pdo_number"),
        wrong("bit_patch_of_an_unmapped_index", "kind: bit_patch, index: 0x2600, field: outputs",
              36,
              "error: index: no RPDO of this node maps 0x2600, write the pdo_number of the one to "
              "write"),
        wrong("pdo_bit_patch_of_an_unmapped_index",
              "kind: pdo_bit_patch, index: 0x2600, fields: [outputs]", 40,
              "error: index: no RPDO of this node maps 0x2600, write the pdo_number of the one to "
              "write"),
        wrong(
            "led_write_of_an_unmapped_index",
            "kind: led_write, index: 0x2600, led_operation: set_color, fields: [red, green, blue]",
            36,
            "error: index: no RPDO of this node maps 0x2600, write the pdo_number of the one to "
            "write"),
        wrong("sub_index_that_the_rpdo_does_not_map",
              "kind: pdo_write, index: 0x2000, sub_index: 7", 55,
              "error: sub_index: RPDO 3 maps no object 0x2000/7; it maps 0x2000 at sub-index 1, 2, "
              "3, 4 or 5"),
        wrong("object_that_the_rpdo_does_not_map", "kind: pdo_write, pdo_number: 3, index: 0x60FF",
              51, "error: index: RPDO 3 maps no object 0x60FF/0"),
        wrong("neither_fields_nor_object", "kind: pdo_patch, pdo_number: 3", 11,
              "error: operation: pdo_patch does not say what it writes, write fields"),
        wrong("field_of_another_rpdo_than_the_indexs",
              "kind: pdo_write, index: 0x2000, field: left_target", 51,
              "error: field: RPDO 3, which maps 0x2000, maps no field \"left_target\"; write the "
              "pdo_number of the one that does"),
        wrong("fields_of_another_rpdo_than_the_indexs",
              "kind: pdo_write, index: 0x2000, fields: [red, pump_1]", 58,
              "error: fields: RPDO 3, which maps 0x2000, maps no field \"pump_1\"; write the "
              "pdo_number of the one that does"),
        wrong("name_twice", "kind: pdo_write, pdo_number: 3, fields: [red, green, red]", 65,
              "error: fields: \"red\" stands twice"),
        wrong("field_beside_fields", "kind: pdo_write, pdo_number: 3, field: red, fields: [green]",
              51, "warning: field: is not read, as fields is there"),
        wrong("dummy_entry", "kind: pdo_write, pdo_number: 5, fields: [gap]", 53,
              "error: fields: \"gap\" is a dummy entry, which carries no value"),
        wrong("field_of_four_bits", "kind: pdo_write, pdo_number: 5, field: nibble", 51,
              "error: field: \"nibble\" has 4 bits, operations write whole bytes; write its object "
              "by SDO"),
        wrong("field_behind_one_of_four_bits", "kind: pdo_write, pdo_number: 5, field: behind", 51,
              "error: field: \"behind\" does not begin at a whole byte of the frame, where "
              "operations write"),
        right("field_behind_one_of_four_bits_by_sdo",
              "kind: pdo_write, pdo_number: 5, field: behind, transport: sdo"),
        wrong("refresh_by_sdo",
              "kind: pdo_write, pdo_number: 3, field: red, transport: sdo, refresh_shadow: true",
              88, "warning: refresh_shadow: is not read, as transport is sdo")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    bits, OperationMeaning,
    testing::Values(
        right("bit_patch", "kind: bit_patch, pdo_number: 3, field: outputs"),
        right("pdo_bit_patch", "kind: pdo_bit_patch, pdo_number: 3, fields: [mode, outputs]"),
        right("named",
              "kind: pdo_bit_patch, pdo_number: 3, fields: [mode], named: 1, bit_index: 3"),
        wrong("bit_patch_without_field", "kind: bit_patch, pdo_number: 3", 11,
              "error: operation: bit_patch does not say what it writes, write its field"),
        wrong("bit_patch_of_two_bytes", "kind: bit_patch, pdo_number: 3, field: period", 51,
              "error: field: \"period\" has 16 bits, bit_patch changes bits of fields of 8"),
        wrong("bit_patch_of_two_fields", "kind: bit_patch, pdo_number: 3, fields: [mode, red]", 59,
              "warning: fields: bit_patch uses the first of them alone"),
        wrong("bit_patch_of_four_bits", "kind: bit_patch, pdo_number: 5, field: nibble", 51,
              "error: field: \"nibble\" has 4 bits, operations write whole bytes; write its object "
              "by SDO"),
        wrong("pdo_bit_patch_of_two_bytes",
              "kind: pdo_bit_patch, pdo_number: 3, fields: [mode, period]", 63,
              "error: fields: \"period\" has 16 bits, pdo_bit_patch changes bits of fields of 8"),
        wrong("pdo_bit_patch_without_fields", "kind: pdo_bit_patch, pdo_number: 3, fields: []", 56,
              "error: fields: pdo_bit_patch has no field to write"),
        wrong("bit_index_without_named",
              "kind: pdo_bit_patch, pdo_number: 3, fields: [mode], bit_index: 3", 75,
              "warning: bit_index: is not read, as named is not set and the payload has the bit"),
        wrong("named_with_two_fields",
              "kind: pdo_bit_patch, pdo_number: 3, fields: [mode, red], named: 1", 63,
              "warning: fields: named uses the first of them alone")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    leds, OperationMeaning,
    testing::Values(
        right("set_led",
              "kind: led_write, pdo_number: 3, led_operation: set_led, fields: [red, "
              "green, blue, mode, period]"),
        right("set_color",
              "kind: led_write, pdo_number: 3, led_operation: set_color, fields: [red, "
              "green, blue, mode]"),
        right("set_mode",
              "kind: led_write, pdo_number: 3, led_operation: set_mode, fields: [mode, period]"),
        wrong("set_led_without_period",
              "kind: led_write, pdo_number: 3, led_operation: set_led, fields: [red, green, blue, "
              "mode]",
              76, "error: fields: set_led writes 6 bytes, but the fields have 4"),
        wrong("set_led_with_more",
              "kind: led_write, pdo_number: 3, led_operation: set_led, fields: [red, green, blue, "
              "mode, period, outputs]",
              76, "error: fields: set_led writes 6 bytes, but the fields have 7"),
        wrong("set_color_inside_a_field",
              "kind: led_write, pdo_number: 3, led_operation: set_color, fields: [red, green, "
              "period]",
              78, "error: fields: set_color writes 3 bytes, but no field of the list ends there"),
        wrong("set_mode_of_too_few_bytes",
              "kind: led_write, pdo_number: 3, led_operation: set_mode, fields: [mode]", 77,
              "error: fields: set_mode writes 3 bytes, but no field of the list ends there"),
        wrong("set_color_of_nothing",
              "kind: led_write, pdo_number: 3, led_operation: set_color, fields: []", 78,
              "error: fields: led_write has no field to write"),
        MeaningCase{
            "set_led_into_a_drive",
            "kind: led_write, pdo_number: 1, led_operation: set_led, fields: [left_target, "
            "left_control]",
            {"40:77: error: fields: \"left_target\" is the target velocity of \"left\", no LED",
             "40:90: error: fields: \"left_control\" is the controlword of \"left\", no LED"}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    automatic, OperationMeaning,
    testing::Values(
        right("mapped", "kind: auto_write, index: 0x2000, sub_index: 3, data_type: u8"),
        right("not_mapped", "kind: auto_write, index: 0x6085, data_type: u32"),
        right("mapped_field", "kind: auto_write, index: 0x2000, field: red"),
        wrong("field_of_another_object", "kind: auto_write, index: 0x2000, field: outputs", 52,
              "error: field: \"outputs\" carries 0x2300/1, but index is 0x2000"),
        wrong("field_at_another_sub_index",
              "kind: auto_write, index: 0x2000, sub_index: 2, field: red", 56,
              "warning: sub_index: the field carries 0x2000/1"),
        wrong("sub_index_that_is_not_mapped",
              "kind: auto_write, index: 0x2000, sub_index: 9, data_type: u8", 56,
              "error: sub_index: RPDO 3 maps no object 0x2000/9; it maps 0x2000 at sub-index 1, 2, "
              "3, 4 or 5"),
        wrong("type_longer_than_the_field",
              "kind: auto_write, index: 0x2000, sub_index: 3, data_type: u16", 70,
              "error: data_type: u16 has 2 bytes, but \"blue\" has 1, write a type of that length"),
        wrong(
            "type_shorter_than_the_fields",
            "kind: auto_write, index: 0x2000, data_type: u8, fields: [red, green]", 56,
            "error: data_type: u8 has 1 byte, but the fields have 2, write a type of that length"),
        wrong("field_by_sdo",
              "kind: auto_write, index: 0x2000, sub_index: 1, field: red, "
              "transport: sdo",
              66, "warning: field: is not read, as transport is sdo"),
        wrong("refresh_of_what_is_not_mapped",
              "kind: auto_write, index: 0x6085, refresh_shadow: true", 61,
              "warning: refresh_shadow: is not read, as no RPDO maps 0x6085 and it goes by SDO")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    pumps, OperationMeaning,
    testing::Values(
        right("by_rpdo", "kind: pump_duty, index: 0x2200, pump_pdo_number: 5, rpdo_channels: [1]"),
        right("by_sdo", "kind: pump_duty, index: 0x2200, sdo_channels: [3, 4]"),
        right("all_by_sdo", "kind: pump_duty, index: 0x2200, transport: sdo"),
        wrong("no_channel", "kind: pump_duty, index: 0x2200", 11,
              "error: operation: pump_duty has no channel, write rpdo_channels, sdo_channels or "
              "transport: sdo"),
        wrong("channels_without_rpdo", "kind: pump_duty, index: 0x2200, rpdo_channels: [1]", 59,
              "error: rpdo_channels: write the pump_pdo_number of the RPDO that carries them"),
        wrong("channel_that_is_not_mapped",
              "kind: pump_duty, index: 0x2200, pump_pdo_number: 5, rpdo_channels: [1, 3]", 83,
              "error: rpdo_channels: RPDO 5 maps no object 0x2200/3; channels by SDO are "
              "sdo_channels"),
        wrong("channel_of_eight_bits",
              "kind: pump_duty, index: 0x2200, pump_pdo_number: 5, rpdo_channels: [2]", 80,
              "error: rpdo_channels: \"pump_2\" has 8 bits, a duty has 16"),
        wrong("sdo_channel_of_eight_bits", "kind: pump_duty, index: 0x2200, sdo_channels: [2]", 59,
              "error: sdo_channels: 0x2200/2 is mapped in line 28 with 1 byte, a duty has 2"),
        wrong("rpdo_without_channels",
              "kind: pump_duty, index: 0x2200, pump_pdo_number: 5, sdo_channels: [3]", 61,
              "warning: pump_pdo_number: is not read, as there are no rpdo_channels"),
        wrong("rpdo_channels_by_sdo",
              "kind: pump_duty, index: 0x2200, transport: sdo, rpdo_channels: [1]", 75,
              "warning: rpdo_channels: is not read, as transport is sdo and every channel goes by "
              "SDO"),
        wrong("channel_both_ways",
              "kind: pump_duty, index: 0x2200, pump_pdo_number: 5, rpdo_channels: [1], "
              "sdo_channels: [1, 3]",
              99, "warning: sdo_channels: channel 1 is listed already"),
        wrong("channel_twice", "kind: pump_duty, index: 0x2200, sdo_channels: [3, 3]", 62,
              "warning: sdo_channels: channel 3 is listed already"),
        wrong("duty_of_a_drive", "kind: pump_duty, index: 0x60FF, sdo_channels: [1]", 36,
              "error: index: 0x60FF is the target velocity of \"left\", no pump")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    drives, OperationMeaning,
    testing::Values(right("profile_velocity", "kind: ci402_ramp, index_offset: 0x41"),
                    right("acceleration", "kind: ci402_ramp, index_offset: 0x43"),
                    right("deceleration", "kind: ci402_ramp, index_offset: 0x44"),
                    right("quick_stop_deceleration", "kind: ci402_ramp, index_offset: 0x45"),
                    right("homing_acceleration", "kind: ci402_ramp, index_offset: 0x5A"),
                    right("claw", "kind: claw_action, action: home"),
                    wrong("controlword_as_ramp", "kind: ci402_ramp, index_offset: 0", 44,
                          "error: index_offset: 0x00 is no ramp of a drive, write 0x41 profile "
                          "velocity, 0x43 profile acceleration, 0x44 profile deceleration or 0x45 "
                          "quick stop deceleration; others are written by sdo_write"),
                    wrong("index_as_offset", "kind: ci402_ramp, index_offset: 0x6083", 44,
                          "error: index_offset: 0x6083 is no ramp of a drive, write 0x41 profile "
                          "velocity, 0x43 profile acceleration, 0x44 profile deceleration or 0x45 "
                          "quick stop deceleration; others are written by sdo_write")),
    RowName());

/// A change of one piece of the base board, and what is wrong then.
struct EditCase {
  std::string name;
  std::string from;
  std::string to;
  Texts problems;
};

void PrintTo(const EditCase& row, std::ostream* out) { *out << row.name; }

class BoardMeaning : public testing::TestWithParam<EditCase> {};

TEST_P(BoardMeaning, of) {
  const EditCase& row = GetParam();
  std::string yaml = std::string(base_board) + "      op: {kind: sdo_read, index: 0x2000}\n";
  const std::size_t place = yaml.find(row.from);
  ASSERT_NE(place, std::string::npos);
  yaml.replace(place, row.from.size(), row.to);
  Texts found = texts_of(parse_board(yaml).problems);
  for (const std::string& of_the_base : base_problems) {
    found.erase(std::remove(found.begin(), found.end(), of_the_base), found.end());
  }
  EXPECT_EQ(found, row.problems);
}

INSTANTIATE_TEST_SUITE_P(
    devices, BoardMeaning,
    testing::Values(
        EditCase{"nothing", "left", "left", {}},
        EditCase{"drives_at_one_place",
                 "0x6840",
                 "0x6040",
                 {"5:43: error: base_index: objects of this drive are those of \"left\" in line 4, "
                  "the next drive begins 0x800 behind it"}},
        EditCase{
            "drives_in_one_axis",
            "base_index: 0x6840",
            "base_index: 0x6050",
            {"5:43: warning: base_index: 0x6050 is not the controlword of a drive, write 0x6040",
             "5:43: error: base_index: objects of this drive are those of \"left\" in line 4, the "
             "next drive begins 0x800 behind it"}},
        EditCase{"drive_beside_its_controlword",
                 "base_index: 0x6040",
                 "base_index: 0x6000",
                 {"4:42: error: base_index: 0x6000 is not the controlword of a drive, write "
                  "0x6040, which an RPDO maps"}},
        EditCase{
            "drive_beside_a_controlword_in_doubt",
            "base_index: 0x6840",
            "base_index: 0x6800",
            {"5:43: warning: base_index: 0x6800 is not the controlword of a drive, write 0x6840"}},
        EditCase{"drive_among_the_data_types",
                 "base_index: 0x6840",
                 "base_index: 0",
                 {"5:43: error: base_index: no drive begins at 0x0000, write its controlword, such "
                  "as 0x6040"}},
        EditCase{"drive_at_the_end",
                 "base_index: 0x6840",
                 "base_index: 0xFFF0",
                 {"5:43: error: base_index: no drive begins at 0xFFF0, write its controlword, such "
                  "as 0x6040"}},
        EditCase{"drive_elsewhere", "base_index: 0x6840", "base_index: 0x2840", {}},
        EditCase{"claw_without_record",
                 ", homing_record: 0x2100",
                 "",
                 {"6:7: warning: homing_record: a claw has one, claw_action fails without it"}},
        EditCase{
            "record_of_a_drive_alone",
            "profile: claw",
            "profile: ci402",
            {"6:65: warning: homing_record: a device that has one is a claw, write profile: claw"}},
        EditCase{"record_among_the_data_types",
                 "homing_record: 0x2100",
                 "homing_record: 0x100",
                 {"6:64: error: homing_record: no device has one at 0x0100, its objects begin with "
                  "0x2000"}},
        EditCase{"record_at_an_object_of_the_drive",
                 "homing_record: 0x2100",
                 "homing_record: 0x7040",
                 {"6:64: error: homing_record: 0x7040 is the controlword of this device"}},
        EditCase{"record_of_two_claws",
                 "right: {profile: ci402, base_index: 0x6840}",
                 "right: {profile: claw, base_index: 0x6840, homing_record: 0x2100}",
                 {"6:64: error: homing_record: 0x2100 is that of \"right\" in line 5"}},
        EditCase{"devices_at_one_place",
                 "right: {profile: ci402, base_index: 0x6840}",
                 "right: {base_index: 0x2000}",
                 {"7:38: warning: base_index: 0x2000 is that of \"right\" in line 5"}},
        EditCase{"io_at_the_place_of_a_drive",
                 "led: {profile: io, base_index: 0x2000}",
                 "led: {base_index: 0x6040}",
                 {"7:25: warning: base_index: 0x6040 is that of \"left\" in line 4"}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    pdos, BoardMeaning,
    testing::Values(
        EditCase{"statusword_in_an_rpdo",
                 "index: 0x60FF, bit_length: 32",
                 "index: 0x6041, bit_length: 16",
                 {"12:13: error: mapping: 0x6041/0 is the statusword of \"left\", which a node "
                  "does not receive; map it in a TPDO"}},
        EditCase{"error_register_in_an_rpdo",
                 "index: 0x2300, sub_index: 1",
                 "index: 0x1001",
                 {"22:13: error: mapping: 0x1001/0 is the error register, which a node does not "
                  "receive; map it in a TPDO"}},
        EditCase{"controlword_of_eight_bits",
                 "index: 0x6040, bit_length: 16",
                 "index: 0x6040, bit_length: 8",
                 {"13:41: error: bit_length: 0x6040/0 is the controlword of \"left\", write 16"}},
        EditCase{"statusword_of_32_bits",
                 "index: 0x6041, bit_length: 16",
                 "index: 0x6041, bit_length: 32",
                 {"35:41: warning: bit_length: 0x6041/0 is the statusword of \"left\", write 16"}},
        EditCase{"controlword_at_a_sub_index",
                 "index: 0x6040,",
                 "index: 0x6040, sub_index: 1,",
                 {"13:40: error: sub_index: 0x6040 is the controlword of \"left\", which has "
                  "sub-index 0 alone"}},
        EditCase{"object_in_two_rpdos",
                 "index: 0x2300, sub_index: 1, bit_length: 8",
                 "index: 0x2200, sub_index: 2, bit_length: 8",
                 {"28:13: warning: mapping: object 0x2200/2 is mapped by an RPDO in line 22 "
                  "already; each send of the one takes back what the other wrote"}},
        EditCase{"object_twice_in_an_rpdo",
                 "index: 0x2300, sub_index: 1",
                 "index: 0x2000, sub_index: 4",
                 {"22:13: warning: mapping: object 0x2000/4 is mapped by an RPDO in line 20 "
                  "already; each send of the one takes back what the other wrote"}},
        EditCase{"object_in_an_rpdo_and_a_tpdo",
                 "index: 0x6041, bit_length: 16",
                 "index: 0x6040, bit_length: 16",
                 {}},
        EditCase{"index_of_a_mapping_without_prefix",
                 "index: 0x2300",
                 "index: 2300",
                 {"22:21: error: index: 2300 is 0x08FC, did you mean 0x2300?"}},
        EditCase{"index_of_a_drive_without_prefix",
                 "index: 0x6041",
                 "index: 6041",
                 {"35:21: warning: index: 6041 is 0x1799, did you mean 0x6041?"}},
        EditCase{"rpdo_that_nobody_can_send", "number: 5", "number: 9", {}}),
    RowName());

/// An operation, and whether it sends RPDO 5.
class UnsentRpdo : public testing::TestWithParam<std::pair<std::string, bool>> {};

TEST_P(UnsentRpdo, needs_a_cob_id_where_an_operation_sends_it) {
  const auto& [keys, is_sent] = GetParam();
  std::string yaml = base_board + ("      op: {" + keys + "}\n");
  const std::string cob_id = "        cob_id: 0x690\n";
  yaml.replace(yaml.find(cob_id), cob_id.size(), "");
  const Texts found = texts_of(parse_board(yaml).problems);
  const std::string problem =
      "23:17: error: number: operations send RPDO 5, but the predefined COB-IDs end with RPDO 4; "
      "write its cob_id";
  EXPECT_EQ(std::count(found.begin(), found.end(), problem), is_sent ? 1 : 0)
      << testing::PrintToString(found);
}

INSTANTIATE_TEST_SUITE_P(
    operations, UnsentRpdo,
    testing::Values(
        std::pair<std::string, bool>{"kind: pdo_write, pdo_number: 5, field: pump_1", true},
        std::pair<std::string, bool>{"kind: pdo_patch, pdo_number: 5, fields: [pump_1]", true},
        std::pair<std::string, bool>{"kind: bit_patch, pdo_number: 5, field: pump_2", true},
        std::pair<std::string, bool>{"kind: pdo_bit_patch, pdo_number: 5, fields: [pump_2]", true},
        std::pair<std::string, bool>{"kind: auto_write, index: 0x2200, sub_index: 2", true},
        std::pair<std::string, bool>{
            "kind: pump_duty, index: 0x2200, pump_pdo_number: 5, rpdo_channels: [1]", true},
        std::pair<std::string, bool>{
            "kind: pdo_write, pdo_number: 5, field: pump_1, transport: sdo", false},
        std::pair<std::string, bool>{"kind: pump_duty, index: 0x2200, sdo_channels: [3]", false},
        std::pair<std::string, bool>{"kind: sdo_read, index: 0x2200", false}));

INSTANTIATE_TEST_SUITE_P(
    descriptions, BoardMeaning,
    testing::Values(
        EditCase{"of_another_length_than_the_drives",
                 "index: 0x2500, type: s16",
                 "index: 0x6083, type: s16",
                 {"37:31: error: type: s16, but 0x6083/0 is the profile acceleration of \"left\", "
                  "write a type of 4 bytes"}},
        EditCase{
            "of_another_length_than_mapped",
            "index: 0x2500, type: s16",
            "index: 0x2300, sub_index: 1, type: s16",
            {"37:45: error: type: s16, but 0x2300/1 is mapped in line 22, write a type of 1 byte"}},
        EditCase{"of_a_lone_object",
                 "index: 0x2500,",
                 "index: 0x6083, sub_index: 2,",
                 {"37:36: error: sub_index: 0x6083 is the profile acceleration of \"left\", which "
                  "has sub-index 0 alone"}},
        EditCase{"index_without_prefix",
                 "index: 0x2501",
                 "index: 2501",
                 {"38:17: error: index: 2501 is 0x09C5, did you mean 0x2501?"}}),
    RowName());

/// The base board with other devices and one operation.
std::string with_devices(const std::string& entries, const std::string& keys) {
  std::string yaml = base_board + ("      op: {" + keys + "}\n");
  const std::size_t begin = yaml.find("    device_od_map:");
  const std::string map = entries.empty() ? "" : "    device_od_map:\n" + entries;
  yaml.replace(begin, yaml.find("    pdos:") - begin, map);
  return yaml;
}

struct DeviceCase {
  std::string name;
  std::string devices;
  std::string operation;
  /// Without its place; empty when nothing is wrong.
  std::string problem;
};

void PrintTo(const DeviceCase& row, std::ostream* out) { *out << row.name; }

class SuitingDevice : public testing::TestWithParam<DeviceCase> {};

TEST_P(SuitingDevice, is_needed) {
  const DeviceCase& row = GetParam();
  Texts found;
  for (const Problem& problem : parse_board(with_devices(row.devices, row.operation)).problems) {
    if (problem.message.rfind("mapping", 0) != 0) {
      const std::string text = problem_text("", problem);
      EXPECT_EQ(problem.column, 18U);
      found.push_back(text.substr(text.find(' ') + 1));
    }
  }
  EXPECT_EQ(found, row.problem.empty() ? Texts{} : Texts{row.problem});
}

const std::string io_only = "      led: {profile: io, base_index: 0x2000}\n";
const std::string no_profile = "      led: {base_index: 0x2000}\n";
const std::string a_drive = "      led: {profile: ci402, base_index: 0x6040}\n";
const std::string a_claw =
    "      led: {profile: claw, base_index: 0x6040, homing_record: 0x2100}\n";

std::string no_drive(const std::string& kind) {
  return "error: kind: " + kind +
         " works on a drive, this node has no device with profile: ci402 or claw";
}

INSTANTIATE_TEST_SUITE_P(
    of, SuitingDevice,
    testing::Values(
        DeviceCase{"enable_of_io", io_only, "kind: ci402_enable", no_drive("ci402_enable")},
        DeviceCase{"disable_of_io", io_only, "kind: ci402_disable", no_drive("ci402_disable")},
        DeviceCase{"quick_stop_of_io", io_only, "kind: ci402_quick_stop",
                   no_drive("ci402_quick_stop")},
        DeviceCase{"mode_of_io", io_only, "kind: ci402_set_mode", no_drive("ci402_set_mode")},
        DeviceCase{"target_of_io", io_only, "kind: ci402_set_target", no_drive("ci402_set_target")},
        DeviceCase{"ramp_of_io", io_only, "kind: ci402_ramp, index_offset: 0x43",
                   no_drive("ci402_ramp")},
        DeviceCase{"enable_of_nothing", "", "kind: ci402_enable", no_drive("ci402_enable")},
        DeviceCase{"enable_of_a_claw", a_claw, "kind: ci402_enable", ""},
        DeviceCase{"enable_in_doubt", no_profile, "kind: ci402_enable",
                   "warning" + no_drive("ci402_enable").substr(5)},
        DeviceCase{"claw_of_io", io_only, "kind: claw_action, action: home",
                   "error: kind: claw_action works on a claw, this node has no device with a "
                   "homing_record"},
        DeviceCase{"claw_of_a_drive", a_drive, "kind: claw_action, action: home",
                   "error: kind: claw_action works on a claw, this node has no device with a "
                   "homing_record"},
        DeviceCase{"read_of_nothing", "", "kind: od_io_read",
                   "error: kind: od_io_read works on a device, this node has none; write it under "
                   "device_od_map"},
        DeviceCase{"write_of_nothing", "", "kind: od_io_write",
                   "error: kind: od_io_write works on a device, this node has none; write it under "
                   "device_od_map"},
        DeviceCase{"pump_of_nothing", "", "kind: pump_duty, index: 0x2200, sdo_channels: [3]",
                   "error: kind: pump_duty works on a device, this node has none; write it under "
                   "device_od_map"},
        DeviceCase{"read_of_io", io_only, "kind: od_io_read", ""}),
    RowName());

struct CommandCase {
  std::string name;
  std::string operation;
  bool is_refused;
};

void PrintTo(const CommandCase& row, std::ostream* out) { *out << row.name; }

/// Operations through an RPDO that maps the extend command of a claw.
class WriteOnlyField : public testing::TestWithParam<CommandCase> {};

TEST_P(WriteOnlyField, keeps_an_image_from_being_loaded) {
  const CommandCase& row = GetParam();
  std::string yaml = base_board + ("      op: {" + row.operation + "}\n");
  const std::string outputs = "index: 0x2300, sub_index: 1";
  yaml.replace(yaml.find(outputs), outputs.size(), "index: 0x2100, sub_index: 9");
  Texts expected = base_problems;
  if (row.is_refused) {
    expected.emplace_back(
        "40:11: error: operation: reads what RPDO 3 maps first, but 0x2100/9 is the extend command "
        "of \"claw\", which can only be written; use transport: sdo");
  }
  EXPECT_EQ(texts_of(parse_board(yaml).problems), expected);
}

INSTANTIATE_TEST_SUITE_P(
    operations, WriteOnlyField,
    testing::Values(
        CommandCase{"write", "kind: pdo_write, pdo_number: 3, field: red", true},
        CommandCase{"bits", "kind: bit_patch, pdo_number: 3, field: mode", true},
        CommandCase{"automatic", "kind: auto_write, index: 0x2000, sub_index: 1", true},
        CommandCase{"refreshed", "kind: pdo_write, pdo_number: 3, field: red, refresh_shadow: 1",
                    false},
        CommandCase{"by_sdo", "kind: pdo_write, pdo_number: 3, field: red, transport: sdo", false},
        CommandCase{"patch_of_leds",
                    "kind: led_write, pdo_number: 3, led_operation: set_mode, fields: [mode, "
                    "period]",
                    false},
        CommandCase{"whole_led",
                    "kind: led_write, pdo_number: 3, led_operation: set_led, fields: [red, green, "
                    "blue, mode, period]",
                    true},
        CommandCase{"other_rpdo", "kind: pdo_write, pdo_number: 1, fields: [left_target]", false}),
    RowName());

TEST(BoardWithoutDevices, is_usable) {
  const LoadedBoard loaded = parse_board(R"(nodes:
  - node_id: 1
    pdos:
      - {number: 1, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8, field: a}]}
    operations:
      read: {kind: sdo_read, index: 0x1000}
      write: {kind: pdo_write, pdo_number: 1, fields: [a]}
)");
  EXPECT_THAT(texts_of(loaded.problems), testing::IsEmpty());
  EXPECT_TRUE(loaded.file.has_value());
}

/// A part of the base board that cannot be read, and the operations that it leaves in doubt.
class UnreadablePart : public testing::TestWithParam<EditCase> {};

TEST_P(UnreadablePart, brings_no_second_problem) {
  const EditCase& row = GetParam();
  std::string yaml = base_board + std::string(R"(      a: {kind: pdo_write, index: 0x2600}
      b: {kind: pump_duty, index: 0x2200, pump_pdo_number: 5, rpdo_channels: [7]}
      c: {kind: bit_patch, pdo_number: 3, field: period}
)");
  yaml.replace(yaml.find(row.from), row.from.size(), row.to);
  EXPECT_THAT(texts_of(parse_board(yaml).problems), testing::Contains(testing::HasSubstr("error")));
  for (const Problem& problem : parse_board(yaml).problems) {
    EXPECT_LT(problem.line, 40U) << problem.message;
  }
}

INSTANTIATE_TEST_SUITE_P(of, UnreadablePart,
                         testing::Values(EditCase{"number", "number: 3", "number: x", {}},
                                         EditCase{"index", "index: 0x2300", "index: x", {}},
                                         EditCase{"sub_index", "sub_index: 5", "sub: 5", {}},
                                         EditCase{"key", "    pdos:", "    pdo:", {}}),
                         RowName());

TEST(UnreadableOperation, is_not_judged_by_its_kind) {
  const LoadedBoard loaded =
      parse_board(base_board + std::string("      op: {kind: pdo_write, indx: 0x2000}\n"));
  EXPECT_EQ(texts_of(loaded.problems).back(),
            "40:29: error: operation: unknown key \"indx\", did you mean \"index\"?");
}

TEST(UnreadableDevice, may_be_the_one_that_an_operation_needs) {
  const LoadedBoard loaded = parse_board(
      with_devices("      wheel: {profile: ci403, base_index: 0x6040}\n", "kind: ci402_enable"));
  EXPECT_THAT(texts_of(loaded.problems),
              testing::Not(testing::Contains(testing::HasSubstr("works on a drive"))));
}

}  // namespace
}  // namespace velmora_can_bridge
