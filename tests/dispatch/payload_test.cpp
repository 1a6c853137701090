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

struct BytesRow {
  const char* name;
  std::uint32_t value;
  std::size_t count;
  Bytes bytes;
};

void PrintTo(const BytesRow& row, std::ostream* out) { *out << row.name; }

class LittleEndian : public testing::TestWithParam<BytesRow> {};

TEST_P(LittleEndian, gives_the_low_bytes_lowest_first) {
  EXPECT_EQ(little_endian(GetParam().value, GetParam().count), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LittleEndian,
    testing::Values(BytesRow{"four_bytes", 0x04030201, 4, {1, 2, 3, 4}},
                    BytesRow{"two_bytes", 0x1234, 2, {0x34, 0x12}},
                    BytesRow{"two_low_bytes_of_four", 0x04030201, 2, {1, 2}},
                    BytesRow{"one_byte", 0x04030201, 1, {1}},
                    BytesRow{"no_byte", 0x04030201, 0, {}}, BytesRow{"zero", 0, 4, {0, 0, 0, 0}},
                    BytesRow{"highest", 0xFFFFFFFF, 4, {0xFF, 0xFF, 0xFF, 0xFF}},
                    BytesRow{
                        "zeros_above_the_value", 0xFFFFFFFF, 6, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(LittleEndianAndBack, u32_is_the_same) {
  for (const std::uint32_t value : {0U, 1U, 0xFFU, 0x100U, 0x12345678U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(u32_at(little_endian(value, 4), 0), value);
  }
}

}  // namespace
}  // namespace velmora_can_bridge
