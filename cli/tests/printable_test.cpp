#include "printable.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "table.hpp"

namespace velmora_can_bridge {
namespace {

TEST(Printable, escapes_control_characters_alone) {
  EXPECT_EQ(printable("plain \"text\" \\ ~"), "plain \"text\" \\ ~");
  EXPECT_EQ(printable("a\x1B[31m\nb\x7F"), "a\\x1B[31m\\x0Ab\\x7F");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(printable("gr\u00FCn"), "gr\u00FCn");
}

TEST(Printable, escapes_control_characters_above_ascii_and_marks_of_direction) {
  EXPECT_EQ(printable("a\u009B31m\u202Eb\u2066\u200E\u061C"),
            "a\\u009B31m\\u202Eb\\u2066\\u200E\\u061C");
  EXPECT_EQ(printable("\x9B"), "\\x9B");
}

TEST(PrintableJson, escapes_as_json_does_and_holds_the_same_value) {
  const nlohmann::json value{{"gr\u00FCn\u202E", "\u0085\u2028\x7F\n\U000E0041\U0001F600"}};
  const std::string text = printable_json(value.dump());
  EXPECT_EQ(text, "{\"gr\u00FCn\\u202E\":\"\\u0085\\u2028\\u007F\\n\\uDB40\\uDC41\U0001F600\"}");
  EXPECT_EQ(nlohmann::json::parse(text), value);
}

TEST(DisplayWidth, counts_characters) {
  EXPECT_EQ(display_width(""), 0U);
  EXPECT_EQ(display_width("abc"), 3U);
  EXPECT_EQ(display_width("gr\u00FCn"), 4U);
}

TEST(Table, is_as_wide_as_its_widest_texts) {
  Table table;
  table.add({"a", "bbb", "c"});
  table.add({"gr\u00FCn", "b", ""});
  table.add({"\n"});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(), "  a     bbb  c\n  gr\u00FCn  b\n  \\x0A\n");
}

}  // namespace
}  // namespace velmora_can_bridge
