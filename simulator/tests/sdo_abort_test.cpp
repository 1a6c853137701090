#include "velmora_can_bridge/simulator/sdo_abort.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct AbortCase {
  std::string name;
  SdoAbort abort;
  std::uint32_t code;
  std::string text;
};

void PrintTo(const AbortCase& row, std::ostream* out) { *out << row.name; }

class SdoAbortTest : public testing::TestWithParam<AbortCase> {};

TEST_P(SdoAbortTest, has_the_code_of_the_bus_and_its_own_text) {
  EXPECT_EQ(static_cast<std::uint32_t>(GetParam().abort), GetParam().code);
  EXPECT_EQ(sdo_abort_text(GetParam().abort), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    all, SdoAbortTest,
    testing::Values(
        AbortCase{"timed_out", SdoAbort::timed_out, 0x05040000, "no answer from the node"},
        AbortCase{"read_of_write_only", SdoAbort::read_of_write_only, 0x06010001,
                  "the object can only be written"},
        AbortCase{"write_of_read_only", SdoAbort::write_of_read_only, 0x06010002,
                  "the object can only be read"},
        AbortCase{"no_such_object", SdoAbort::no_such_object, 0x06020000,
                  "no object at this index"},
        AbortCase{"value_too_long", SdoAbort::value_too_long, 0x06070012,
                  "too many bytes for the object"},
        AbortCase{"value_too_short", SdoAbort::value_too_short, 0x06070013,
                  "too few bytes for the object"},
        AbortCase{"no_such_sub_index", SdoAbort::no_such_sub_index, 0x06090011,
                  "no such sub-index at this index"},
        AbortCase{"unknown", static_cast<SdoAbort>(0x08000021), 0x08000021, "unknown abort code"}),
    [](const testing::TestParamInfo<AbortCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge
