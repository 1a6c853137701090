#include "velmora_can_bridge/values/payload_layout.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct PayloadCase {
  std::string name;
  OperationConfig op;
  std::string description;
  std::string device{};
  std::uint8_t mode = 0;
  Bytes beginning{};
};

struct RowName {
  std::string operator()(const testing::TestParamInfo<PayloadCase>& row) const {
    return row.param.name;
  }
};

void PrintTo(const PayloadCase& row, std::ostream* out) { *out << row.name; }

OperationConfig sdo_write(const std::string& data_type, const Bytes& fixed_data = {},
                          const Bytes& default_data = {}, std::uint8_t subindex_in_payload = 0) {
  OperationConfig op;
  op.kind = "sdo_write";
  op.data_type = data_type;
  op.fixed_data = fixed_data;
  op.default_data = default_data;
  op.subindex_in_payload = subindex_in_payload;
  return op;
}

OperationConfig of_kind(const std::string& kind) {
  OperationConfig op;
  op.kind = kind;
  return op;
}

OperationConfig with_fields(OperationConfig op, const std::vector<std::string>& fields,
                            std::uint8_t pdo_number = 2) {
  op.fields = fields;
  op.pdo_number = pdo_number;
  return op;
}

OperationConfig with_field(OperationConfig op, const std::string& field, std::uint16_t index,
                           std::uint8_t pdo_number = 2) {
  op.field = field;
  op.index = index;
  op.sub_index = 2;
  op.pdo_number = pdo_number;
  return op;
}

OperationConfig with_object(OperationConfig op, std::uint16_t index) {
  op.index = index;
  return op;
}

OperationConfig object_write(const std::string& data_type, std::uint16_t index,
                             std::uint8_t sub_index) {
  OperationConfig op = with_object(sdo_write(data_type), index);
  op.sub_index = sub_index;
  return op;
}

OperationConfig with_sub_index(std::uint16_t index) {
  return with_object(sdo_write("", {}, {}, 1), index);
}

OperationConfig led_write(const std::string& led_operation,
                          const std::vector<std::string>& fields) {
  OperationConfig op = with_fields(of_kind("led_write"), fields);
  op.led_operation = led_operation;
  return op;
}

OperationConfig auto_write(const std::string& data_type) {
  OperationConfig op = of_kind("auto_write");
  op.data_type = data_type;
  return op;
}

OperationConfig named_bit_patch() {
  OperationConfig op = with_fields(of_kind("pdo_bit_patch"), {"a", "b"});
  op.named = 1;
  op.bit_index = 5;
  return op;
}

OperationConfig pump_duty(const std::string& transport, std::uint16_t index = 0) {
  OperationConfig op = of_kind("pump_duty");
  op.index = index;
  op.transport = transport;
  op.pump_pdo_number = 4;
  op.rpdo_channels = {1, 2};
  op.sdo_channels = {3};
  return op;
}

NodeConfig node_of(BoardConfig board) {
  NodeConfig node;
  node.node_id = 1;
  node.board = std::move(board);
  return node;
}

std::string text_of(const Expected<PayloadLayout>& layout) {
  return layout ? payload_layout_text(*layout) : "none: " + layout.error();
}

TEST(PayloadLayout, is_told_for_every_kind) {
  const NodeConfig node = node_of({});
  for (const OperationKind& row : operation_kinds) {
    EXPECT_EQ(text_of(payload_layout({node, "", of_kind(std::string(row.kind))})).find("kind"),
              std::string::npos)
        << row.kind;
  }
}

TEST(PayloadLayout, of_another_kind_is_none) {
  const NodeConfig node = node_of({});
  EXPECT_EQ(text_of(payload_layout({node, "", of_kind("SDO_READ")})),
            "none: unknown operation kind \"SDO_READ\"");
}

class Payload : public testing::TestWithParam<PayloadCase> {};

