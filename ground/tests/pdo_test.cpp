#include "ground/pdo.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace velmora_can_bridge {
namespace {

using Mappings = std::vector<PdoMapping>;

TEST(PdoDirectionTest, only_the_exact_text_is_received) {
  EXPECT_TRUE(is_rpdo({1, "RPDO", 0, {}}));
  for (const char* other : {"TPDO", "rpdo", "RPDO ", " RPDO", "RPD", ""}) {
    EXPECT_FALSE(is_rpdo({1, other, 0, {}})) << other;
  }
}

TEST(PdoDirectionTest, only_the_exact_text_is_sent) {
  EXPECT_TRUE(is_tpdo({1, "TPDO", 0, {}}));
  for (const char* other : {"RPDO", "tpdo", "TPDO ", " TPDO", "TPD", ""}) {
    EXPECT_FALSE(is_tpdo({1, other, 0, {}})) << other;
  }
}

TEST(PdoDirectionTest, what_is_no_rpdo_counts_as_a_tpdo) {
  EXPECT_EQ(direction_of({1, "RPDO", 0, {}}), PdoDirection::rpdo);
  EXPECT_EQ(direction_of({1, "TPDO", 0, {}}), PdoDirection::tpdo);
  EXPECT_EQ(direction_of({1, "", 0, {}}), PdoDirection::tpdo);
}

TEST(PdoText, has_direction_and_number) {
  EXPECT_EQ(pdo_text({3, "RPDO", 0, {}}), "RPDO 3");
  EXPECT_EQ(pdo_text(PdoDirection::tpdo, 255), "TPDO 255");
}

TEST(FindPdoOfDirection, first_of_that_direction_and_number_wins) {
  const BoardConfig board{
      {{1, "TPDO", 0, {}}, {2, "RPDO", 0, {}}, {1, "RPDO", 0, {}}, {1, "RPDO", 0, {}}}, {}};
  EXPECT_EQ(find_pdo(board, PdoDirection::rpdo, 1), &board.pdos[2]);
  EXPECT_EQ(find_pdo(board, PdoDirection::tpdo, 1), board.pdos.data());
  EXPECT_EQ(find_pdo(board, PdoDirection::tpdo, 2), nullptr);
}

struct CobIdCase {
  std::string name;
  std::uint8_t node_id;
  std::uint8_t number;
  std::uint16_t cob_id;
  std::uint16_t received;
  std::uint16_t sent;
};

void PrintTo(const CobIdCase& row, std::ostream* out) { *out << row.name; }

class PdoCobIdTest : public testing::TestWithParam<CobIdCase> {};

TEST_P(PdoCobIdTest, is_the_boards_or_the_predefined_one) {
  const CobIdCase& row = GetParam();

  EXPECT_EQ(cob_id_of(row.node_id, {row.number, "RPDO", row.cob_id, {}}), row.received);
  EXPECT_EQ(cob_id_of(row.node_id, {row.number, "TPDO", row.cob_id, {}}), row.sent);
}

INSTANTIATE_TEST_SUITE_P(all, PdoCobIdTest,
                         testing::Values(CobIdCase{"predefined_1", 5, 1, 0, 0x205, 0x185},
                                         CobIdCase{"predefined_4", 127, 4, 0, 0x57F, 0x4FF},
                                         CobIdCase{"number_5_has_none", 5, 5, 0, 0, 0},
                                         CobIdCase{"number_0_has_none", 5, 0, 0, 0, 0},
                                         CobIdCase{"node_0_has_none", 0, 1, 0, 0, 0},
                                         CobIdCase{"node_128_has_none", 128, 1, 0, 0, 0},
                                         CobIdCase{"of_the_board", 5, 9, 0x321, 0x321, 0x321},
                                         CobIdCase{"highest", 5, 1, 0x7FF, 0x7FF, 0x7FF},
                                         CobIdCase{"too_high", 5, 1, 0x800, 0, 0}),
                         [](const testing::TestParamInfo<CobIdCase>& row) {
                           return row.param.name;
                         });

TEST(PredefinedPdo, is_found_by_its_cob_id_and_no_other) {
  std::set<std::uint16_t> found;
  for (std::uint16_t cob_id = 0; cob_id <= highest_can_id; ++cob_id) {
    const auto pdo = predefined_pdo(5, cob_id);
    if (pdo) {
      found.insert(cob_id);
      EXPECT_EQ(predefined_cob_id(5, pdo->direction, pdo->number), cob_id);
    }
  }
  EXPECT_EQ(found,
            (std::set<std::uint16_t>{0x185, 0x205, 0x285, 0x305, 0x385, 0x405, 0x485, 0x505}));
  EXPECT_FALSE(predefined_pdo(0, 0x200));
}

TEST(FindMappingByObject, first_of_that_index_and_sub_index_wins) {
  const PdoConfig pdo{
      1,
      "RPDO",
      0,
      {{0x2000, 2, 8, ""}, {0x2001, 1, 8, ""}, {0x2000, 1, 8, "first"}, {0x2000, 1, 16, "second"}}};
  EXPECT_EQ(find_mapping_by_object(pdo, 0x2000, 1), &pdo.mappings[2]);
}

TEST(FindMappingByObject, no_match_is_null) {
  const PdoConfig pdo{1, "RPDO", 0, {{0x2000, 2, 8, ""}, {0x2001, 1, 8, ""}}};
  EXPECT_EQ(find_mapping_by_object(pdo, 0x2000, 1), nullptr);
  EXPECT_EQ(find_mapping_by_object(PdoConfig{1, "RPDO", 0, {}}, 0x2000, 2), nullptr);
}

TEST(FindMappingByObjectInRpdo, goes_on_to_the_next_entry_of_the_number) {
  const BoardConfig board{{{1, "TPDO", 0, {{0x2000, 2, 8, ""}}},
                           {2, "RPDO", 0, {{0x2000, 2, 8, ""}}},
                           {1, "RPDO", 0, {{0x2000, 1, 8, ""}, {0x2001, 2, 8, ""}}},
                           {1, "RPDO", 0, {{0x2000, 2, 8, "a"}, {0x2000, 2, 8, "b"}}}},
                          {}};
  EXPECT_EQ(find_mapping_by_object(board, 1, 0x2000, 2), &board.pdos[3].mappings.front());
}

TEST(FindMappingByObjectInRpdo, no_match_is_null) {
  const BoardConfig board{{{1, "RPDO", 0, {{0x2000, 1, 8, ""}}}}, {}};
  EXPECT_EQ(find_mapping_by_object(board, 1, 0x2000, 0), nullptr);
  EXPECT_EQ(find_mapping_by_object(board, 1, 0x2001, 1), nullptr);
  EXPECT_EQ(find_mapping_by_object(board, 2, 0x2000, 1), nullptr);
}

TEST(ByteLength, is_an_eighth_of_the_bits_rounded_down) {
  for (unsigned bits = 0; bits <= 255; ++bits) {
    EXPECT_EQ(byte_length({0x2000, 1, static_cast<std::uint8_t>(bits), "a"}), bits / 8);
  }
}

TEST(CarriesObject, dummies_and_mappings_without_bits_carry_no_object) {
  EXPECT_FALSE(carries_object({0x0005, 0, 8, ""}));
  EXPECT_TRUE(carries_object({0xFFFF, 255, 1, ""}));
  EXPECT_FALSE(carries_object({0x2000, 1, 0, ""}));
}

struct LengthCase {
  std::string name;
  std::vector<std::uint8_t> bit_lengths;
  std::size_t expected;
};

void PrintTo(const LengthCase& row, std::ostream* out) { *out << row.name; }

class MappedBytesTest : public testing::TestWithParam<LengthCase> {};

TEST_P(MappedBytesTest, rounds_the_sum_of_bits_up) {
  Mappings mappings;
  for (const std::uint8_t bits : GetParam().bit_lengths) {
    mappings.push_back({0x2000, 1, bits, ""});
  }
  EXPECT_EQ(mapped_bytes(mappings), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, MappedBytesTest,
    testing::Values(LengthCase{"nothing_mapped", {}, 0}, LengthCase{"no_bits", {0, 0}, 0},
                    LengthCase{"one_bit", {1}, 1}, LengthCase{"two_half_bytes", {4, 4}, 1},
                    LengthCase{"one_bit_over", {8, 1}, 2}, LengthCase{"full", {32, 16, 16}, 8},
                    LengthCase{"one_bit_too_many", {64, 1}, 9},
                    LengthCase{"far_too_many", {255, 255, 255}, 96}),
    [](const testing::TestParamInfo<LengthCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge
