#include "problem_list.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "problem_texts.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(ProblemList, is_in_the_order_of_the_file) {
  ProblemList problems;
  problems.error({2, 1}, "c");
  problems.warning({1, 9}, "b");
  problems.error({2, 1}, "d");
  problems.error({}, "a");
  EXPECT_THAT(texts_of(problems.take()),
              ElementsAre("error: a", "1:9: warning: b", "2:1: error: c", "2:1: error: d"));
}

TEST(ProblemList, keeps_a_repeated_problem_once) {
  ProblemList problems;
  problems.error({1, 1}, "a");
  problems.error({1, 1}, "a");
  problems.warning({1, 1}, "a");
  EXPECT_THAT(texts_of(problems.take()), ElementsAre("1:1: error: a", "1:1: warning: a"));
}

TEST(ProblemList, is_empty_after_take) {
  ProblemList problems;
  problems.error({1, 1}, "a");
  problems.take();
  EXPECT_FALSE(problems.has_errors());
  EXPECT_THAT(problems.take(), IsEmpty());
}

TEST(ProblemList, has_no_errors_with_warnings_alone) {
  ProblemList problems;
  problems.warning({1, 1}, "a");
  EXPECT_FALSE(problems.has_errors());
}

class FullProblemList : public testing::Test {
 protected:
  void add_errors(std::size_t count) {
    for (std::size_t line = 1; line <= count; ++line) {
      problems.error({line, 1}, "wrong");
    }
  }
  void add_warnings(std::size_t count) {
    for (std::size_t line = 1; line <= count; ++line) {
      problems.warning({line, 1}, "odd");
    }
  }

  ProblemList problems;
};

TEST_F(FullProblemList, lists_a_hundred_of_each_severity) {
  add_errors(100);
  add_warnings(100);
  EXPECT_THAT(problems.take(), SizeIs(200));
}

TEST_F(FullProblemList, tells_how_many_errors_are_missing) {
  add_errors(103);
  const Texts texts = texts_of(problems.take());
  ASSERT_THAT(texts, SizeIs(101));
  EXPECT_EQ(texts.back(),
            "error: too many problems: 3 more errors and 0 more warnings are not listed");
}

TEST_F(FullProblemList, warns_of_missing_warnings) {
  add_warnings(101);
  const Texts texts = texts_of(problems.take());
  ASSERT_THAT(texts, SizeIs(101));
  EXPECT_EQ(texts.back(),
            "warning: too many problems: 0 more errors and 1 more warnings are not listed");
}

TEST_F(FullProblemList, tells_missing_errors_and_as_many_missing_warnings) {
  add_errors(102);
  add_warnings(102);
  const Texts texts = texts_of(problems.take());
  ASSERT_THAT(texts, SizeIs(201));
  EXPECT_EQ(texts.back(),
            "error: too many problems: 2 more errors and 2 more warnings are not listed");
}

TEST_F(FullProblemList, tells_nothing_missing_after_take) {
  add_errors(102);
  add_warnings(102);
  problems.take();
  EXPECT_THAT(problems.take(), IsEmpty());
}

TEST_F(FullProblemList, has_room_for_an_error_after_many_warnings) {
  add_warnings(1000);
  add_errors(1);
  EXPECT_TRUE(problems.has_errors());
  EXPECT_EQ(texts_of(problems.take()).front(), "1:1: warning: odd");
}

}  // namespace
}  // namespace velmora_can_bridge
