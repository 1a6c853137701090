// The layout of every kind against what its handler makes of payloads.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string>
#include <utility>

#include "ground/device_need.hpp"
#include "support/every_operation.hpp"
#include "support/willing_backend.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

bool is_about_size(const std::string& message) {
  return message.find("payload") != std::string::npos;
}

/// Bytes that every value of any operation of the table takes: the LED modes end at 3, channels and
/// field numbers begin with 1, bits are 0 or 1.
Bytes filled(std::size_t size) { return Bytes(size, 1); }

class EveryLayout : public testing::TestWithParam<EveryOperation> {
 protected:
  EveryLayout() {
    node_.node_id = 1;
    node_.board = every_operation_board();
  }

  PayloadLayout layout(const Bytes& payload) {
    const auto layout = payload_layout({node_, GetParam().device, GetParam().op}, payload);
    EXPECT_TRUE(layout) << layout.error();
    return layout ? *layout : PayloadLayout{};
  }

  std::string answer(const Bytes& payload) {
    WillingBackend backend;
    CanOpenNodeController controller(node_.node_id, backend, node_.board);
    const OperationResult result =
        controller.execute_configured_operation(GetParam().op, GetParam().device, payload);
    return result.ok ? "ok" : result.message;
  }

  /// Bytes of the values that must be there.
  static std::size_t required(const PayloadLayout& layout) {
    std::size_t length = 0;
    for (const PayloadValue& value : layout.values) {
      length += value.is_optional ? 0 : value.length;
    }
    return length;
  }

  NodeConfig node_;
};

TEST_P(EveryLayout, takes_the_payload_that_the_operation_takes) {
  EXPECT_EQ(payload_refusal(layout(GetParam().payload), GetParam().payload), std::nullopt);
}

TEST_P(EveryLayout, takes_no_payload_that_the_handler_refuses_for_its_size) {
  for (std::size_t size = 0; size < 12; ++size) {
    const Bytes payload = filled(size);
    if (!payload_refusal(layout(payload), payload)) {
      EXPECT_FALSE(is_about_size(answer(payload))) << size << " bytes: " << answer(payload);
    }
  }
}

TEST_P(EveryLayout, refuses_one_byte_less_than_the_required_values) {
  const std::size_t least = required(layout(GetParam().payload));
  if (least > 0) {
    Bytes payload = GetParam().payload;
    payload.resize(least - 1, 1);
    EXPECT_NE(payload_refusal(layout(payload), payload), std::nullopt);
  }
}

TEST_P(EveryLayout, refuses_one_byte_more_where_nothing_may_follow) {
  Bytes payload = GetParam().payload;
  const PayloadLayout whole = layout(payload);
  std::size_t length = 0;
  for (const PayloadValue& value : whole.values) {
    length += value.length;
  }
  payload.resize(length + 1, 1);
  EXPECT_EQ(payload_refusal(layout(payload), payload).has_value(), !whole.more_may_follow);
}

TEST_P(EveryLayout, refuses_what_ends_within_a_value) {
  const PayloadLayout whole = layout(GetParam().payload);
  std::size_t position = 0;
  for (const PayloadValue& value : whole.values) {
    for (std::size_t size = position + 1; size < position + value.length; ++size) {
      Bytes payload = GetParam().payload;
      payload.resize(size, 1);
      EXPECT_NE(payload_refusal(layout(payload), payload), std::nullopt) << size;
    }
    position += value.length;
  }
}

std::vector<EveryOperation> operations() {
  std::vector<EveryOperation> rows = every_operation();
  OperationConfig with_default = every_object_op("sdo_write");
  with_default.data_type = "u32";
  with_default.default_data = {1, 2, 3, 4};
  rows.push_back({"sdo_write default", with_default, "", {}, 0, ""});
  OperationConfig indexed_bit = every_field_op("pdo_bit_patch", {"flags", "mask"});
  rows.push_back({"pdo_bit_patch by number", indexed_bit, "", {1, 1, 1}, 0, ""});
  OperationConfig typed_fields = every_object_op("auto_write", 0x2000);
  typed_fields.fields = {"left", "right"};
  typed_fields.data_type = "u32";
  rows.push_back({"auto_write typed fields", typed_fields, "", {1, 1, 1, 1}, 0, ""});
  rows.push_back({"od_io_read of nothing", every_op("od_io_read"), "io", {}, 0, ""});
  rows.push_back(
      {"ci402_set_target by sdo", every_op("ci402_set_target", "sdo"), "wheel", {1, 1}, 0, ""});
  rows.push_back({"pump_duty by any channel", every_pump_op("sdo"), "io", {1, 1, 1}, 0, ""});
  return rows;
}

std::string row_name(const testing::TestParamInfo<EveryOperation>& row) {
  std::string name = row.param.name;
  std::replace_if(
      name.begin(), name.end(),
      [](char letter) { return std::isalnum(static_cast<unsigned char>(letter)) == 0; }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Operations, EveryLayout, testing::ValuesIn(operations()), row_name);

TEST(EveryKind, is_among_the_operations_above) {
  const std::vector<EveryOperation> rows = operations();
  for (const OperationKind& kind : operation_kinds) {
    EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [&](const EveryOperation& row) {
      return row.op.kind == kind.kind;
    })) << kind.kind;
  }
}

TEST(DeviceNeed, is_what_the_handler_asks_for) {
  const BoardConfig board = every_operation_board();
  for (const EveryOperation& row : operations()) {
    WillingBackend backend;
    const std::uint8_t node_id = 1;
    CanOpenNodeController controller(node_id, backend, board);
    const OperationResult result =
        controller.execute_configured_operation(row.op, "0x01", row.payload);
    const bool is_missing = result.message.rfind("Device not found", 0) == 0;
    EXPECT_EQ(is_missing, device_need(row.op.kind) != DeviceNeed::none) << row.name;
  }
}

}  // namespace
}  // namespace velmora_can_bridge
