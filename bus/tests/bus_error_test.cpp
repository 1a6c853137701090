#include "velmora_can_bridge/bus/bus_error.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct TextCase {
  std::string name;
  std::uint8_t node_id;
  std::uint16_t index;
  std::uint8_t sub_index;
  std::string text;
};

void PrintTo(const TextCase& row, std::ostream* out) { *out << row.name; }

class BusErrorTextTest : public testing::TestWithParam<TextCase> {};

TEST_P(BusErrorTextTest, names_what_is_known_before_the_reason) {
  BusError error;
  error.node_id = GetParam().node_id;
  error.index = GetParam().index;
  error.sub_index = GetParam().sub_index;
  error.text = "no answer within 500 ms";

  EXPECT_EQ(bus_error_text(error), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    all, BusErrorTextTest,
    testing::Values(TextCase{"bus_as_a_whole", 0, 0, 0, "no answer within 500 ms"},
                    TextCase{"node", 16, 0, 0, "node 0x10: no answer within 500 ms"},
                    TextCase{"object", 16, 0x2000, 1,
                             "node 0x10, object 0x2000/1: no answer within 500 ms"},
                    TextCase{"highest_node_and_object", 127, 0xFFFF, 255,
                             "node 0x7F, object 0xFFFF/255: no answer within 500 ms"}),
    [](const testing::TestParamInfo<TextCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge
