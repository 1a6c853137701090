#include "little_endian.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LittleEndianTest, lowest_byte_comes_first) {
  EXPECT_THAT(to_little_endian(0x01020304, 4), ElementsAre(4, 3, 2, 1));
  EXPECT_EQ(from_little_endian({4, 3, 2, 1}), 0x01020304U);
}

TEST(LittleEndianTest, value_is_cut_to_the_length) {
  EXPECT_THAT(to_little_endian(0xFFFFFFFFFFFFFFFE, 2), ElementsAre(0xFE, 0xFF));
  EXPECT_THAT(to_little_endian(0x01, 0), IsEmpty());
}

TEST(LittleEndianTest, length_beyond_the_value_is_clear) {
  EXPECT_THAT(to_little_endian(0x8000000000000001, 10),
              ElementsAre(1, 0, 0, 0, 0, 0, 0, 0x80, 0, 0));
}

TEST(LittleEndianTest, no_bytes_are_0) { EXPECT_EQ(from_little_endian({}), 0U); }

TEST(LittleEndianTest, bytes_beyond_64_bits_push_nothing_out) {
  EXPECT_EQ(from_little_endian({1, 2, 3, 4, 5, 6, 7, 8}), 0x0807060504030201U);
}

TEST(LittleEndianTest, every_byte_value_comes_back_at_every_place) {
  for (unsigned place = 0; place < 8; ++place) {
    for (std::uint64_t byte = 0; byte < 256; ++byte) {
      const std::uint64_t value = byte << (8 * place);
      ASSERT_EQ(from_little_endian(to_little_endian(value, 8)), value);
    }
  }
}

}  // namespace
}  // namespace velmora_can_bridge
