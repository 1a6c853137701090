#include "pdo_mapping.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "chosen_seed.hpp"

namespace velmora_can_bridge {

bool operator==(const FieldValue& left, const FieldValue& right) {
  return left.index == right.index && left.sub_index == right.sub_index &&
         left.value == right.value;
}

void PrintTo(const FieldValue& field, std::ostream* out) {
  *out << field.index << "/" << int{field.sub_index} << " " << testing::PrintToString(field.value);
}

namespace {

using Bytes = std::vector<std::uint8_t>;
using Frame = std::array<std::uint8_t, 8>;
using Mappings = std::vector<PdoMapping>;

TEST(PdoDirectionTest, only_the_exact_text_is_received) {
  EXPECT_TRUE(is_rpdo({1, "RPDO", 0, {}}));
  for (const char* other : {"TPDO", "rpdo", "RPDO ", " RPDO", "RPD", ""}) {
    EXPECT_FALSE(is_rpdo({1, other, 0, {}})) << other;
  }
}

TEST(PdoMappingTest, dummies_and_mappings_without_bits_carry_no_object) {
  EXPECT_FALSE(carries_object({0x0000, 0, 8, ""}));
  EXPECT_FALSE(carries_object({0x001F, 0, 8, ""}));
  EXPECT_TRUE(carries_object({0x0020, 0, 8, ""}));
  EXPECT_TRUE(carries_object({0xFFFF, 255, 1, ""}));
  EXPECT_FALSE(carries_object({0x2000, 1, 0, ""}));
}

struct LengthCase {
  std::string name;
  std::vector<std::uint8_t> bit_lengths;
  std::size_t expected;
};

void PrintTo(const LengthCase& row, std::ostream* out) { *out << row.name; }

class FrameLengthTest : public testing::TestWithParam<LengthCase> {};

TEST_P(FrameLengthTest, rounds_the_sum_of_bits_up) {
  Mappings mappings;
  for (const std::uint8_t bits : GetParam().bit_lengths) {
    mappings.push_back({0x2000, 1, bits, ""});
  }
  EXPECT_EQ(frame_length(mappings), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, FrameLengthTest,
    testing::Values(LengthCase{"nothing_mapped", {}, 0}, LengthCase{"no_bits", {0, 0}, 0},
                    LengthCase{"one_bit", {1}, 1}, LengthCase{"two_half_bytes", {4, 4}, 1},
                    LengthCase{"one_bit_over", {8, 1}, 2}, LengthCase{"full", {32, 16, 16}, 8},
                    LengthCase{"one_bit_too_many", {64, 1}, 9},
                    LengthCase{"far_too_many", {255, 255, 255}, 96}),
    [](const testing::TestParamInfo<LengthCase>& row) { return row.param.name; });

struct UnpackCase {
  std::string name;
  Mappings mappings;
  std::vector<FieldValue> expected;
};

void PrintTo(const UnpackCase& row, std::ostream* out) { *out << row.name; }

class UnpackTest : public testing::TestWithParam<UnpackCase> {};

TEST_P(UnpackTest, cuts_the_frame) {
  constexpr Frame frame = {0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB, 0xED, 0x8F};

  EXPECT_EQ(unpack_frame(GetParam().mappings, frame), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, UnpackTest,
    testing::Values(
        UnpackCase{"nothing_mapped", {}, {}},
        UnpackCase{"whole_bytes",
                   {{0x6040, 0, 16, "cw"}, {0x6060, 0, 8, "mode"}, {0x607A, 0, 32, "pos"}},
                   {{0x6040, 0, {0x21, 0x43}},
                    {0x6060, 0, {0x65}},
                    {0x607A, 0, {0x87, 0xA9, 0xCB, 0xED}}}},
        UnpackCase{"half_bytes",
                   {{0x2000, 1, 4, ""}, {0x2000, 2, 8, ""}, {0x2000, 3, 12, ""}},
                   {{0x2000, 1, {0x01}}, {0x2000, 2, {0x32}}, {0x2000, 3, {0x54, 0x06}}}},
        UnpackCase{"single_bits",
                   {{0x2000, 1, 1, ""}, {0x2000, 2, 4, ""}, {0x2000, 3, 1, ""}},
                   {{0x2000, 1, {1}}, {0x2000, 2, {0}}, {0x2000, 3, {1}}}},
        UnpackCase{
            "dummy_in_front", {{0x0005, 0, 8, ""}, {0x2000, 1, 8, ""}}, {{0x2000, 1, {0x43}}}},
        UnpackCase{"no_bits_between",
                   {{0x2000, 1, 8, ""}, {0x2000, 2, 0, ""}, {0x2000, 3, 8, ""}},
                   {{0x2000, 1, {0x21}}, {0x2000, 3, {0x43}}}},
        UnpackCase{"one_object_twice",
                   {{0x2000, 1, 8, ""}, {0x2000, 1, 8, ""}},
                   {{0x2000, 1, {0x21}}, {0x2000, 1, {0x43}}}},
        UnpackCase{"all_bits_at_once",
                   {{0x2000, 1, 64, ""}},
                   {{0x2000, 1, {0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB, 0xED, 0x8F}}}},
        UnpackCase{"beyond_the_frame",
                   {{0x0005, 0, 60, ""}, {0x2000, 1, 8, ""}, {0x2000, 2, 8, ""}},
                   {{0x2000, 1, {0x08}}, {0x2000, 2, {0x00}}}},
        UnpackCase{"right_behind_the_frame",
                   {{0x0005, 0, 64, ""}, {0x2000, 1, 8, ""}},
                   {{0x2000, 1, {0x00}}}},
        UnpackCase{"longer_than_the_frame",
                   {{0x0005, 0, 56, ""}, {0x2000, 1, 72, ""}},
                   {{0x2000, 1, {0x8F, 0, 0, 0, 0, 0, 0, 0, 0}}}}),
    [](const testing::TestParamInfo<UnpackCase>& row) { return row.param.name; });

/// Bit by bit, as slowly and plainly as can be.
Bytes reference_field(const Frame& frame, std::size_t offset, std::size_t bit_length) {
  Bytes value((bit_length + 7) / 8, 0);
  for (std::size_t bit = 0; bit < bit_length; ++bit) {
    const std::size_t source = offset + bit;
    if (((frame.at(source / 8) >> (source % 8)) & 1) != 0) {
      value.at(bit / 8) = static_cast<std::uint8_t>(value.at(bit / 8) | (1 << (bit % 8)));
    }
  }
  return value;
}

/// Mappings that fill a frame at most, a dummy here and there, in random widths.
Mappings random_mappings(std::mt19937& random) {
  Mappings mappings;
  std::size_t room = 64;
  while (room > 0 && random() % 12 != 0) {
    const std::size_t bits = 1 + random() % std::min<std::size_t>(room, 33);
    const bool dummy = random() % 5 == 0;
    mappings.push_back({static_cast<std::uint16_t>(dummy ? random() % 0x20 : 0x2000),
                        static_cast<std::uint8_t>(mappings.size()), static_cast<std::uint8_t>(bits),
                        ""});
    room -= bits;
  }
  return mappings;
}

std::vector<FieldValue> reference_fields(const Mappings& mappings, const Frame& frame) {
  std::vector<FieldValue> fields;
  std::size_t offset = 0;
  for (const PdoMapping& mapping : mappings) {
    if (mapping.index >= 0x20) {
      fields.push_back(
          {mapping.index, mapping.sub_index, reference_field(frame, offset, mapping.bit_length)});
    }
    offset += mapping.bit_length;
  }
  return fields;
}

TEST(UnpackRandomTest, agrees_with_a_bit_by_bit_reference) {
  const std::uint32_t seed = chosen_seed();
  SCOPED_TRACE(
      "repeat with: simulator_tests --gtest_filter=UnpackRandomTest.* "
      "--gtest_random_seed=" +
      std::to_string(seed));
  std::mt19937 random(seed);
  std::size_t compared = 0;

  for (int round = 0; round < 5000; ++round) {
    const Mappings mappings = random_mappings(random);
    Frame frame{};
    std::generate(frame.begin(), frame.end(),
                  [&] { return static_cast<std::uint8_t>(random() & 0xFFU); });
    const std::vector<FieldValue> expected = reference_fields(mappings, frame);
    ASSERT_EQ(unpack_frame(mappings, frame), expected) << "round " << round;
    compared += expected.size();
  }
  EXPECT_GT(compared, 5000U) << "the random mappings were nearly all empty";
}

}  // namespace
}  // namespace velmora_can_bridge
