#include "ground/frame_bits.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

TEST(FrameBits, every_bit_of_a_frame_has_its_place_in_the_word) {
  for (std::size_t bit = 0; bit < frame_bits; ++bit) {
    std::array<std::uint8_t, 8> frame{};
    frame.at(bit / 8) = static_cast<std::uint8_t>(1U << (bit % 8));
    EXPECT_EQ(frame_word(frame), std::uint64_t{1} << bit);
    EXPECT_EQ(frame_of(frame_word(frame)), frame);
  }
}

TEST(FrameBits, bits_beyond_the_frame_are_clear) {
  constexpr std::uint64_t all = ~std::uint64_t{0};
  EXPECT_EQ(bits_of(all, 0, 64), all);
  EXPECT_EQ(bits_of(all, 0, 255), all);
  EXPECT_EQ(bits_of(all, 60, 8), 0xFU);
  EXPECT_EQ(bits_of(all, 64, 1), 0U);
}

TEST(FrameBits, written_bits_stay_in_their_field) {
  EXPECT_EQ(with_bits(0, 4, 4, 0xFF), 0xF0U);
  EXPECT_EQ(with_bits(0x0F, 4, 4, 0x1), 0x1FU);
  EXPECT_EQ(with_bits(5, 64, 8, 0xFF), 5U);
}

}  // namespace
}  // namespace velmora_can_bridge
