#include "ground/quoted_text.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct QuotedCase {
  std::string name;
  std::string text;
  std::string printed;
};

void PrintTo(const QuotedCase& row, std::ostream* out) { *out << row.name; }

class QuotedText : public testing::TestWithParam<QuotedCase> {};

TEST_P(QuotedText, stays_one_line_that_says_what_it_holds) {
  EXPECT_EQ(shortened(GetParam().text), GetParam().printed);
  EXPECT_EQ(velmora_can_bridge::quoted(GetParam().text), '"' + GetParam().printed + '"');
}

INSTANTIATE_TEST_SUITE_P(
    of, QuotedText,
    testing::Values(QuotedCase{"nothing", "", ""}, QuotedCase{"plain", "plain text", "plain text"},
                    QuotedCase{"quotes", "a\"b\\c", "a\\\"b\\\\c"},
                    QuotedCase{"line_end", "a\nb", "a\\nb"},
                    QuotedCase{"escape", "\x1B[2J", "\\x1B[2J"},
                    QuotedCase{"nul", std::string(1, '\0'), "\\x00"},
                    QuotedCase{"delete_character", "\x7F", "\\x7F"},
                    QuotedCase{"control_character_above_ascii", "a\u009B2J", "a\\u009B2J"},
                    QuotedCase{"mark_of_direction", "a\u202Eb\u2066", "a\\u202Eb\\u2066"},
                    QuotedCase{"line_separator", "a\u2028b", "a\\u2028b"},
                    QuotedCase{"umlaut", "\xC3\xBC", "\xC3\xBC"},
                    QuotedCase{"forty_bytes", std::string(40, 'x'), std::string(40, 'x')},
                    QuotedCase{"forty_one_bytes", std::string(41, 'x'),
                               std::string(40, 'x') + "..."},
                    QuotedCase{"character_across_the_limit", std::string(39, 'x') + "\xC3\xBC",
                               std::string(39, 'x') + "..."}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge
