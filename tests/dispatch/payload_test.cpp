#include "dispatch/payload.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(U16At, takes_every_value_low_byte_first) {
  for (unsigned value = 0; value <= 0xFFFF; ++value) {
    const Bytes bytes{static_cast<std::uint8_t>(value & 0xFFU),
                      static_cast<std::uint8_t>(value >> 8U)};
    ASSERT_EQ(u16_at(bytes, 0), value);
  }
}

TEST(U16At, takes_the_two_bytes_at_the_position) {
  const Bytes bytes{0x11, 0x22, 0x33, 0x44};
  EXPECT_EQ(u16_at(bytes, 0), 0x2211);
  EXPECT_EQ(u16_at(bytes, 1), 0x3322);
  EXPECT_EQ(u16_at(bytes, 2), 0x4433);
}

TEST(U32At, takes_four_bytes_low_byte_first) {
  EXPECT_EQ(u32_at({1, 2, 3, 4}, 0), 0x04030201U);
  EXPECT_EQ(u32_at({0x88, 0x13, 0, 0}, 0), 5000U);
}

TEST(U32At, is_unsigned_up_to_the_highest_bit) {
  EXPECT_EQ(u32_at({0, 0, 0, 0x80}, 0), 0x80000000U);
  EXPECT_EQ(u32_at({0xFF, 0xFF, 0xFF, 0xFF}, 0), 0xFFFFFFFFU);
}

TEST(U32At, each_bit_has_its_weight) {
  for (unsigned bit = 0; bit < 32; ++bit) {
    Bytes bytes(4);
    bytes[bit / 8] = static_cast<std::uint8_t>(1U << (bit % 8));
    EXPECT_EQ(u32_at(bytes, 0), 1U << bit);
  }
}

TEST(U32At, takes_the_four_bytes_at_the_position) {
  EXPECT_EQ(u32_at({0x99, 1, 2, 3, 4, 0x99}, 1), 0x04030201U);
}

}  // namespace
}  // namespace velmora_can_bridge
