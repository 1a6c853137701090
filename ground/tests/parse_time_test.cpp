#include "ground/parse_time.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct TimeRow {
  const char* name;
  const char* text;
  /// In milliseconds; -1 for no time.
  std::int64_t time;
};

void PrintTo(const TimeRow& row, std::ostream* out) { *out << row.name; }

class ParseTime : public testing::TestWithParam<TimeRow> {};

TEST_P(ParseTime, reads_a_number_with_its_unit) {
  const auto time = parse_time(GetParam().text);
  EXPECT_EQ(time ? time->count() : -1, GetParam().time);
}

INSTANTIATE_TEST_SUITE_P(
    of, ParseTime,
    testing::Values(TimeRow{"milliseconds", "200ms", 200}, TimeRow{"seconds", "5s", 5000},
                    TimeRow{"part_of_a_second", "0.5s", 500}, TimeRow{"none", "0s", 0},
                    TimeRow{"rounded", "1.6ms", 2}, TimeRow{"a_day", "86400s", 86400000},
                    TimeRow{"more_than_a_day", "86401s", -1}, TimeRow{"negative", "-1s", -1},
                    TimeRow{"no_unit", "200", -1}, TimeRow{"other_unit", "5min", -1},
                    TimeRow{"unit_alone", "s", -1}, TimeRow{"no_number", "nans", -1},
                    TimeRow{"endless", "infs", -1}, TimeRow{"exponent", "1e3s", -1},
                    TimeRow{"nothing", "", -1}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
