#include "bit_patch/single_byte_field.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace velmora_can_bridge {
namespace {

PdoMapping mapping(std::string field, std::uint8_t bit_length) {
  return {0x2000, 1, bit_length, std::move(field)};
}

TEST(FindSingleByteField, eight_to_fifteen_bits_are_a_single_byte) {
  for (unsigned bits = 0; bits <= 255; ++bits) {
    SCOPED_TRACE(bits);
    const BoardConfig board{{{1, "RPDO", 0, {mapping("a", static_cast<std::uint8_t>(bits))}}}, {}};
    const auto field = find_single_byte_field(board, board.pdos[0], "a");
    ASSERT_EQ(field.has_value(), bits >= 8 && bits <= 15);
    ASSERT_EQ(find_single_byte_mapping(board.pdos[0], "a") != nullptr, field.has_value());
    if (field) {
      ASSERT_EQ(field->mapping, &board.pdos[0].mappings.front());
      ASSERT_EQ(field->offset, 0U);
    }
  }
}

TEST(FindSingleByteField, every_byte_of_the_frame_and_none_behind_it) {
  for (std::size_t before = 0; before <= 300; ++before) {
    SCOPED_TRACE(before);
    BoardConfig board{{{1, "RPDO", 0, std::vector<PdoMapping>(before, mapping("pad", 8))}}, {}};
    board.pdos[0].mappings.push_back(mapping("a", 8));
    const auto field = find_single_byte_field(board, board.pdos[0], "a");
    ASSERT_EQ(field.has_value(), before < 8);
    ASSERT_EQ(find_single_byte_mapping(board.pdos[0], "a"), &board.pdos[0].mappings.back());
    if (field) {
      ASSERT_EQ(field->offset, before);
    }
  }
}

TEST(FindSingleByteField, first_of_that_name_counts) {
  const BoardConfig board{
      {{1, "RPDO", 0, {mapping("wide", 16), mapping("a", 8), mapping("a", 8), mapping("wide", 8)}}},
      {}};
  const auto field = find_single_byte_field(board, board.pdos[0], "a");
  ASSERT_TRUE(field.has_value());
  EXPECT_EQ(field->mapping, &board.pdos[0].mappings[1]);
  EXPECT_EQ(field->offset, 2U);
  EXPECT_FALSE(find_single_byte_field(board, board.pdos[0], "wide").has_value());
}

TEST(FindSingleByteField, name_that_is_not_mapped_has_none) {
  const BoardConfig board{{{1, "RPDO", 0, {mapping("a", 8)}}, {1, "RPDO", 0, {mapping("late", 8)}}},
                          {}};
  for (const char* name : {"", "A", "aa", "late"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(find_single_byte_field(board, board.pdos[0], name).has_value());
  }
}

TEST(MergeBits, each_bit_comes_from_the_side_that_the_mask_says) {
  for (unsigned mask = 0; mask <= 0xFF; ++mask) {
    for (unsigned value = 0; value <= 0xFF; ++value) {
      for (const unsigned current : {0x00U, 0xFFU, 0x5AU}) {
        unsigned expected = 0;
        for (unsigned bit = 1; bit <= 0x80; bit <<= 1) {
          expected |= ((mask & bit) != 0 ? value : current) & bit;
        }
        ASSERT_EQ(merge_bits(static_cast<std::uint8_t>(current), static_cast<std::uint8_t>(mask),
                             static_cast<std::uint8_t>(value)),
                  expected)
            << "current " << current << ", mask " << mask << ", value " << value;
      }
    }
  }
}

}  // namespace
}  // namespace velmora_can_bridge
