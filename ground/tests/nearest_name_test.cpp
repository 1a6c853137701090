#include "ground/nearest_name.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace velmora_can_bridge {
namespace {

TEST(LowerCase, changes_the_letters_of_ascii_alone) {
  EXPECT_EQ(in_lower_case("SDO az AZ @[ 09"), "sdo az az @[ 09");
  EXPECT_EQ(in_lower_case("\xC3\x84"), "\xC3\x84");
}

TEST(EditDistance, counts_added_removed_replaced_and_exchanged_characters) {
  EXPECT_EQ(edit_distance("", ""), 0U);
  EXPECT_EQ(edit_distance("index", "index"), 0U);
  EXPECT_EQ(edit_distance("indx", "index"), 1U);
  EXPECT_EQ(edit_distance("indexx", "index"), 1U);
  EXPECT_EQ(edit_distance("indax", "index"), 1U);
  EXPECT_EQ(edit_distance("idnex", "index"), 1U);
  EXPECT_EQ(edit_distance("idxen", "index"), 3U);
  EXPECT_EQ(edit_distance("abc", ""), 3U);
}

struct NearestRow {
  std::string name;
  std::string typed;
  std::string nearest;
};

void PrintTo(const NearestRow& row, std::ostream* out) { *out << row.name; }

class NearestName : public testing::TestWithParam<NearestRow> {};

TEST_P(NearestName, of) {
  const std::vector<std::string_view> candidates = {"index", "field", "fields", "ab"};
  EXPECT_EQ(nearest_name(GetParam().typed, candidates), GetParam().nearest);
}

INSTANTIATE_TEST_SUITE_P(names, NearestName,
                         testing::Values(NearestRow{"the_name_itself", "index", "index"},
                                         NearestRow{"one_change", "indx", "index"},
                                         NearestRow{"two_changes", "inexx", "index"},
                                         NearestRow{"exchanged_letters", "idnex", "index"},
                                         NearestRow{"three_changes", "idxen", ""},
                                         NearestRow{"nearest_of_two", "fieldz", "field"},
                                         NearestRow{"half_of_a_short_name", "xb", ""},
                                         NearestRow{"nothing", "", ""},
                                         NearestRow{"far_too_long", std::string(41, 'i'), ""}),
                         [](const auto& row) { return row.param.name; });

TEST(NearestName, needs_candidates) { EXPECT_EQ(nearest_name("index", {}), ""); }

TEST(Enumeration, has_an_or_before_the_last) {
  EXPECT_EQ(enumeration({}), "");
  EXPECT_EQ(enumeration({"a"}), "a");
  EXPECT_EQ(enumeration({"a", "b"}), "a or b");
  EXPECT_EQ(enumeration({"a", "b", "c"}), "a, b or c");
}

}  // namespace
}  // namespace velmora_can_bridge
