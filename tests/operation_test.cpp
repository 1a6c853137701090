#include "velmora_can_bridge/operation.hpp"

#include <gtest/gtest.h>

#include <type_traits>

namespace velmora_can_bridge {
namespace {

/// A record whose 24 members all differ from their defaults, given in declaration order.
OperationConfig full_operation() {
  return {"kind", "label", "description", 1,        "sdo", 0x2000, 3,    4,
          {5, 6}, {7, 8},  {9, 10},       "u16",    "fld", 11,     12,   13,
          14,     {"a"},   0x1234,        "extend", "set", 15,     {16}, {17, 18}};
}

void expect_equal(const OperationConfig& left, const OperationConfig& right) {
  EXPECT_EQ(left.kind, right.kind);
  EXPECT_EQ(left.label, right.label);
  EXPECT_EQ(left.description, right.description);
  EXPECT_EQ(left.option_flag, right.option_flag);
  EXPECT_EQ(left.transport, right.transport);
  EXPECT_EQ(left.index, right.index);
  EXPECT_EQ(left.sub_index, right.sub_index);
  EXPECT_EQ(left.subindex_in_payload, right.subindex_in_payload);
  EXPECT_EQ(left.sub_indices, right.sub_indices);
  EXPECT_EQ(left.fixed_data, right.fixed_data);
  EXPECT_EQ(left.default_data, right.default_data);
  EXPECT_EQ(left.data_type, right.data_type);
  EXPECT_EQ(left.field, right.field);
  EXPECT_EQ(left.pdo_number, right.pdo_number);
  EXPECT_EQ(left.refresh_shadow, right.refresh_shadow);
  EXPECT_EQ(left.bit_index, right.bit_index);
  EXPECT_EQ(left.named, right.named);
  EXPECT_EQ(left.fields, right.fields);
  EXPECT_EQ(left.index_offset, right.index_offset);
  EXPECT_EQ(left.action, right.action);
  EXPECT_EQ(left.led_operation, right.led_operation);
  EXPECT_EQ(left.pump_pdo_number, right.pump_pdo_number);
  EXPECT_EQ(left.rpdo_channels, right.rpdo_channels);
  EXPECT_EQ(left.sdo_channels, right.sdo_channels);
}

static_assert(std::is_aggregate_v<OperationConfig>);
static_assert(std::is_aggregate_v<OperationResult>);

TEST(OperationConfig, members_stand_in_their_order) {
  const OperationConfig op = full_operation();
  EXPECT_EQ(op.kind, "kind");
  EXPECT_EQ(op.label, "label");
  EXPECT_EQ(op.description, "description");
  EXPECT_EQ(op.option_flag, 1);
  EXPECT_EQ(op.transport, "sdo");
  EXPECT_EQ(op.index, 0x2000);
  EXPECT_EQ(op.sub_index, 3);
  EXPECT_EQ(op.subindex_in_payload, 4);
  EXPECT_EQ(op.sub_indices, (std::vector<std::uint8_t>{5, 6}));
  EXPECT_EQ(op.fixed_data, (std::vector<std::uint8_t>{7, 8}));
  EXPECT_EQ(op.default_data, (std::vector<std::uint8_t>{9, 10}));
  EXPECT_EQ(op.data_type, "u16");
  EXPECT_EQ(op.field, "fld");
  EXPECT_EQ(op.pdo_number, 11);
  EXPECT_EQ(op.refresh_shadow, 12);
  EXPECT_EQ(op.bit_index, 13);
  EXPECT_EQ(op.named, 14);
  EXPECT_EQ(op.fields, std::vector<std::string>{"a"});
  EXPECT_EQ(op.index_offset, 0x1234);
  EXPECT_EQ(op.action, "extend");
  EXPECT_EQ(op.led_operation, "set");
  EXPECT_EQ(op.pump_pdo_number, 15);
  EXPECT_EQ(op.rpdo_channels, std::vector<std::uint8_t>{16});
  EXPECT_EQ(op.sdo_channels, (std::vector<std::uint8_t>{17, 18}));
}

TEST(OperationConfig, copy_equals_its_source_member_for_member) {
  const OperationConfig source = full_operation();
  expect_equal(OperationConfig(source), source);
}

TEST(OperationConfig, changing_a_copy_leaves_the_source_alone) {
  const OperationConfig source = full_operation();
  OperationConfig copy = source;
  copy.kind = "other";
  copy.fields.emplace_back("b");
  copy.fixed_data[0] = 99;
  copy.sdo_channels.clear();
  expect_equal(source, full_operation());
}

TEST(OperationConfig, empty_record_has_zero_numbers_in_itself_as_in_its_copy) {
  const OperationConfig source;
  expect_equal(OperationConfig(source),
               OperationConfig{"", "", "", 0, "", 0,  0, 0,  {}, {}, {}, "",
                               "", 0,  0,  0, 0,  {}, 0, "", "", 0,  {}, {}});
}

TEST(OperationResult, empty_record_is_no_success) {
  const OperationResult result;
  EXPECT_FALSE(result.ok);
  EXPECT_TRUE(result.data.empty());
  EXPECT_EQ(result.message, "");
}

TEST(OperationResult, members_stand_in_their_order) {
  const OperationResult result{true, {1, 2}, "OK"};
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.data, (std::vector<std::uint8_t>{1, 2}));
  EXPECT_EQ(result.message, "OK");
}

}  // namespace
}  // namespace velmora_can_bridge
