#include "ground/little_endian.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LittleEndianTest, lowest_byte_comes_first) {
  EXPECT_THAT(little_endian_bytes(0x01020304, 4), ElementsAre(4, 3, 2, 1));
  EXPECT_EQ(little_endian_number({4, 3, 2, 1}), 0x01020304U);
}

TEST(LittleEndianTest, value_is_cut_to_the_length) {
  EXPECT_THAT(little_endian_bytes(0xFFFFFFFFFFFFFFFE, 2), ElementsAre(0xFE, 0xFF));
  EXPECT_THAT(little_endian_bytes(0x01, 0), IsEmpty());
}

TEST(LittleEndianTest, length_beyond_the_value_is_clear) {
  EXPECT_THAT(little_endian_bytes(0x8000000000000001, 10),
              ElementsAre(1, 0, 0, 0, 0, 0, 0, 0x80, 0, 0));
}

TEST(LittleEndianTest, no_bytes_are_0) { EXPECT_EQ(little_endian_number({}), 0U); }

TEST(LittleEndianTest, bytes_beyond_64_bits_push_nothing_out) {
  EXPECT_EQ(little_endian_number({1, 2, 3, 4, 5, 6, 7, 8}), 0x0807060504030201U);
}

TEST(LittleEndianTest, every_byte_value_comes_back_at_every_place) {
  for (unsigned place = 0; place < 8; ++place) {
    for (std::uint64_t byte = 0; byte < 256; ++byte) {
      const std::uint64_t value = byte << (8 * place);
      ASSERT_EQ(little_endian_number(little_endian_bytes(value, 8)), value);
    }
  }
}

struct BytesRow {
  const char* name;
  std::uint32_t value;
  std::size_t count;
  std::vector<std::uint8_t> bytes;
};

void PrintTo(const BytesRow& row, std::ostream* out) { *out << row.name; }

class LittleEndianBytes : public testing::TestWithParam<BytesRow> {};

TEST_P(LittleEndianBytes, gives_the_low_bytes_lowest_first) {
  EXPECT_EQ(little_endian_bytes(GetParam().value, GetParam().count), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LittleEndianBytes,
    testing::Values(BytesRow{"four_bytes", 0x04030201, 4, {1, 2, 3, 4}},
                    BytesRow{"two_bytes", 0x1234, 2, {0x34, 0x12}},
                    BytesRow{"two_low_bytes_of_four", 0x04030201, 2, {1, 2}},
                    BytesRow{"one_byte", 0x04030201, 1, {1}},
                    BytesRow{"no_byte", 0x04030201, 0, {}}, BytesRow{"zero", 0, 4, {0, 0, 0, 0}},
                    BytesRow{"highest", 0xFFFFFFFF, 4, {0xFF, 0xFF, 0xFF, 0xFF}},
                    BytesRow{
                        "zeros_above_the_value", 0xFFFFFFFF, 6, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PutLittleEndian, writes_no_further_than_told) {
  std::vector<std::uint8_t> bytes{9, 9, 9, 9};
  put_little_endian(bytes.begin() + 1, 2, 0x1234);
  EXPECT_THAT(bytes, ElementsAre(9, 0x34, 0x12, 9));
}

}  // namespace
}  // namespace velmora_can_bridge
