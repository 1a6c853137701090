#include "terminal.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

struct ColourRow {
  const char* name;
  bool is_terminal;
  const char* no_color;
  const char* term;
  bool has_colour;
};

class Colour : public testing::TestWithParam<ColourRow> {};

TEST_P(Colour, follows_the_stream_and_the_environment) {
  const ColourRow& row = GetParam();
  EXPECT_EQ(has_colour(row.is_terminal, row.no_color, row.term), row.has_colour);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Colour,
    testing::Values(ColourRow{"terminal", true, nullptr, "xterm", true},
                    ColourRow{"terminal_of_no_name", true, nullptr, nullptr, true},
                    ColourRow{"file", false, nullptr, "xterm", false},
                    ColourRow{"no_color", true, "1", "xterm", false},
                    ColourRow{"no_color_that_is_0", true, "0", "xterm", false},
                    ColourRow{"no_color_that_is_empty", true, "", "xterm", true},
                    ColourRow{"dumb_terminal", true, nullptr, "dumb", false}),
    [](const auto& row) { return std::string(row.param.name); });

struct WidthRow {
  const char* name;
  const char* columns;
  std::size_t window;
  std::size_t width;
};

class Width : public testing::TestWithParam<WidthRow> {};

TEST_P(Width, is_that_of_columns_else_of_the_window) {
  const WidthRow& row = GetParam();
  EXPECT_EQ(terminal_width(row.columns, row.window), row.width);
}

INSTANTIATE_TEST_SUITE_P(Rows, Width,
                         testing::Values(WidthRow{"nothing_is_known", nullptr, 0, 0},
                                         WidthRow{"window", nullptr, 120, 120},
                                         WidthRow{"columns", "100", 120, 100},
                                         WidthRow{"columns_without_window", "100", 0, 100},
                                         WidthRow{"columns_of_0", "0", 120, 120},
                                         WidthRow{"negative_columns", "-5", 120, 120},
                                         WidthRow{"columns_that_are_empty", "", 120, 120},
                                         WidthRow{"columns_that_are_no_number", "wide", 120, 120},
                                         WidthRow{"columns_too_many", "10000", 120, 120}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
