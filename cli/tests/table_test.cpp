#include "table.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "wrapped_text.hpp"

namespace velmora_can_bridge {
namespace {

/// The table on a terminal of so many columns.
std::string printed(const Table& table, std::size_t width) {
  std::ostringstream out;
  std::ostringstream err;
  CommandLineHost host{out, err};
  host.width = width;
  table.print(host);
  return out.str();
}

TEST(Table, is_as_wide_as_its_widest_texts) {
  Table table;
  table.add({"a", "bbb", "c"});
  table.add({"gr\u00FCn", "b", ""});
  table.add({"\n"});
  EXPECT_EQ(printed(table, 80), "  a     bbb  c\n  gr\u00FCn  b\n  \\x0A\n");
}

TEST(Table, wraps_the_widest_column_where_the_terminal_is_narrower) {
  Table table;
  table.add({"name", "what it is"});
  table.add({"set_led", "colour, mode and period"});
  EXPECT_EQ(printed(table, 24),
            "  name     what it is\n"
            "  set_led  colour, mode\n"
            "           and period\n");
}

TEST(Table, wraps_several_columns_alike) {
  Table table;
  table.add({"one two three", "four five six"});
  EXPECT_EQ(printed(table, 20), "  one two   four\n  three     five six\n");
}

TEST(Table, cuts_words_only_where_no_other_column_can_give_way) {
  Table table;
  table.add({"abcdefghij", "k l m n o p"});
  EXPECT_EQ(printed(table, 17), "  abcdefghij  k l\n              m n\n              o p\n");
  EXPECT_EQ(printed(table, 9),
            "  abcd  k\n  efgh  l\n  ij    m\n        n\n        o\n        p\n");
}

TEST(Table, gives_a_column_up_before_it_cuts_words) {
  Table table;
  table.give_up(1);
  table.add({"one two", "kind", "three four"});
  table.add({"one"});
  EXPECT_EQ(printed(table, 18), "  one  kind  three\n  two        four\n  one\n");
  EXPECT_EQ(printed(table, 17), "  one     three\n  two     four\n  one\n");
}

TEST(Table, is_fitted_to_80_columns_where_the_terminal_is_not_known) {
  const std::string first(30, 'a');
  Table fitting;
  fitting.add({first + " " + std::string(47, 'b')});
  EXPECT_EQ(printed(fitting, 0), "  " + first + " " + std::string(47, 'b') + "\n");
  Table wider;
  wider.add({first + " " + std::string(48, 'b')});
  EXPECT_EQ(printed(wider, 0), "  " + first + "\n  " + std::string(48, 'b') + "\n");
}

TEST(Table, keeps_to_every_width_with_room_for_its_columns) {
  Table table;
  table.add({"ab cd", "efghi", "\u00E4\u00F6\u00FC j"});
  table.add({"", "k l m n", "o"});
  for (std::size_t width = 9; width < 40; ++width) {
    std::istringstream lines(printed(table, width));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(display_width(line), width) << line;
    }
  }
}

TEST(Table, without_rows_prints_nothing) { EXPECT_EQ(printed(Table(), 5), ""); }

}  // namespace
}  // namespace velmora_can_bridge
