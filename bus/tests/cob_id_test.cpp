#include "velmora_can_bridge/bus/cob_id.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>

namespace velmora_can_bridge {
namespace {

TEST(CobIdTest, node_ids_are_1_to_127) {
  for (unsigned id = 0; id <= 255; ++id) {
    EXPECT_EQ(is_node_id(static_cast<std::uint8_t>(id)), id >= 1 && id <= 127) << id;
  }
}

TEST(CobIdTest, no_two_functions_of_any_nodes_share_an_identifier) {
  std::set<std::uint16_t> seen = {nmt_cob_id};
  const auto is_new = [&](unsigned id) {
    return seen.insert(static_cast<std::uint16_t>(id)).second;
  };
  for (std::uint8_t node = 1; node <= highest_node_id; ++node) {
    for (std::uint8_t number = 1; number <= 4; ++number) {
      EXPECT_TRUE(is_new(predefined_rpdo_cob_id(node, number)));
      EXPECT_TRUE(is_new(predefined_tpdo_cob_id(node, number)));
    }
    for (const unsigned first :
         {emergency_cob_id, sdo_answer_cob_id, sdo_request_cob_id, heartbeat_cob_id}) {
      EXPECT_TRUE(is_new(first + node));
      EXPECT_EQ((first + node) & function_mask, first);
      EXPECT_EQ(node_id_of(static_cast<std::uint16_t>(first + node)), node);
    }
  }
}

}  // namespace
}  // namespace velmora_can_bridge
