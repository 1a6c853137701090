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

TEST(HexU8, known_values) {
  EXPECT_EQ(hex_u8(0), "0x00");
  EXPECT_EQ(hex_u8(0x1F), "0x1F");
  EXPECT_EQ(hex_u8(0xFF), "0xFF");
}

TEST(HexU32, known_values) {
  EXPECT_EQ(hex_u32(0), "0x00000000");
  EXPECT_EQ(hex_u32(0x06020000), "0x06020000");
  EXPECT_EQ(hex_u32(0xFEDCBA98), "0xFEDCBA98");
}

TEST(HexBytes, have_blanks_between_them) {
  EXPECT_EQ(hex_bytes({}), "");
  EXPECT_EQ(hex_bytes({0x0F}), "0F");
  EXPECT_EQ(hex_bytes({0x0F, 0x00, 0xA5}), "0F 00 A5");
}

TEST(ObjectText, sub_index_is_decimal_without_padding) {
  EXPECT_EQ(object_text(0x2001, 0), "0x2001/0");
  EXPECT_EQ(object_text(0x2001, 5), "0x2001/5");
  EXPECT_EQ(object_text(0x2001, 100), "0x2001/100");
  EXPECT_EQ(object_text(0x2001, 255), "0x2001/255");
}

}  // namespace
}  // namespace velmora_can_bridge
