#include "roff.hpp"

#include <gmock/gmock.h>

#include "man_pages.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;

struct TextRow {
  const char* name;
  const char* text;
  const char* roff;
};

class RoffText : public testing::TestWithParam<TextRow> {};

TEST_P(RoffText, is_escaped) { EXPECT_EQ(roff_text(GetParam().text), GetParam().roff); }

TEST_P(RoffText, is_shown_as_it_stands) {
  const PageFile page(
      std::string("roff_") + GetParam().name,
      roff_head({"name", 1, "summary"}) + roff_section("text") + roff_text(GetParam().text) + '\n');
  EXPECT_EQ(page.warnings(), "");
  EXPECT_THAT(page.shown(), HasSubstr("\n       " + std::string(GetParam().text) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RoffText,
    testing::Values(TextRow{"plain", "a board file", "a board file"},
                    TextRow{"hyphens", "--bus pre-operational", "\\-\\-bus pre\\-operational"},
                    TextRow{"backslash", "a\\fBb\\n", "a\\(rsfBb\\(rsn"},
                    TextRow{"point_first", ".TH a. .b", "\\&.TH a. .b"},
                    TextRow{"quotes", R"('a' "b" `c`)", "\\(aqa\\(aq \\(dqb\\(dq \\(gac\\(ga"},
                    TextRow{"accents", "~/a^b", "\\(ti/a\\(hab"},
                    TextRow{"other_tongues", "Räder… €", "R\\[u00E4]der\\[u2026] \\[u20AC]"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Roff, keeps_the_lines_of_an_example) {
  const PageFile page("roff_example", roff_head({"name", 1, "summary"}) + roff_section("example") +
                                          roff_example(".a\n  - 'b'\n\n\\c  d\n"));
  EXPECT_EQ(page.warnings(), "");
  EXPECT_THAT(page.shown(),
              HasSubstr("\n           .a\n             - 'b'\n\n           \\c  d\n"));
}

TEST(Roff, cuts_no_word) {
  std::string words;
  for (int count = 0; count < 60; ++count) {
    words += "configuration" + std::string(static_cast<std::size_t>(count % 7), 's') + " ";
  }
  const PageFile page("roff_words", roff_head({"name", 1, "summary"}) + roff_section("words") +
                                        roff_entry("tag", words) + ".PP\n" + words + '\n');
  EXPECT_THAT(page.shown(), testing::Not(HasSubstr("\u2010")));
}

TEST(Roff, has_the_same_head_each_time) {
  EXPECT_THAT(
      roff_head({"velmora-can-bridge-x", 5, "a summary"}),
      testing::MatchesRegex(
          "\\.TH velmora\\\\-can\\\\-bridge\\\\-x 5 [0-9]{4}-[0-9]{2}-[0-9]{2} "
          "\"velmora\\\\-can\\\\-bridge [0-9.]+\" \"File Formats\"\n\\.nr HY 0\n\\.nh\n\\.ad l\n"
          "\\.SH NAME\nvelmora\\\\-can\\\\-bridge\\\\-x \\\\- a summary\n"));
}

}  // namespace
}  // namespace velmora_can_bridge
