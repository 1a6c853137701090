#include "dispatch/lookups.hpp"

#include <gtest/gtest.h>

#include "support/allocations.hpp"
#include "support/controller_test.hpp"

namespace velmora_can_bridge {
namespace {

PdoMapping field_mapping(std::string field, std::uint8_t bit_length) {
  return {0x2000, 1, bit_length, std::move(field)};
}

using FindDeviceOd = ControllerTest;

TEST_F(FindDeviceOd, answers_the_stored_entry_itself) {
  board.device_od_map = {{"led", {"io", 0x2000, 0}}, {"claw", {"claw", 0x7040, 0x2100}}};
  EXPECT_EQ(controller.find_device_od("claw"), &board.device_od_map.at("claw"));
}

TEST_F(FindDeviceOd, name_that_differs_in_letter_case_is_absent) {
  board.device_od_map = {{"led", {"io", 0x2000, 0}}};
  EXPECT_EQ(controller.find_device_od("LED"), nullptr);
}

TEST_F(FindDeviceOd, compares_the_whole_name) {
  board.device_od_map = {{"led", {"io", 0x2000, 0}}};
  EXPECT_EQ(controller.find_device_od("le"), nullptr);
  EXPECT_EQ(controller.find_device_od("led2"), nullptr);
  EXPECT_EQ(controller.find_device_od(""), nullptr);
}

TEST(FindPdo, skips_a_pdo_of_another_direction) {
  const BoardConfig board{{{1, "TPDO", 0, {}}, {1, "RPDO", 0, {}}}, {}};
  EXPECT_EQ(find_pdo(board, 1, "RPDO"), &board.pdos[1]);
}

TEST(FindPdo, earlier_of_two_equal_ones_wins) {
  const BoardConfig board{{{2, "RPDO", 0, {}}, {1, "RPDO", 0, {}}, {1, "RPDO", 0, {}}}, {}};
  EXPECT_EQ(find_pdo(board, 1, "RPDO"), &board.pdos[1]);
}

TEST(FindPdo, no_match_is_null) {
  const BoardConfig board{{{1, "RPDO", 0, {}}, {2, "rpdo", 0, {}}, {2, "RPDO ", 0, {}}}, {}};
  EXPECT_EQ(find_pdo(board, 2, "RPDO"), nullptr);
  EXPECT_EQ(find_pdo(BoardConfig{}, 1, "RPDO"), nullptr);
}

TEST(FindMappingByField, first_of_that_exact_name_wins) {
  const PdoConfig pdo{
      1, "RPDO", 0, {field_mapping("A", 8), field_mapping("a", 8), field_mapping("a", 16)}};
  EXPECT_EQ(find_mapping_by_field(pdo, "a"), &pdo.mappings[1]);
}

TEST(FindMappingByField, empty_name_matches_an_empty_field) {
  const PdoConfig pdo{1, "RPDO", 0, {field_mapping("a", 8), field_mapping("", 8)}};
  EXPECT_EQ(find_mapping_by_field(pdo, ""), &pdo.mappings[1]);
}

TEST(FindMappingByField, no_match_is_null) {
  const PdoConfig pdo{1, "RPDO", 0, {field_mapping("a", 8)}};
  EXPECT_EQ(find_mapping_by_field(pdo, "b"), nullptr);
  EXPECT_EQ(find_mapping_by_field(pdo, ""), nullptr);
}

TEST(FieldByteOffset, counts_the_bytes_of_the_mappings_before) {
  const BoardConfig board{
      {{1, "RPDO", 0, {field_mapping("a", 16), field_mapping("b", 8), field_mapping("c", 32)}}},
      {}};
  EXPECT_EQ(field_byte_offset(board, 1, "a"), 0U);
  EXPECT_EQ(field_byte_offset(board, 1, "b"), 2U);
  EXPECT_EQ(field_byte_offset(board, 1, "c"), 3U);
  EXPECT_EQ(field_byte_offset(board, 1, "d"), std::nullopt);
}

TEST(FieldByteOffset, counts_whole_bytes_only) {
  const BoardConfig board{{{1,
                            "RPDO",
                            0,
                            {field_mapping("bit", 1), field_mapping("seven", 7),
                             field_mapping("twelve", 12), field_mapping("x", 8)}}},
                          {}};
  EXPECT_EQ(field_byte_offset(board, 1, "seven"), 0U);
  EXPECT_EQ(field_byte_offset(board, 1, "twelve"), 0U);
  EXPECT_EQ(field_byte_offset(board, 1, "x"), 1U);
}

TEST(FieldByteOffset, ignores_a_pdo_of_another_direction_or_number) {
  const BoardConfig board{{{1, "TPDO", 0, {field_mapping("pad", 8), field_mapping("a", 8)}},
                           {2, "RPDO", 0, {field_mapping("a", 8)}}},
                          {}};
  EXPECT_EQ(field_byte_offset(board, 1, "a"), std::nullopt);
}

TEST(FieldByteOffset, counts_again_from_0_in_the_next_pdo_of_the_number) {
  const BoardConfig board{{{1, "RPDO", 0, {field_mapping("pad", 32)}},
                           {1, "RPDO", 0, {field_mapping("first", 8), field_mapping("a", 8)}}},
                          {}};
  EXPECT_EQ(field_byte_offset(board, 1, "a"), 1U);
}

TEST(FieldByteOffset, may_lie_beyond_the_frame) {
  BoardConfig board{{{1, "RPDO", 0, {}}}, {}};
  for (int count = 0; count < 100; ++count) {
    board.pdos[0].mappings.push_back(field_mapping("pad", 255));
  }
  board.pdos[0].mappings.push_back(field_mapping("a", 8));
  EXPECT_EQ(field_byte_offset(board, 1, "a"), 3100U);
}

TEST(Contains, any_equal_element_counts) {
  EXPECT_TRUE(contains({1, 2, 3}, 3));
  EXPECT_FALSE(contains({1, 2, 3}, 4));
  EXPECT_FALSE(contains({}, 0));
}

using Lookups = ControllerTest;

TEST_F(Lookups, allocate_nothing) {
  // Longer than a string keeps in itself, so that a copy would be seen.
  const std::string name(100, 'n');
  board = {
      {{1, "TPDO", 0, {}}, {1, "RPDO", 0, {field_mapping(name + "x", 8), field_mapping(name, 8)}}},
      {{name, {"io", 0x2000, 0}}}};
  const std::vector<std::uint8_t> bytes{1, 2, 3};

  const std::size_t before = allocations();
  const bool found = controller.find_device_od(name) != nullptr &&
                     find_pdo(board, 1, "RPDO") == &board.pdos[1] &&
                     find_mapping_by_field(board.pdos[1], name) != nullptr &&
                     field_byte_offset(board, 1, name) == 1U && contains(bytes, 3) &&
                     controller.find_rpdo_for_od(0x2000) == 1;
  const std::size_t after = allocations();

  EXPECT_TRUE(found);
  EXPECT_EQ(after - before, 0U);
}

TEST(Allocations, are_counted) {
  const std::size_t before = allocations();
  const std::string text(100, 'n');
  EXPECT_EQ(allocations() - before, 1U);
  EXPECT_EQ(text.size(), 100U);
}

}  // namespace
}  // namespace velmora_can_bridge
