#include "velmora_can_bridge/values/value_number.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

struct NumberCase {
  const char* name;
  std::uint64_t bits;
  unsigned bit_length;
  std::optional<ValueType> type;
  const char* text;
};

void PrintTo(const NumberCase& row, std::ostream* out) { *out << row.name; }

class ValueNumbers : public testing::TestWithParam<NumberCase> {};

TEST_P(ValueNumbers, are_those_of_the_type) {
  const auto& [name, bits, bit_length, type, text] = GetParam();
  EXPECT_EQ(number_text(number_of_bits(bits, bit_length, type)), text);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, ValueNumbers,
    testing::Values(
        NumberCase{"untyped", 0xFFFFFFB3, 32, std::nullopt, "4294967219"},
        NumberCase{"s32", 0xFFFFFFB3, 32, ValueType::s32, "-77"},
        NumberCase{"u32", 0xFFFFFFB3, 32, ValueType::u32, "4294967219"},
        NumberCase{"s8", 0x80, 8, ValueType::s8, "-128"},
        NumberCase{"s8_positive", 0x7F, 8, ValueType::s8, "127"},
        NumberCase{"bits_beyond_are_dropped", 0xFFF01, 8, ValueType::s8, "1"},
        NumberCase{"twelve_bits_with_sign", 0xFFF, 12, ValueType::s16, "-1"},
        NumberCase{"one_bit", 1, 1, ValueType::u8, "1"},
        NumberCase{"s64_lowest", 0x8000000000000000U, 64, ValueType::s64, "-9223372036854775808"},
        NumberCase{"u64_highest", ~std::uint64_t{0}, 64, ValueType::u64, "18446744073709551615"},
        NumberCase{"more_bits_than_there_are", ~std::uint64_t{0}, 72, ValueType::s64, "-1"},
        NumberCase{"float32", 0x3DCCCCCD, 32, ValueType::float32, "0.1"},
        NumberCase{"float32_negative", 0xC0200000, 32, ValueType::float32, "-2.5"},
        NumberCase{"float32_no_number", 0x7FC00000, 32, ValueType::float32, "nan"},
        NumberCase{"float32_infinite", 0xFF800000, 32, ValueType::float32, "-inf"},
        NumberCase{"float32_of_another_length", 0x3DCC, 16, ValueType::float32, "15820"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ValueNumber, scaled_has_the_digits_that_are_meant) {
  EXPECT_EQ(scaled_text(std::uint64_t{3}, 0.1), "0.3");
  EXPECT_EQ(scaled_text(std::int64_t{-300}, 0.001), "-0.3");
  EXPECT_EQ(scaled_text(std::uint64_t{7}, 2.0), "14");
  EXPECT_EQ(scaled_text(std::uint64_t{0}, 0.25), "0");
  EXPECT_EQ(scaled_text(0.5, 0.5), "0.25");
  EXPECT_EQ(scaled_text(std::uint64_t{4294967295}, 0.001), "4294967.295");
}

TEST(ValueNumber, may_have_1_2_4_or_8_bytes) {
  for (std::size_t size = 0; size <= 16; ++size) {
    EXPECT_EQ(is_number_size(size), size == 1 || size == 2 || size == 4 || size == 8) << size;
  }
}

}  // namespace
}  // namespace velmora_can_bridge