TEST_P(Payload, is_laid_out) {
  NodeConfig node =
      node_of({{{1, "TPDO", 0, {{0x2000, 1, 32, "a"}}},
                {2, "RPDO", 0, {{0x2000, 1, 8, "a"}, {0x2000, 2, 16, "b"}, {0x2000, 3, 4, "c"}}},
                {2, "RPDO", 0, {{0x2100, 2, 24, "d"}}},
                {5, "RPDO", 0, {{0x60FF, 0, 32, ""}, {0x2300, 0, 8, "mode"}}}},
               {{"wheel", {"ci402", 0x6040, 0}}, {"io", {"io", 0x2000, 0}}}});
  ValueDescription mode;
  mode.values = {{"off", Count()}, {"on", Count::of(1)}};
  node.values[{0x2300, 0}] = mode;
  ValueDescription depth;
  depth.type = ValueType::s16;
  depth.unit = "mm";
  depth.minimum = Count::of(-10);
  node.values[{0x2400, 3}] = depth;
  ValueDescription voltage;
  voltage.type = ValueType::float32;
  voltage.unit = "V";
  node.values[{0x2401, 0}] = voltage;
  EXPECT_EQ(text_of(payload_layout({node, GetParam().device, GetParam().op, GetParam().mode},
                                   GetParam().beginning)),
            GetParam().description);
}

OperationConfig ramp(std::uint16_t offset) {
  OperationConfig op = of_kind("ci402_ramp");
  op.index_offset = offset;
  return op;
}

