#include "wrapped_text.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

using Strings = std::vector<std::string>;

TEST(DisplayWidth, counts_characters) {
  EXPECT_EQ(display_width("gr\u00FCn"), 4U);
  EXPECT_EQ(display_width(""), 0U);
}

TEST(WordsOf, stand_between_blanks) {
  EXPECT_EQ(words_of("  one two   three "), (Strings{"one", "two", "three"}));
  EXPECT_EQ(words_of("  "), Strings{});
}

struct WrapRow {
  const char* name;
  Strings words;
  std::size_t width;
  Strings lines;
};

class Wrapped : public testing::TestWithParam<WrapRow> {};

TEST_P(Wrapped, fills_lines_with_words) {
  const WrapRow& row = GetParam();
  EXPECT_EQ(wrapped(row.words, row.width), row.lines);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Wrapped,
    testing::Values(
        WrapRow{"nothing", {}, 5, {""}}, WrapRow{"what_fits_exactly", {"ab", "cd"}, 5, {"ab cd"}},
        WrapRow{"what_does_not_fit", {"ab", "cd"}, 4, {"ab", "cd"}},
        WrapRow{"word_with_a_blank_stays_whole", {"ab", "c d"}, 5, {"ab", "c d"}},
        WrapRow{"word_that_is_too_wide", {"a", "bcdef", "g"}, 3, {"a", "bcd", "ef", "g"}},
        WrapRow{
            "wide_word_of_several_bytes", {"\u00E4\u00F6\u00FC"}, 2, {"\u00E4\u00F6", "\u00FC"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Wrapped, takes_a_text_word_by_word) { EXPECT_EQ(wrapped("ab cd", 4), (Strings{"ab", "cd"})); }

}  // namespace
}  // namespace velmora_can_bridge
