#include "velmora_can_bridge/config/payload_description.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "problem_texts.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct PayloadCase {
  std::string name;
  OperationConfig op;
  std::string description;
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

OperationConfig with_field(OperationConfig op, const std::string& field, std::uint16_t index) {
  op.field = field;
  op.index = index;
  op.sub_index = 2;
  return op;
}

OperationConfig led_write(const std::string& led_operation) {
  OperationConfig op = with_fields(of_kind("led_write"), {"a", "b"});
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

OperationConfig pump_duty(const std::string& transport) {
  OperationConfig op = of_kind("pump_duty");
  op.transport = transport;
  op.pump_pdo_number = 4;
  op.rpdo_channels = {1, 2};
  op.sdo_channels = {3};
  return op;
}

TEST(DescribePayload, has_words_for_every_kind) {
  for (const OperationKind& row : operation_kinds) {
    const std::string description = describe_payload(of_kind(std::string(row.kind)), {});
    EXPECT_NE(description, "") << row.kind;
    EXPECT_NE(description, "unknown") << row.kind;
  }
}

TEST(DescribePayload, has_none_for_another_text) {
  for (const char* kind : {"", "SDO_READ", "sdo_rea"}) {
    EXPECT_EQ(describe_payload(of_kind(kind), {}), "unknown") << kind;
  }
}

class Payload : public testing::TestWithParam<PayloadCase> {};

TEST_P(Payload, is_described) {
  const BoardConfig board{
      {{1, "TPDO", 0, {{0x2000, 1, 32, "a"}}},
       {2, "RPDO", 0, {{0x2000, 1, 8, "a"}, {0x2000, 2, 16, "b"}, {0x2000, 3, 4, "c"}}},
       {2, "RPDO", 0, {{0x2100, 2, 32, "d"}}}},
      {}};
  EXPECT_EQ(describe_payload(GetParam().op, board), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    of, Payload,
    testing::Values(
        PayloadCase{"sdo_read", of_kind("sdo_read"), "none"},
        PayloadCase{"read_multi", of_kind("read_multi"), "none"},
        PayloadCase{"no_type", sdo_write(""), "raw (any length)"},
        PayloadCase{"raw", sdo_write("raw"), "raw (any length)"},
        PayloadCase{"u8", sdo_write("u8"), "u8 (1 byte)"},
        PayloadCase{"s16", sdo_write("s16"), "s16 (2 bytes)"},
        PayloadCase{"u32", sdo_write("u32"), "u32 (4 bytes)"},
        PayloadCase{"unknown_type", sdo_write("U16"), "none is accepted (unknown data type)"},
        PayloadCase{"fixed", sdo_write("u16", {1, 0xAB}, {7}), "ignored (always writes 01 AB)"},
        PayloadCase{"with_default", sdo_write("u16", {}, {7}), "u16 (2 bytes), or none for 07"},
        PayloadCase{"sub_index_before_all_others", sdo_write("u16", {1}, {7}, 1),
                    "sub-index (1 byte), data (any length)"}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    of_rpdo_writes, Payload,
    testing::Values(
        PayloadCase{"od_io_read", of_kind("od_io_read"),
                    "offset (2 bytes), sub-index (1 byte), 0 where left out"},
        PayloadCase{"od_io_write", of_kind("od_io_write"),
                    "offset (2 bytes), sub-index (1 byte), data (any length)"},
        PayloadCase{
            "set_led", led_write("set_led"),
            "colour (3 bytes), mode 0 to 3 (1 byte), period (2 bytes) into a (1 byte), b (2 "
            "bytes)"},
        PayloadCase{"set_color", led_write("set_color"),
                    "colour (3 bytes) into a (1 byte), b (2 bytes)"},
        PayloadCase{"set_mode", led_write("set_mode"),
                    "mode 0 to 3 (1 byte), period (2 bytes) into a (1 byte), b (2 bytes)"},
        PayloadCase{"auto_write", auto_write("s16"), "s16 (2 bytes)"},
        PayloadCase{"auto_write_of_fields", with_fields(auto_write("s16"), {"b"}),
                    "s16 (2 bytes) into b (2 bytes)"},
        PayloadCase{"several_fields", with_fields(of_kind("pdo_write"), {"b", "a", "c"}),
                    "b (2 bytes), a (1 byte), c (0 bytes)"},
        PayloadCase{"unmapped_field", with_fields(of_kind("pdo_write"), {"a", "x"}),
                    "a (1 byte), x (not mapped)"},
        PayloadCase{"absent_rpdo", with_fields(of_kind("pdo_write"), {"a"}, 9), "a (not mapped)"},
        PayloadCase{"patch", with_fields(of_kind("pdo_patch"), {"a", "b"}),
                    "a (1 byte), b (2 bytes); may end after any field"},
        PayloadCase{"one_field", with_field(of_kind("pdo_patch"), "b", 0x2000), "b (2 bytes)"},
        PayloadCase{"one_object", with_field(of_kind("pdo_write"), "", 0x2000),
                    "0x2000/2 (2 bytes)"},
        PayloadCase{"object_of_a_later_entry", with_field(of_kind("pdo_write"), "", 0x2100),
                    "0x2100/2 (4 bytes)"},
        PayloadCase{"unmapped_object", with_field(of_kind("pdo_write"), "", 0x3000),
                    "0x3000/2 (not mapped)"},
        PayloadCase{"bit_patch", with_field(of_kind("bit_patch"), "a", 0),
                    "mask (1 byte), value (1 byte) for a"},
        PayloadCase{"bit_patch_of_fields", with_fields(of_kind("bit_patch"), {"a", "b"}),
                    "mask (1 byte), value (1 byte) for a"},
        PayloadCase{"bit", with_fields(of_kind("pdo_bit_patch"), {"a", "c"}),
                    "field (1 a, 2 c), bit (0 to 7), 0 or 1; 1 byte each"},
        PayloadCase{"named_bit", named_bit_patch(), "0 or 1 (1 byte) for bit 5 of a"}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    of_drives, Payload,
    testing::Values(PayloadCase{"enable", of_kind("ci402_enable"), "none"},
                    PayloadCase{"disable", of_kind("ci402_disable"), "none"},
                    PayloadCase{"quick_stop", of_kind("ci402_quick_stop"), "none"},
                    PayloadCase{"set_mode", of_kind("ci402_set_mode"),
                                "mode (1 byte): 1 position, 3 velocity, 4 torque, 6 homing"},
                    PayloadCase{"set_target", of_kind("ci402_set_target"), "s16 (2 bytes)"},
                    PayloadCase{"ramp", of_kind("ci402_ramp"), "u32 (4 bytes)"},
                    PayloadCase{"claw", of_kind("claw_action"), "none"},
                    PayloadCase{"pump", pump_duty(""),
                                "channel (1 byte), duty (2 bytes), 1 2 by RPDO 4, 3 by SDO"},
                    PayloadCase{"pump_without_channels", of_kind("pump_duty"),
                                "channel (1 byte), duty (2 bytes)"},
                    PayloadCase{"pump_by_sdo", pump_duty("sdo"),
                                "channel (1 byte), duty (2 bytes), every channel by SDO"}),
    RowName());

}  // namespace
}  // namespace velmora_can_bridge
