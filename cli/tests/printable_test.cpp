#include "printable.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "table.hpp"

namespace velmora_can_bridge {
namespace {

TEST(Printable, escapes_control_characters_alone) {
  EXPECT_EQ(printable("plain \"text\" \\ ~"), "plain \"text\" \\ ~");
  EXPECT_EQ(printable("a\x1B[31m\nb\x7F"), "a\\x1B[31m\\x0Ab\\x7F");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(printable("gr\u00FCn"), "gr\u00FCn");
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
