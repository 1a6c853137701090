#include "ground/visible_text.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct TextCase {
  std::string name;
  std::string text;
  std::string visible;
};

void PrintTo(const TextCase& row, std::ostream* out) { *out << row.name; }

class VisibleText : public testing::TestWithParam<TextCase> {};

TEST_P(VisibleText, escapes_what_nobody_sees_alone) {
  EXPECT_EQ(visible_text(GetParam().text), GetParam().visible);
}

INSTANTIATE_TEST_SUITE_P(
    of, VisibleText,
    testing::Values(
        TextCase{"nothing", "", ""},
        TextCase{"ascii", " plain \"text\" \\ ~", " plain \"text\" \\ ~"},
        TextCase{"nul", std::string(1, '\0'), "\\x00"}, TextCase{"line_end", "a\nb", "a\\x0Ab"},
        TextCase{"last_of_c0", "\x1F", "\\x1F"}, TextCase{"delete_character", "\x7F", "\\x7F"},
        TextCase{"first_of_c1", "\u0080", "\\u0080"},
        TextCase{"control_sequence_of_c1", "a\u009B31m", "a\\u009B31m"},
        TextCase{"last_of_c1", "\u009F", "\\u009F"}, TextCase{"after_c1", "\u00A0", "\u00A0"},
        TextCase{"soft_hyphen", "\u00AD", "\\u00AD"}, TextCase{"umlaut", "gr\u00FCn", "gr\u00FCn"},
        TextCase{"arabic_letter_mark", "\u061C", "\\u061C"},
        TextCase{"before_zero_width", "\u200A", "\u200A"},
        TextCase{"zero_width_space", "\u200B", "\\u200B"},
        TextCase{"zero_width_non_joiner", "\u200C", "\\u200C"},
        TextCase{"zero_width_joiner", "\u200D", "\\u200D"},
        TextCase{"left_to_right_mark", "\u200E", "\\u200E"},
        TextCase{"right_to_left_mark", "\u200F", "\\u200F"},
        TextCase{"after_the_marks", "\u2010", "\u2010"},
        TextCase{"before_the_separators", "\u2027", "\u2027"},
        TextCase{"line_separator", "\u2028", "\\u2028"},
        TextCase{"paragraph_separator", "\u2029", "\\u2029"},
        TextCase{"first_embedding", "\u202A", "\\u202A"},
        TextCase{"right_to_left_override", "\u202E", "\\u202E"},
        TextCase{"after_the_overrides", "\u202F", "\u202F"},
        TextCase{"word_joiner", "\u2060", "\\u2060"},
        TextCase{"first_isolate", "\u2066", "\\u2066"},
        TextCase{"last_isolate", "\u2069", "\\u2069"},
        TextCase{"after_the_isolates", "\u2070", "\u2070"},
        TextCase{"byte_order_mark", "\uFEFF", "\\uFEFF"},
        TextCase{"tag_letter", "\U000E0041", "\\U000E0041"},
        TextCase{"four_bytes", "\U0001F600", "\U0001F600"},
        TextCase{"byte_of_c1", "a\x9Bz", "a\\x9Bz"},
        TextCase{"cut_off", "a\xE2\x80", "a\\xE2\\x80"},
        TextCase{"half_of_a_pair", "\xED\xA0\x80", "\\xED\\xA0\\x80"},
        TextCase{"overlong", "\xC0\x9B", "\\xC0\\x9B"}, TextCase{"no_first_byte", "\xFF", "\\xFF"}),
    [](const testing::TestParamInfo<TextCase>& row) { return row.param.name; });

TEST(VisibleTextOfTerminals, escapes_control_characters_alone) {
  EXPECT_EQ(visible_text("plain \"text\" \\ ~"), "plain \"text\" \\ ~");
  EXPECT_EQ(visible_text("a\x1B[31m\nb\x7F"), "a\\x1B[31m\\x0Ab\\x7F");
  EXPECT_EQ(visible_text(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(visible_text("gr\u00FCn"), "gr\u00FCn");
}

TEST(VisibleTextOfTerminals, escapes_control_characters_above_ascii_and_marks_of_direction) {
  EXPECT_EQ(visible_text("a\u009B31m\u202Eb\u2066\u200E\u061C"),
            "a\\u009B31m\\u202Eb\\u2066\\u200E\\u061C");
  EXPECT_EQ(visible_text("\x9B"), "\\x9B");
}

TEST(VisibleJson, escapes_as_json_does) {
  const std::string text =
      visible_json("{\"gr\u00FCn\u202E\":\"\u0085\u2028\x7F\\n\U000E0041\U0001F600\"}");
  EXPECT_EQ(text, "{\"gr\u00FCn\\u202E\":\"\\u0085\\u2028\\u007F\\n\\uDB40\\uDC41\U0001F600\"}");
}

}  // namespace
}  // namespace velmora_can_bridge
