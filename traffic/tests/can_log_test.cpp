#include "velmora_can_bridge/traffic/can_log.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>

#include "test_frames.hpp"

namespace velmora_can_bridge {
namespace {

struct LogCase {
  std::string name;
  std::chrono::microseconds time;
  std::string interface;
  CanFrame frame;
  std::string line;
};

void PrintTo(const LogCase& row, std::ostream* out) { *out << row.name; }

class CanLogTest : public testing::TestWithParam<LogCase> {};

TEST_P(CanLogTest, writes_one_line_as_candump_does) {
  EXPECT_EQ(can_log_line(GetParam().time, GetParam().interface, GetParam().frame), GetParam().line);
}

constexpr std::chrono::microseconds some_time{1700000000123456};

INSTANTIATE_TEST_SUITE_P(
    all, CanLogTest,
    testing::Values(LogCase{"request", some_time, "can0",
                            frame_of(0x601, "40 00 10 00 00 00 00 00"),
                            "(1700000000.123456) can0 601#4000100000000000"},
                    LogCase{"no_data", some_time, "vcan1", frame_of(0x080, ""),
                            "(1700000000.123456) vcan1 080#"},
                    LogCase{"lowest_identifier_and_upper_case_digits", some_time, "can0",
                            frame_of(0x000, "81 AF"), "(1700000000.123456) can0 000#81AF"},
                    LogCase{"highest_identifier", some_time, "can0", frame_of(0x7FF, "0F"),
                            "(1700000000.123456) can0 7FF#0F"},
                    LogCase{"bytes_beyond_the_length_are_left_out", some_time, "can0",
                            CanFrame{0x123, 1, {1, 2, 3}}, "(1700000000.123456) can0 123#01"},
                    LogCase{"length_beyond_the_data_counts_as_8", some_time, "can0",
                            CanFrame{0x123, 255, {1, 2, 3, 4, 5, 6, 7, 8}},
                            "(1700000000.123456) can0 123#0102030405060708"},
                    LogCase{"epoch", std::chrono::microseconds(0), "can0", frame_of(0x001, ""),
                            "(0000000000.000000) can0 001#"},
                    LogCase{"microseconds_are_padded", std::chrono::microseconds(5000007), "can0",
                            frame_of(0x001, ""), "(0000000005.000007) can0 001#"}),
    [](const testing::TestParamInfo<LogCase>& row) { return row.param.name; });

TEST_P(CanLogTest, knows_its_own_lines) { EXPECT_TRUE(is_can_log_line(GetParam().line)); }

TEST(CanLogLine, is_nothing_else) {
  for (const char* const line : {"",
                                 "(",
                                 "(1700000000.123456)",
                                 "(1700000000.123456) can0",
                                 "(1700000000.123456) can0 123",
                                 "(170000000.123456) can0 123#",
                                 "(1700000000.12345) can0 123#",
                                 "(1700000000.1234567) can0 123#",
                                 "1700000000.123456 can0 123#",
                                 "(1700000000.123456)can0 123#",
                                 "(1700000000.123456)  123#",
                                 "(1700000000.123456) can0 800#",
                                 "(1700000000.123456) can0 12#",
                                 "(1700000000.123456) can0 1234#",
                                 "(1700000000.123456) can0 00000123#",
                                 "(1700000000.123456) can0 123#1",
                                 "(1700000000.123456) can0 123#R",
                                 "(1700000000.123456) can0 123##0",
                                 "(1700000000.123456) can0 123#0a",
                                 "(1700000000.123456) can0 123#010203040506070809",
                                 "(1700000000.123456) can0 123#01 ",
                                 " (1700000000.123456) can0 123#01",
                                 "(1700000000.123456) can0 123#01\n"}) {
    EXPECT_FALSE(is_can_log_line(line)) << line;
  }
}

}  // namespace
}  // namespace velmora_can_bridge
