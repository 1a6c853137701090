#include "shadow/rpdo_layout.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

namespace velmora_can_bridge {
namespace {

bool operator==(const FieldPlace& left, const FieldPlace& right) {
  return left.offset == right.offset && left.length == right.length;
}

void PrintTo(const FieldPlace& place, std::ostream* out) {
  *out << place.length << " bytes at " << place.offset;
}

constexpr FieldPlace no_byte{};

PdoMapping mapping(std::uint8_t bit_length, std::string field = "", std::uint16_t index = 0x2000,
                   std::uint8_t sub_index = 1) {
  return {index, sub_index, bit_length, std::move(field)};
}

TEST(PlaceAt, every_offset_and_width_owns_the_whole_bytes_inside_the_frame) {
  for (std::size_t offset = 0; offset <= 40; ++offset) {
    for (unsigned bits = 0; bits <= 255; ++bits) {
      SCOPED_TRACE(testing::Message() << bits << " bits at byte " << offset);
      std::size_t owned = 0;
      for (std::size_t byte = offset; byte < offset + bits / 8; ++byte) {
        owned += byte < 8 ? 1 : 0;
      }
      const FieldPlace place = place_at(offset, mapping(static_cast<std::uint8_t>(bits)));
      ASSERT_EQ(place.length, owned);
      ASSERT_LE(place.offset + place.length, 8U);
      if (owned > 0) {
        ASSERT_EQ(place.offset, offset);
      }
    }
  }
}

TEST(ForEachField, visits_every_mapping_in_order_with_its_place) {
  const PdoConfig pdo{
      1, "RPDO", 0, {mapping(16), mapping(4), mapping(12), mapping(48), mapping(8), mapping(8)}};
  std::vector<const PdoMapping*> visited;
  std::vector<FieldPlace> places;
  const bool all = for_each_field(pdo, [&](const PdoMapping& visited_mapping, FieldPlace place) {
    visited.push_back(&visited_mapping);
    places.push_back(place);
    return true;
  });
  EXPECT_TRUE(all);
  ASSERT_EQ(visited.size(), 6U);
  for (std::size_t position = 0; position < visited.size(); ++position) {
    EXPECT_EQ(visited[position], &pdo.mappings[position]);
  }
  EXPECT_EQ(places, (std::vector<FieldPlace>{{0, 2}, {2, 0}, {2, 1}, {3, 5}, {8, 0}, {8, 0}}));
}

TEST(ForEachField, stops_where_the_visit_says_so) {
  const PdoConfig pdo{1, "RPDO", 0, {mapping(8), mapping(8), mapping(8)}};
  int visits = 0;
  EXPECT_FALSE(for_each_field(pdo, [&](const PdoMapping&, FieldPlace place) {
    ++visits;
    return place.offset != 1;
  }));
  EXPECT_EQ(visits, 2);
}

TEST(ForEachField, pdo_without_mappings_is_done_at_once) {
  EXPECT_TRUE(for_each_field(PdoConfig{1, "RPDO", 0, {}},
                             [](const PdoMapping&, FieldPlace) { return false; }));
}

TEST(PlaceOf, equal_elements_have_places_of_their_own) {
  const BoardConfig board{{{1, "RPDO", 0, {mapping(8, "a"), mapping(8, "a"), mapping(8, "a")}}},
                          {}};
  const auto& mappings = board.pdos[0].mappings;
  EXPECT_EQ(place_of(board, 1, mappings[0]), (FieldPlace{0, 1}));
  EXPECT_EQ(place_of(board, 1, mappings[1]), (FieldPlace{1, 1}));
  EXPECT_EQ(place_of(board, 1, mappings[2]), (FieldPlace{2, 1}));
}

TEST(PlaceOf, counts_again_from_0_in_the_next_entry_of_the_number) {
  const BoardConfig board{{{1, "RPDO", 0, {mapping(32)}},
                           {2, "RPDO", 0, {mapping(8), mapping(8)}},
                           {1, "RPDO", 0, {mapping(8), mapping(16, "wanted")}}},
                          {}};
  EXPECT_EQ(place_of(board, 1, board.pdos[2].mappings[1]), (FieldPlace{1, 2}));
}

TEST(PlaceOf, copy_of_an_element_owns_no_byte) {
  const BoardConfig board{{{1, "RPDO", 0, {mapping(8, "a")}}}, {}};
  const PdoMapping copy = board.pdos[0].mappings[0];
  EXPECT_EQ(place_of(board, 1, copy), no_byte);
}

TEST(PlaceOf, element_of_another_number_or_direction_owns_no_byte) {
  const BoardConfig board{{{2, "RPDO", 0, {mapping(8)}}, {1, "TPDO", 0, {mapping(8)}}}, {}};
  EXPECT_EQ(place_of(board, 1, board.pdos[0].mappings[0]), no_byte);
  EXPECT_EQ(place_of(board, 1, board.pdos[1].mappings[0]), no_byte);
}

struct LengthRow {
  const char* name;
  std::vector<std::uint8_t> bit_lengths;
  std::uint8_t length;
};

void PrintTo(const LengthRow& row, std::ostream* out) { *out << row.name; }

class MappedLength : public testing::TestWithParam<LengthRow> {};

TEST_P(MappedLength, is_the_sum_of_all_bits_rounded_up_to_bytes) {
  BoardConfig board{{{1, "RPDO", 0, {}}}, {}};
  for (const std::uint8_t bits : GetParam().bit_lengths) {
    board.pdos[0].mappings.push_back(mapping(bits));
  }
  EXPECT_EQ(mapped_length(board, 1), GetParam().length);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MappedLength,
    testing::Values(LengthRow{"no_mapping", {}, 0}, LengthRow{"no_bit", {0, 0}, 0},
                    LengthRow{"one_bit", {1}, 1}, LengthRow{"one_byte", {8}, 1},
                    LengthRow{"nine_bits", {9}, 2}, LengthRow{"two_parts_of_a_byte", {1, 7}, 1},
                    LengthRow{"rounded_once_not_per_mapping", {12, 12}, 3},
                    LengthRow{"fifty_seven_bits", {32, 25}, 8},
                    LengthRow{"full_frame", {32, 32}, 8}, LengthRow{"one_bit_too_many", {64, 1}, 8},
                    LengthRow{"three_hundred_wide_mappings", std::vector<std::uint8_t>(300, 255),
                              8}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(MappedLengthOfSeveralEntries, longest_of_the_number_counts) {
  const BoardConfig board{{{1, "RPDO", 0, {mapping(8)}},
                           {1, "RPDO", 0, {mapping(24)}},
                           {1, "RPDO", 0, {mapping(16)}},
                           {1, "TPDO", 0, {mapping(64)}},
                           {2, "RPDO", 0, {mapping(48)}}},
                          {}};
  EXPECT_EQ(mapped_length(board, 1), 3);
  EXPECT_EQ(mapped_length(board, 3), 0);
}

}  // namespace
}  // namespace velmora_can_bridge
