#include "velmora_can_bridge/predefined_cob_id.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

TEST(PredefinedCobId, there_are_four_each_way) {
  EXPECT_EQ(predefined_tpdo_cob_id(5, 1), 0x185);
  EXPECT_EQ(predefined_rpdo_cob_id(5, 1), 0x205);
  EXPECT_EQ(predefined_tpdo_cob_id(5, 2), 0x285);
  EXPECT_EQ(predefined_rpdo_cob_id(5, 2), 0x305);
  EXPECT_EQ(predefined_tpdo_cob_id(5, 3), 0x385);
  EXPECT_EQ(predefined_rpdo_cob_id(5, 3), 0x405);
  EXPECT_EQ(predefined_tpdo_cob_id(5, 4), 0x485);
  EXPECT_EQ(predefined_rpdo_cob_id(127, 4), 0x57F);
  for (unsigned number = 5; number <= 256; ++number) {  // 256 is 0 again
    EXPECT_EQ(predefined_tpdo_cob_id(5, static_cast<std::uint8_t>(number)), 0) << number;
    EXPECT_EQ(predefined_rpdo_cob_id(5, static_cast<std::uint8_t>(number)), 0) << number;
  }
}

TEST(PredefinedCobId, functions_stand_where_the_connection_set_has_them) {
  EXPECT_EQ(nmt_cob_id, 0x000);
  EXPECT_EQ(sync_cob_id, 0x080);
  EXPECT_EQ(emergency_cob_id, 0x080);
  EXPECT_EQ(time_cob_id, 0x100);
  EXPECT_EQ(sdo_answer_cob_id, 0x580);
  EXPECT_EQ(sdo_request_cob_id, 0x600);
  EXPECT_EQ(heartbeat_cob_id, 0x700);
}

}  // namespace
}  // namespace velmora_can_bridge