INSTANTIATE_TEST_SUITE_P(
    of_objects, Payload,
    testing::Values(
        PayloadCase{"sdo_read", of_kind("sdo_read"), "nothing"},
        PayloadCase{"read_multi", of_kind("read_multi"), "nothing"},
        PayloadCase{"no_type", sdo_write(""), "value bytes"},
        PayloadCase{"raw", sdo_write("raw"), "value bytes"},
        PayloadCase{"described", object_write("", 0x2400, 3), "value s16, -10 to 32767 in mm"},
        PayloadCase{"described_and_typed", object_write("u16", 0x2400, 3),
                    "value s16, -10 to 32767 in mm"},
        PayloadCase{"described_and_typed_longer", object_write("u32", 0x2400, 3),
                    "value u32 in mm"},
        PayloadCase{"float_and_typed", object_write("s32", 0x2401, 0), "value float32 in V"},
        PayloadCase{"float_and_typed_shorter", object_write("u16", 0x2401, 0), "value u16"},
        PayloadCase{"of_a_drive", object_write("", 0x6083, 0), "profile_acceleration u32"},
        PayloadCase{"u8", sdo_write("u8"), "value u8"},
        PayloadCase{"s16", sdo_write("s16"), "value s16"},
        PayloadCase{"u32", sdo_write("u32"), "value u32"},
        PayloadCase{"unknown_type", sdo_write("U16"), "none: unknown data_type \"U16\""},
        PayloadCase{"type_of_no_operation", sdo_write("u64"), "none: unknown data_type \"u64\""},
        PayloadCase{"fixed", sdo_write("u16", {1, 0xAB}, {7}), "nothing (always writes 01 AB)"},
        PayloadCase{"with_default", sdo_write("u16", {}, {7}),
                    "[value u16] (writes 07 without it)"},
        PayloadCase{"sub_index_before_all_others", sdo_write("u16", {1}, {7}, 1),
                    "sub_index u8; data bytes"},
        PayloadCase{"object_of_the_sub_index",
                    with_sub_index(0x2400),
                    "sub_index u8; data s16, -10 to 32767 in mm",
                    "",
                    0,
                    {3}},
        PayloadCase{"od_io_read", of_kind("od_io_read"),
                    "[offset u16]; [sub_index u8] (0 for what is left out)"},
        PayloadCase{"od_io_write", of_kind("od_io_write"), "offset u16; sub_index u8; data bytes"},
        PayloadCase{"od_io_write_of_a_field",
                    of_kind("od_io_write"),
                    "offset u16; sub_index u8; data u16",
                    "io",
                    0,
                    {0, 0, 2}},
        PayloadCase{"od_io_write_of_a_described_object",
                    of_kind("od_io_write"),
                    "offset u16; sub_index u8; data s16, -10 to 32767 in mm",
                    "io",
                    0,
                    {0, 4, 3}},
        PayloadCase{"od_io_write_of_less_than_a_byte",
                    of_kind("od_io_write"),
                    "offset u16; sub_index u8",
                    "io",
                    0,
                    {0, 0, 3}},
        PayloadCase{"od_io_write_of_an_unknown_object",
                    of_kind("od_io_write"),
                    "offset u16; sub_index u8; data bytes",
                    "io",
                    0,
                    {9, 0, 3}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    of_rpdo_writes, Payload,
    testing::Values(
        PayloadCase{"set_led", led_write("set_led", {"d", "a", "b"}),
                    "none: RPDO 2 maps no field \"d\""},
        PayloadCase{"led_mode_at_its_place", led_write("set_mode", {"a", "b"}),
                    "a u8, 0 to 3; b u16"},
        PayloadCase{"led_ends_within_a_field", led_write("set_color", {"b", "b"}),
                    "none: the payload of set_color has 3 bytes, which is not where a field ends"},
        PayloadCase{"set_color_of_more_fields", led_write("set_color", {"a", "b", "b"}),
                    "a u8; b u16"},
        PayloadCase{"set_led_of_more_fields", led_write("set_led", {"a", "b", "a", "b", "a"}),
                    "none: the payload of set_led has 6 bytes, its fields have 7"},
        PayloadCase{"led_without_fields", led_write("set_led", {}), "none: led_write needs fields"},
        PayloadCase{"unknown_led_operation", led_write("set", {"a"}),
                    "none: unknown led_operation \"set\""},
        PayloadCase{"auto_write", auto_write("s16"), "value s16"},
        PayloadCase{"auto_write_raw", auto_write(""), "value bytes"},
        PayloadCase{"auto_write_of_fields", with_fields(auto_write("s16"), {"b"}), "b s16"},
        PayloadCase{"auto_write_of_several", with_fields(auto_write("u32"), {"a", "b", "a"}),
                    "a u8; b u16; a u8"},
        PayloadCase{"auto_write_of_another_length", with_fields(auto_write("u32"), {"b"}),
                    "none: data_type u32 has 4 bytes, its fields have 2"},
        PayloadCase{"several_fields", with_fields(of_kind("pdo_write"), {"b", "a", "c"}),
                    "b u16; a u8"},
        PayloadCase{"unmapped_field", with_fields(of_kind("pdo_write"), {"a", "x"}),
                    "none: RPDO 2 maps no field \"x\""},
        PayloadCase{"absent_rpdo", with_fields(of_kind("pdo_write"), {"a"}, 9),
                    "none: the node has no RPDO 9"},
        PayloadCase{"object_without_rpdo", with_field(of_kind("pdo_write"), "", 0x3000, 0),
                    "none: no RPDO of the node maps object 0x3000"},
        PayloadCase{"patch", with_fields(of_kind("pdo_patch"), {"a", "b"}),
                    "[a u8]; [b u16] (a field that is left out keeps its value)"},
        PayloadCase{"one_field", with_field(of_kind("pdo_patch"), "b", 0x2000), "b u16"},
        PayloadCase{"one_object", with_field(of_kind("pdo_write"), "", 0x2000), "b u16"},
        PayloadCase{"less_than_a_byte", with_field(of_kind("pdo_write"), "c", 0x2000), "nothing"},
        PayloadCase{"object_of_a_later_entry", with_field(of_kind("pdo_write"), "", 0x2100),
                    "d u32 in 3 bytes"},
        PayloadCase{"unmapped_object", with_field(of_kind("pdo_write"), "", 0x3000),
                    "none: RPDO 2 does not map 0x3000/2"},
        PayloadCase{"unmapped_single_field", with_field(of_kind("pdo_write"), "x", 0x2000),
                    "none: RPDO 2 does not map a field \"x\""},
        PayloadCase{"field_without_a_name", with_object(of_kind("pdo_write"), 0x60FF),
                    "target_velocity s32"},
        PayloadCase{"field_with_codes", with_object(of_kind("pdo_write"), 0x2300),
                    "mode u8 (off 0, on 1)"},
        PayloadCase{"bit_patch", with_field(of_kind("bit_patch"), "a", 0), "mask u8; values u8"},
        PayloadCase{"bit", with_fields(of_kind("pdo_bit_patch"), {"a", "c"}),
                    "field u8, 1 to 2 (a 1, c 2); bit u8, 0 to 7; value u8, 0 to 1 (off 0, on 1)"},
        PayloadCase{"named_bit", named_bit_patch(), "value u8, 0 to 1 (off 0, on 1)"},
        PayloadCase{"bit_without_fields", of_kind("pdo_bit_patch"),
                    "none: pdo_bit_patch needs fields"}),
    RowName());

constexpr const char* modes =
    "mode s8 (none 0, position 1, frequency_converter 2, velocity 3, torque 4, homing 6, "
    "interpolated_position 7, cyclic_synchronous_position 8, cyclic_synchronous_velocity 9, "
    "cyclic_synchronous_torque 10)";

INSTANTIATE_TEST_SUITE_P(
    of_devices, Payload,
    testing::Values(PayloadCase{"enable", of_kind("ci402_enable"), "nothing"},
                    PayloadCase{"disable", of_kind("ci402_disable"), "nothing"},
                    PayloadCase{"quick_stop", of_kind("ci402_quick_stop"), "nothing"},
                    PayloadCase{"set_mode", of_kind("ci402_set_mode"), modes},
                    PayloadCase{"set_mode_of_a_drive", of_kind("ci402_set_mode"), modes, "wheel"},
                    PayloadCase{"set_target", of_kind("ci402_set_target"), "target s16"},
                    PayloadCase{"ramp", ramp(0x43), "value u32"},
                    PayloadCase{"ramp_of_a_drive", ramp(0x43), "profile_acceleration u32", "wheel"},
                    PayloadCase{"claw", of_kind("claw_action"), "nothing"},
                    PayloadCase{"pump", pump_duty(""), "channel u8, 1 to 3; duty u16"},
                    PayloadCase{"pump_of_a_described_channel",
                                pump_duty("", 0x2400),
                                "channel u8, 1 to 3; duty s16, -10 to 32767 in mm",
                                "",
                                0,
                                {3}},
                    PayloadCase{"pump_without_channels", of_kind("pump_duty"),
                                "channel u8; duty u16"},
                    PayloadCase{"pump_by_sdo", pump_duty("sdo"), "channel u8; duty u16"}),
    RowName());

TEST(PayloadLayout, of_a_target_follows_the_recorded_mode) {
  NodeConfig node = node_of({{}, {{"wheel", {"ci402", 0x6040, 0}}}});
  const auto describe = [&](std::uint16_t index, const char* unit) {
    ValueDescription value;
    value.unit = unit;
    node.values[{index, 0}] = value;
  };
  describe(0x607A, "mm");
  describe(0x60FF, "mm/s");
  describe(0x6071, "Nm");
  const auto text_in = [&](std::uint8_t mode) {
    return text_of(payload_layout({node, "wheel", of_kind("ci402_set_target"), mode}));
  };
  EXPECT_EQ(text_in(0), "target s16 in mm/s");
  EXPECT_EQ(text_in(1), "target s16 in mm");
  EXPECT_EQ(text_in(3), "target s16 in mm/s");
  EXPECT_EQ(text_in(4), "target s16 in Nm");
}

TEST(PayloadLayout, of_a_drive_takes_nothing_from_a_float) {
  NodeConfig node = node_of({{}, {{"wheel", {"ci402", 0x6040, 0}}}});
  ValueDescription decimal;
  decimal.type = ValueType::float32;
  decimal.unit = "m/s";
  decimal.scale = 0.001;
  for (const std::uint16_t index : std::vector<std::uint16_t>{0x6060, 0x60FF, 0x6083}) {
    node.values[{index, 0}] = decimal;
  }
  const auto text_of_op = [&](const OperationConfig& op) {
    return text_of(payload_layout({node, "wheel", op}));
  };
  EXPECT_EQ(text_of_op(of_kind("ci402_set_target")), "target s16");
  EXPECT_EQ(text_of_op(ramp(0x43)), "profile_acceleration u32");
  EXPECT_EQ(text_of_op(of_kind("ci402_set_mode")).find("m/s"), std::string::npos);
}

TEST(PayloadLayout, of_an_auto_write_is_that_of_the_field_it_writes) {
  NodeConfig node = node_of({{{1, "RPDO", 0, {{0x2000, 1, 16, "a"}, {0x2000, 2, 16, "b"}}}}, {}});
  const auto describe = [&](std::uint8_t sub_index, const char* unit) {
    node.values[{0x2000, sub_index}].unit = unit;
  };
  describe(1, "mm");
  describe(2, "ms");
  OperationConfig op = auto_write("s16");
  op.index = 0x2000;
  op.sub_index = 1;
  op.pdo_number = 1;
  EXPECT_EQ(text_of(payload_layout({node, "", op})), "a s16 in mm");
  EXPECT_EQ(text_of(payload_layout({node, "", with_fields(op, {"b"}, 1)})), "b s16 in ms");
  op.field = "b";
  EXPECT_EQ(text_of(payload_layout({node, "", op})), "b s16 in ms");
}

TEST(PayloadLayout, of_a_narrow_range_keeps_what_the_kind_allows) {
  NodeConfig node = node_of({{}, {{"wheel", {"ci402", 0x6040, 0}}}});
  ValueDescription velocity;
  velocity.minimum = Count::of(-100000);
  velocity.maximum = Count::of(500);
  node.values[{0x60FF, 0}] = velocity;
  EXPECT_EQ(text_of(payload_layout({node, "wheel", of_kind("ci402_set_target")})),
            "target s16, -32768 to 500");
}

TEST(PayloadLayout, range_wholly_below_0_tells_a_sign_by_its_maximum) {
  NodeConfig node = node_of({{{1, "RPDO", 0, {{0x2000, 1, 16, "a"}}}}, {}});
  node.values[{0x2000, 1}].maximum = Count::of(-5);
  EXPECT_EQ(text_of(payload_layout({node, "", with_fields(of_kind("pdo_write"), {"a"}, 1)})),
            "a s16, -32768 to -5");
}

TEST(PayloadLayout, of_a_float_of_another_length_is_a_number_without_its_unit) {
  NodeConfig node = node_of({{{1, "RPDO", 0, {{0x2000, 1, 24, "a"}, {0x2000, 2, 32, "b"}}}}, {}});
  for (const std::uint8_t sub_index : std::vector<std::uint8_t>{1, 2}) {
    node.values[{0x2000, sub_index}].type = ValueType::float32;
    node.values[{0x2000, sub_index}].unit = "V";
  }
  EXPECT_EQ(text_of(payload_layout({node, "", with_fields(of_kind("pdo_write"), {"a", "b"}, 1)})),
            "a u32 in 3 bytes; b float32 in V");
}

TEST(PayloadRefusal, reads_unsigned_bytes_with_their_highest_bit_as_above_0) {
  NodeConfig node = node_of({{{1, "RPDO", 0, {{0x2000, 1, 16, "a"}}}}, {}});
  node.values[{0x2000, 1}].maximum = Count::of(0x8000);
  const OperationConfig op = with_fields(of_kind("pdo_write"), {"a"}, 1);
  const PayloadLayout layout = *payload_layout({node, "", op});
  EXPECT_EQ(payload_refusal(layout, {0x00, 0x80}), std::nullopt);
  EXPECT_EQ(payload_refusal(layout, {0xFF, 0xFF}), "a: 65535 is out of range, 0 to 32768");
}

TEST(PayloadLayout, names_ten_codes_at_most) {
  PayloadValue value;
  value.name = "mode";
  value.type = ValueType::bytes;
  for (std::int64_t code = 0; code < 10; ++code) {
    value.values.push_back({"m" + std::to_string(code), Count::of(code)});
  }
  const std::string ten = "mode bytes (m0 0, m1 1, m2 2, m3 3, m4 4, m5 5, m6 6, m7 7, m8 8, m9 9";
  EXPECT_EQ(payload_value_text(value), ten + ")");
  value.values.push_back({"m10", Count::of(10)});
  EXPECT_EQ(payload_value_text(value), ten + ", ...)");
}

TEST(PayloadLayout, without_anything_in_its_range_is_none) {
  NodeConfig node = node_of({{{2, "RPDO", 0, {{0x2000, 1, 8, "mode"}, {0x2000, 2, 16, "period"}}}},
                             {{"wheel", {"ci402", 0x6040, 0}}}});
  node.values[{0x2000, 1}].minimum = Count::of(4);
  node.values[{0x60FF, 0}].minimum = Count::of(40000);
  EXPECT_EQ(text_of(payload_layout({node, "", led_write("set_mode", {"mode", "period"})})),
            "none: the range of mode and that of the operation do not meet");
  EXPECT_EQ(text_of(payload_layout({node, "wheel", of_kind("ci402_set_target")})),
            "none: the range of target and that of the operation do not meet");
}

TEST(PayloadLayout, of_a_field_longer_than_a_frame_is_none) {
  const NodeConfig node = node_of({{{2, "RPDO", 0, {{0x2000, 1, 72, "a"}}}}, {}});
  constexpr const char* refusal =
      "none: 0x2000/1 is mapped with 72 bits, a PDO has no more than 64";
  EXPECT_EQ(text_of(payload_layout({node, "", with_fields(of_kind("pdo_write"), {"a"})})), refusal);
  EXPECT_EQ(text_of(payload_layout({node, "", with_field(of_kind("pdo_write"), "a", 0)})), refusal);
}

TEST(PayloadLayout, of_an_object_without_a_type_has_the_length_of_its_mapping) {
  NodeConfig node = node_of({{{1, "TPDO", 0, {{0x2000, 1, 16, "a"}, {0x2000, 2, 12, "b"}}}}, {}});
  EXPECT_EQ(text_of(payload_layout({node, "", object_write("", 0x2000, 1)})), "a u16");
  EXPECT_EQ(text_of(payload_layout({node, "", object_write("", 0x2000, 2)})), "b bytes");
  node.values[{0x2000, 1}].minimum = Count::of(-5);
  EXPECT_EQ(text_of(payload_layout({node, "", object_write("", 0x2000, 1)})), "a s16, -5 to 32767");
}

TEST(PayloadLayout, range_or_code_below_0_tells_a_sign) {
  NodeConfig node = node_of({{{1, "RPDO", 0, {{0x2000, 1, 16, "a"}, {0x2000, 2, 8, "b"}}}}, {}});
  ValueDescription range;
  range.minimum = Count::of(-5);
  node.values[{0x2000, 1}] = range;
  ValueDescription code;
  code.values = {{"back", Count::of(-1)}};
  node.values[{0x2000, 2}] = code;
  EXPECT_EQ(text_of(payload_layout({node, "", with_fields(of_kind("pdo_write"), {"a", "b"}, 1)})),
            "a s16, -5 to 32767; b s8 (back -1)");
}

struct RefusalCase {
  const char* name;
  Bytes payload;
  const char* refusal;
};

class Refusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(Refusal, tells_what_is_wrong_with_the_bytes) {
  NodeConfig node = node_of({{{1, "RPDO", 0, {{0x2000, 1, 16, "a"}, {0x2000, 2, 8, "b"}}}}, {}});
  ValueDescription range;
  range.type = ValueType::s16;
  range.minimum = Count::of(-5);
  node.values[{0x2000, 1}] = range;
  const OperationConfig op = with_fields(of_kind("pdo_write"), {"a", "b"}, 1);
  EXPECT_EQ(payload_refusal(*payload_layout({node, "", op}), GetParam().payload).value_or("none"),
            GetParam().refusal);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, Refusal,
    testing::Values(
        RefusalCase{"whole", {0xFB, 0xFF, 7}, "none"},
        RefusalCase{"empty", {}, "the payload has 0 bytes, too few for a"},
        RefusalCase{"within_a_value", {1}, "the payload has 1 byte, too few for a"},
        RefusalCase{"before_the_last", {1, 0}, "the payload has 2 bytes, too few for b"},
        RefusalCase{"behind_the_last", {1, 0, 7, 8}, "the payload has 4 bytes, 1 too many"},
        RefusalCase{"out_of_range", {0xFA, 0xFF, 7}, "a: -6 is out of range, -5 to 32767"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
