#include "velmora_can_bridge/expected.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace velmora_can_bridge {
namespace {

Expected<int> half(int number) {
  if (number % 2 != 0) {
    return Unexpected{"odd"};
  }
  return number / 2;
}

TEST(ExpectedTest, holds_the_value) {
  const Expected<int> four = half(8);
  ASSERT_TRUE(four);
  EXPECT_TRUE(four.has_value());
  EXPECT_EQ(*four, 4);
}

TEST(ExpectedTest, holds_why_there_is_none) {
  const Expected<int> none = half(7);
  ASSERT_FALSE(none);
  EXPECT_FALSE(none.has_value());
  EXPECT_EQ(none.error(), "odd");
}

TEST(ExpectedTest, tells_value_and_error_of_one_type_apart) {
  EXPECT_TRUE((Expected<std::string>(std::string("text"))));
  EXPECT_FALSE((Expected<std::string>(Unexpected{"text"})));
}

TEST(ExpectedTest, value_that_cannot_be_copied_moves_through) {
  Expected<std::unique_ptr<int>> held = std::make_unique<int>(3);
  EXPECT_EQ(**held, 3);
  EXPECT_EQ(*std::move(*held), 3);
}

TEST(ExpectedTest, members_of_the_value_are_reached) {
  Expected<std::string> text = std::string("ab");
  text->push_back('c');
  EXPECT_EQ(std::as_const(text)->size(), 3U);
}

TEST(ExpectedTest, is_equal_to_an_equal_value_or_an_equal_error) {
  EXPECT_TRUE(half(8) == half(8));
  EXPECT_FALSE(half(8) == half(6));
  EXPECT_TRUE(half(7) == half(9));
  EXPECT_TRUE(half(8) != half(7));
  EXPECT_FALSE(half(7) != half(7));
  EXPECT_FALSE((Expected<std::string>("odd") == Expected<std::string>(Unexpected{"odd"})));
}

TEST(ExpectedTest, what_is_not_there_throws) {
  EXPECT_THROW(*half(7), std::bad_variant_access);
  EXPECT_THROW(static_cast<void>(half(8).error()), std::bad_variant_access);
}

}  // namespace
}  // namespace velmora_can_bridge
