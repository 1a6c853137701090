#include "dispatch/hex_u16.hpp"

#include <gtest/gtest.h>

#include <cstdio>

namespace velmora_can_bridge {
namespace {

TEST(HexU16, every_value_is_0x_and_four_upper_case_digits) {
  for (unsigned value = 0; value <= 0xFFFF; ++value) {
    char expected[8] = {};
    ASSERT_EQ(std::snprintf(expected, sizeof expected, "0x%04X", value), 6);
    ASSERT_EQ(hex_u16(static_cast<std::uint16_t>(value)), expected);
  }
}

TEST(HexU16, known_values) {
  EXPECT_EQ(hex_u16(0), "0x0000");
  EXPECT_EQ(hex_u16(5), "0x0005");
  EXPECT_EQ(hex_u16(0x1A00), "0x1A00");
  EXPECT_EQ(hex_u16(0x6040), "0x6040");
  EXPECT_EQ(hex_u16(0xABCD), "0xABCD");
  EXPECT_EQ(hex_u16(0xFFFF), "0xFFFF");
}

}  // namespace
}  // namespace velmora_can_bridge
