#include "ground/number_text.hpp"

#include <gtest/gtest.h>

#include "ground/node_text.hpp"

namespace velmora_can_bridge {
namespace {

TEST(Hex, four_digits) {
  EXPECT_EQ(hex<4>(0), "0x0000");
  EXPECT_EQ(hex<4>(0x1A00), "0x1A00");
  EXPECT_EQ(hex<4>(0xFFFF), "0xFFFF");
}

TEST(Hex, digits_above_the_wanted_ones_are_left_out) { EXPECT_EQ(hex<2>(0x1234), "0x34"); }

TEST(Hex, two_digits) {
  EXPECT_EQ(hex<2>(0), "0x00");
  EXPECT_EQ(hex<2>(0x1F), "0x1F");
  EXPECT_EQ(hex<2>(0xFF), "0xFF");
}

TEST(Hex, eight_digits) {
  EXPECT_EQ(hex<8>(0), "0x00000000");
  EXPECT_EQ(hex<8>(0x06020000), "0x06020000");
  EXPECT_EQ(hex<8>(0xFEDCBA98), "0xFEDCBA98");
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

TEST(BytesText, says_that_there_are_none) {
  EXPECT_EQ(bytes_text({}), "no bytes");
  EXPECT_EQ(bytes_text({0x0F, 0x00}), "0F 00");
}

TEST(Counted, has_an_s_but_for_one) {
  EXPECT_EQ(counted(0, "byte"), "0 bytes");
  EXPECT_EQ(counted(1, "byte"), "1 byte");
  EXPECT_EQ(counted(2, "byte"), "2 bytes");
}

TEST(NodeText, names_the_node_in_hexadecimal) { EXPECT_EQ(node_text(16), "node 0x10"); }

TEST(NodeText, no_node_id_is_told_in_decimal) {
  EXPECT_EQ(no_node_id_text(128), "node id 128 is not one of 1 to 127");
}

}  // namespace
}  // namespace velmora_can_bridge
