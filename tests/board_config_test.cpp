#include "velmora_can_bridge/board_config.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

TEST(BoardConfig, mapping_has_no_bits_until_it_is_filled) {
  const PdoMapping mapping;
  EXPECT_EQ(mapping.index, 0);
  EXPECT_EQ(mapping.sub_index, 0);
  EXPECT_EQ(mapping.bit_length, 0);
  EXPECT_EQ(mapping.field, "");
}

TEST(BoardConfig, pdo_has_no_number_and_no_cob_id_until_it_is_filled) {
  const PdoConfig pdo;
  EXPECT_EQ(pdo.number, 0);
  EXPECT_EQ(pdo.direction, "");
  EXPECT_EQ(pdo.cob_id, 0);
  EXPECT_TRUE(pdo.mappings.empty());
  EXPECT_EQ(pdo.transmission, std::nullopt);
  EXPECT_FALSE(pdo.shared_cob_id);
}

TEST(BoardConfig, device_entry_names_no_object_until_it_is_filled) {
  const DeviceOdEntry entry;
  EXPECT_EQ(entry.profile, "");
  EXPECT_EQ(entry.base_index, 0);
  EXPECT_EQ(entry.homing_record, 0);
}

}  // namespace
}  // namespace velmora_can_bridge
