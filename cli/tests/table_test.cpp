#include "table.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace velmora_can_bridge {
namespace {

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
