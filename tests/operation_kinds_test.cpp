#include "velmora_can_bridge/operation_kinds.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ground/kind_tables.hpp"

namespace velmora_can_bridge {
namespace {

TEST(OperationKinds, stand_once_each) {
  std::set<std::string_view> kinds;
  for (const OperationKind& row : operation_kinds) {
    EXPECT_TRUE(kinds.insert(row.kind).second) << row.kind;
  }
}

TEST(OperationKinds, read_what_they_require) {
  for (const OperationKind& row : operation_kinds) {
    for (const std::string_view member : row.required) {
      EXPECT_TRUE(row.members.contains(member)) << row.kind << ": " << member;
    }
  }
}

TEST(OperationKinds, are_found_by_name) {
  for (const OperationKind& row : operation_kinds) {
    EXPECT_EQ(find_operation_kind(row.kind), &row) << row.kind;
  }
}

TEST(OperationKinds, are_compared_byte_for_byte) {
  for (const char* kind : {"", "SDO_READ", "sdo_read ", "sdo_rea"}) {
    EXPECT_EQ(find_operation_kind(kind), nullptr) << kind;
  }
}

TEST(MemberNames, hold_what_they_are_given_in_its_order) {
  static constexpr MemberNames none{};
  static constexpr MemberNames three{"c", "a", "b"};
  EXPECT_EQ(none.begin(), none.end());
  EXPECT_EQ(std::vector<std::string_view>(three.begin(), three.end()),
            (std::vector<std::string_view>{"c", "a", "b"}));
}

TEST(MemberNames, contain_whole_names_alone) {
  static constexpr MemberNames names{"index", "field"};
  EXPECT_TRUE(names.contains("index"));
  EXPECT_TRUE(names.contains("field"));
  for (const char* name : {"", "inde", "index_", "fields"}) {
    EXPECT_FALSE(names.contains(name)) << name;
  }
}

struct KindRow {
  std::string_view kind;
};

constexpr KindRow three_kinds[] = {{"a"}, {"b"}, {"c"}};

TEST(HasRowsFor, is_true_in_any_order_and_for_a_part) {
  constexpr KindRow turned[] = {{"c"}, {"a"}, {"b"}};
  constexpr KindRow part[] = {{"b"}};
  EXPECT_TRUE(has_rows_for(turned, three_kinds));
  EXPECT_TRUE(has_rows_for(three_kinds, turned));
  EXPECT_TRUE(has_rows_for(three_kinds, part));
}

TEST(HasRowsFor, is_false_when_any_kind_is_missing) {
  constexpr KindRow missing[][2] = {{{"b"}, {"c"}}, {{"a"}, {"c"}}, {{"a"}, {"b"}}};
  for (const auto& rows : missing) {
    EXPECT_FALSE(has_rows_for(rows, three_kinds));
  }
}

TEST(MemberNames, made_at_run_time_hold_the_names_in_their_order) {
  const std::string first = "index";
  const MemberNames names{first, "fields"};
  EXPECT_EQ(std::vector<std::string_view>(names.begin(), names.end()),
            (std::vector<std::string_view>{"index", "fields"}));
  EXPECT_TRUE(names.contains("fields"));
  EXPECT_FALSE(names.contains("field"));
}

}  // namespace
}  // namespace velmora_can_bridge
