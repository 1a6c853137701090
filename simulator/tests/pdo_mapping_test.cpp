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

#include "ground/pdo.hpp"
#include "node_objects.hpp"
#include "support/chosen_seed.hpp"

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

TEST(PdosByNumberTest, are_the_first_of_each_number_and_direction) {
  const BoardConfig board{{{1, "TPDO", 0, {}},
                           {2, "RPDO", 0, {}},
                           {1, "RPDO", 0, {}},
                           {1, "RPDO", 0, {}},
                           {1, "TPDO", 0, {}},
                           {3, "tpdo", 0, {}}},
                          {}};

  EXPECT_EQ(rpdos_of(board), (PdosByNumber{{1, &board.pdos[2]}, {2, &board.pdos[1]}}));
  EXPECT_EQ(tpdos_of(board), (PdosByNumber{{1, board.pdos.data()}}));
}

struct DummyCase {
  std::string name;
  std::uint16_t index;
  bool carries_object;
};

void PrintTo(const DummyCase& row, std::ostream* out) { *out << row.name; }

class PdoDummyTest : public testing::TestWithParam<DummyCase> {};

TEST_P(PdoDummyTest, is_an_index_from_1_to_7) {
  const PdoMapping mapping{GetParam().index, 0, 8, ""};

  EXPECT_EQ(carries_object(mapping), GetParam().carries_object);
  EXPECT_EQ(unpack_frame({mapping}, {0x21}).size(), GetParam().carries_object ? 1U : 0U);
  EXPECT_EQ(node_objects(5, {{{1, "RPDO", 0, {mapping}}}, {}}).find(mapping.index, 0) != nullptr,
            GetParam().carries_object);
}

INSTANTIATE_TEST_SUITE_P(
    all, PdoDummyTest,
    testing::Values(DummyCase{"index_0", 0x0000, true}, DummyCase{"boolean", 0x0001, false},
                    DummyCase{"unsigned32", 0x0007, false}, DummyCase{"real32", 0x0008, true},
                    DummyCase{"mode_of_base_fff0", 0x0010, true},
                    DummyCase{"last_below_0020", 0x001F, true},
                    DummyCase{"index_0020", 0x0020, true}),
    [](const testing::TestParamInfo<DummyCase>& row) { return row.param.name; });

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
    mappings.push_back({static_cast<std::uint16_t>(dummy ? 1 + random() % 7 : 0x2000),
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
    if (mapping.index == 0x2000) {
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

struct PackCase {
  std::string name;
  Mappings mappings;
  std::vector<FieldValue> fields;
  Frame expected;
};

void PrintTo(const PackCase& row, std::ostream* out) { *out << row.name; }

class PackTest : public testing::TestWithParam<PackCase> {};

TEST_P(PackTest, fills_the_frame) {
  EXPECT_EQ(pack_frame(GetParam().mappings, GetParam().fields), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, PackTest,
    testing::Values(
        PackCase{"nothing_mapped", {}, {{0x2000, 1, {0xFF}}}, {}},
        PackCase{
            "whole_bytes",
            {{0x6041, 0, 16, ""}, {0x6061, 0, 8, ""}, {0x6064, 0, 32, ""}},
            {{0x6041, 0, {0x21, 0x43}}, {0x6061, 0, {0x65}}, {0x6064, 0, {0x87, 0xA9, 0xCB, 0xED}}},
            {0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB, 0xED}},
        PackCase{"half_bytes",
                 {{0x2000, 1, 4, ""}, {0x2000, 2, 12, ""}},
                 {{0x2000, 1, {0x01}}, {0x2000, 2, {0x32, 0x04}}},
                 {0x21, 0x43}},
        PackCase{"long_values_lose_their_high_bits",
                 {{0x2000, 1, 4, ""}, {0x2000, 2, 8, ""}},
                 {{0x2000, 1, {0xF1, 0xFF}}, {0x2000, 2, Bytes(20, 0x32)}},
                 {0x21, 0x03}},
        PackCase{"short_values_are_filled_up",
                 {{0x2000, 1, 16, ""}, {0x2000, 2, 8, ""}, {0x2000, 3, 8, ""}},
                 {{0x2000, 1, {0x21}}, {0x2000, 2, {}}, {0x2000, 3, {0x43}}},
                 {0x21, 0x00, 0x00, 0x43}},
        PackCase{"dummies_are_clear",
                 {{0x0005, 0, 8, ""}, {0x2000, 1, 8, ""}, {0x2000, 2, 0, ""}, {0x2000, 3, 8, ""}},
                 {{0x2000, 1, {0x21}}, {0x2000, 3, {0x43}}},
                 {0x00, 0x21, 0x43}},
        PackCase{"missing_values_are_clear",
                 {{0x2000, 1, 8, ""}, {0x2000, 2, 8, ""}},
                 {{0x2000, 1, {0x21}}},
                 {0x21}},
        PackCase{"all_bits_at_once",
                 {{0x2000, 1, 64, ""}},
                 {{0x2000, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9}}},
                 {1, 2, 3, 4, 5, 6, 7, 8}},
        PackCase{"beyond_the_frame",
                 {{0x2000, 1, 60, ""}, {0x2000, 2, 8, ""}, {0x2000, 3, 8, ""}},
                 {{0x2000, 1, Bytes(8, 0)}, {0x2000, 2, {0xFF}}, {0x2000, 3, {0xFF}}},
                 {0, 0, 0, 0, 0, 0, 0, 0xF0}},
        PackCase{"longer_than_the_frame",
                 {{0x2000, 1, 200, ""}, {0x2000, 2, 8, ""}},
                 {{0x2000, 1, {1}}, {0x2000, 2, {0xFF}}},
                 {1}}),
    [](const testing::TestParamInfo<PackCase>& row) { return row.param.name; });

/// The frame without the bits that no object is mapped to.
Frame without_unmapped_bits(const Mappings& mappings, const Frame& frame) {
  Frame mapped{};
  std::size_t offset = 0;
  for (const PdoMapping& mapping : mappings) {
    for (std::size_t bit = offset; bit < offset + mapping.bit_length; ++bit) {
      const unsigned mask = mapping.index == 0x2000 ? 1U << (bit % 8) : 0U;
      mapped.at(bit / 8) =
          static_cast<std::uint8_t>(mapped.at(bit / 8) | (frame.at(bit / 8) & mask));
    }
    offset += mapping.bit_length;
  }
  return mapped;
}

TEST(PackRandomTest, undoes_unpacking) {
  const std::uint32_t seed = chosen_seed();
  SCOPED_TRACE(
      "repeat with: simulator_tests --gtest_filter=PackRandomTest.* "
      "--gtest_random_seed=" +
      std::to_string(seed));
  std::mt19937 random(seed);
  std::size_t compared = 0;

  for (int round = 0; round < 5000; ++round) {
    const Mappings mappings = random_mappings(random);
    Frame frame{};
    std::generate(frame.begin(), frame.end(),
                  [&] { return static_cast<std::uint8_t>(random() & 0xFFU); });
    const std::vector<FieldValue> fields = unpack_frame(mappings, frame);

    const Frame packed = pack_frame(mappings, fields);

    ASSERT_EQ(packed, without_unmapped_bits(mappings, frame)) << "round " << round;
    ASSERT_EQ(unpack_frame(mappings, packed), fields) << "round " << round;
    compared += fields.size();
  }
  EXPECT_GT(compared, 5000U) << "the random mappings were nearly all empty";
}

}  // namespace
}  // namespace velmora_can_bridge
