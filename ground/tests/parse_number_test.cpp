#include "ground/parse_number.hpp"

#include <gtest/gtest.h>

#include <string>

namespace velmora_can_bridge {
namespace {

struct NumberRow {
  const char* name;
  const char* text;
  std::uint64_t magnitude;
  bool is_negative;
  bool is_too_large;
};

class ParseNumber : public testing::TestWithParam<NumberRow> {};

TEST_P(ParseNumber, reads_the_whole_text) {
  const std::optional<TypedNumber> number = parse_number(GetParam().text);
  ASSERT_TRUE(number);
  EXPECT_EQ(number->magnitude, GetParam().magnitude);
  EXPECT_EQ(number->is_negative, GetParam().is_negative);
  EXPECT_EQ(number->is_too_large, GetParam().is_too_large);
}

constexpr std::uint64_t greatest = ~std::uint64_t{0};

INSTANTIATE_TEST_SUITE_P(
    Numbers, ParseNumber,
    testing::Values(NumberRow{"zero", "0", 0, false, false},
                    NumberRow{"leading_zero", "010", 10, false, false},
                    NumberRow{"negative", "-300", 300, true, false},
                    NumberRow{"minus_zero_is_zero", "-0", 0, false, false},
                    NumberRow{"hexadecimal", "0xAbC", 0xABC, false, false},
                    NumberRow{"upper_case_prefix", "0X10", 16, false, false},
                    NumberRow{"greatest", "18446744073709551615", greatest, false, false},
                    NumberRow{"one_more", "18446744073709551616", greatest, false, true},
                    NumberRow{"far_below", "-99999999999999999999", greatest, true, true},
                    NumberRow{"too_many_digits", "0x10000000000000000", greatest, false, true}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ParseNumber, takes_nothing_else) {
  for (const char* text :
       {"", "-", "--1", "+1", " 1", "1 ", "1x", "0x", "0x-1", "-0x1", "0F", "1.0", "1e3"}) {
    EXPECT_FALSE(parse_number(text)) << text;
  }
}

TEST(ParseNumber, tells_what_looks_octal) {
  EXPECT_TRUE(looks_octal("010"));
  EXPECT_TRUE(looks_octal("00"));
  EXPECT_FALSE(looks_octal("0"));
  EXPECT_FALSE(looks_octal("0x10"));
  EXPECT_FALSE(looks_octal("10"));
}

}  // namespace
}  // namespace velmora_can_bridge
