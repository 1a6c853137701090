#include "velmora_can_bridge/values/object_value.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace velmora_can_bridge {
namespace {

NodeConfig node_with_drive() {
  NodeConfig node;
  node.node_id = 1;
  node.board.device_od_map["wheel"] = {"ci402", 0x6840, 0};
  node.board.device_od_map["lamp"] = {"io", 0x2000, 0};
  return node;
}

std::string type_of(const ValueDescription& value) {
  return value.type ? std::string(value_type_text(*value.type)) : "unknown";
}

struct TypeRow {
  const char* name;
  std::uint16_t index;
  std::uint8_t sub_index;
  const char* type;
};

class ObjectTypeTest : public testing::TestWithParam<TypeRow> {};

TEST_P(ObjectTypeTest, is_told_by_profile_or_standard) {
  const NodeConfig node = node_with_drive();
  EXPECT_EQ(type_of(object_value(&node, GetParam().index, GetParam().sub_index)), GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(Objects, ObjectTypeTest,
                         testing::Values(TypeRow{"target_velocity", 0x68FF, 0, "s32"},
                                         TypeRow{"statusword", 0x6841, 0, "u16"},
                                         TypeRow{"torque", 0x6871, 0, "s16"},
                                         TypeRow{"mode", 0x6860, 0, "s8"},
                                         TypeRow{"acceleration", 0x6883, 0, "u32"},
                                         TypeRow{"other_sub_index", 0x68FF, 1, "unknown"},
                                         TypeRow{"axis_without_device", 0x60FF, 0, "unknown"},
                                         TypeRow{"device_name", 0x1008, 0, "text"},
                                         TypeRow{"heartbeat_time", 0x1017, 0, "u16"},
                                         TypeRow{"serial_number", 0x1018, 4, "u32"},
                                         TypeRow{"lamp", 0x2000, 1, "unknown"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(ObjectValue, names_the_modes_of_a_drive) {
  const NodeConfig node = node_with_drive();
  const ValueDescription mode = object_value(&node, 0x6861, 0);
  ASSERT_EQ(mode.values.size(), 10U);
  EXPECT_EQ(mode.values[3].name, "velocity");
  EXPECT_EQ(mode.values[3].code, Count::of(3));
}

TEST(ObjectValue, where_two_drives_meet_has_the_sign_of_either) {
  for (const auto& [first, second] : {std::pair("a", "b"), std::pair("b", "a")}) {
    NodeConfig node;
    // 0x6084 is the profile deceleration of the one and the velocity of the other.
    node.board.device_od_map[first] = {"ci402", 0x6040, 0};
    node.board.device_od_map[second] = {"ci402", 0x6058, 0};
    EXPECT_EQ(type_of(object_value(&node, 0x6084, 0)), "s32") << first;
  }
}

TEST(ObjectValue, without_a_node_knows_the_objects_of_every_node) {
  EXPECT_EQ(type_of(object_value(nullptr, 0x1001, 0)), "u8");
  EXPECT_EQ(type_of(object_value(nullptr, 0x6041, 0)), "unknown");
}

TEST(ObjectValue, board_file_comes_first_and_profile_fills_in) {
  NodeConfig node = node_with_drive();
  ValueDescription velocity;
  velocity.unit = "m/s";
  velocity.scale = 0.001;
  node.values[{0x68FF, 0}] = velocity;
  const ValueDescription found = object_value(&node, 0x68FF, 0);
  EXPECT_EQ(type_of(found), "s32");
  EXPECT_EQ(found.unit, "m/s");

  ValueDescription heartbeat;
  heartbeat.minimum = Count::of(10);
  node.values[{0x1017, 0}] = heartbeat;
  EXPECT_EQ(object_value(&node, 0x1017, 0).unit, "ms");
  EXPECT_EQ(object_value(&node, 0x1017, 0).minimum, Count::of(10));
}

}  // namespace
}  // namespace velmora_can_bridge
