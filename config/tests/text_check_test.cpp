#include "text_check.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "problem_texts.hpp"

namespace velmora_can_bridge {
namespace {

class TextCheck : public testing::TestWithParam<ProblemCase> {};

TEST_P(TextCheck, reports) {
  ProblemList problems;
  const bool is_accepted = check_text(GetParam().yaml, problems);
  EXPECT_EQ(texts_of(problems.take()), GetParam().problems);
  EXPECT_EQ(is_accepted, GetParam().problems.empty());
}

// A byte before each broken character, so that a check of the first byte alone fails.
ProblemCase broken(const std::string& name, const std::string& bytes, const std::string& first) {
  return {name,
          "\nx" + bytes,
          {"2:2: error: the file is not UTF-8: byte " + first + " is out of place"}};
}

INSTANTIATE_TEST_SUITE_P(
    accepts, TextCheck,
    testing::Values(ProblemCase{"nothing", "", {}}, ProblemCase{"white_space", " \t\r\n", {}},
                    ProblemCase{"ascii", " ~", {}},
                    ProblemCase{"two_bytes", "\xC2\x80\xDF\xBF", {}},
                    ProblemCase{
                        "three_bytes", "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", {}},
                    ProblemCase{"four_bytes", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", {}},
                    ProblemCase{"byte_order_mark", "\xEF\xBB\xBFx", {}},
                    ProblemCase{"longest", std::string(longest_file, 'x'), {}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    refuses, TextCheck,
    testing::Values(
        ProblemCase{"nul",
                    std::string("a\n\0", 3),
                    {"2:1: error: the file holds the control character 0x00"}},
        ProblemCase{"end_of_transmission",
                    "a: 1\nb\x04",
                    {"2:2: error: the file holds the control character 0x04"}},
        ProblemCase{
            "delete_character", "\x7F", {"1:1: error: the file holds the control character 0x7F"}},
        broken("lone_continuation", "\x80", "0x80"), broken("overlong_two", "\xC1\xBF", "0xC1"),
        broken("overlong_three", "\xE0\x9F\xBF", "0xE0"),
        broken("overlong_four", "\xF0\x8F\xBF\xBF", "0xF0"),
        broken("surrogate", "\xED\xA0\x80", "0xED"),
        broken("above_unicode", "\xF4\x90\x80\x80", "0xF4"),
        broken("no_first_byte", "\xFF", "0xFF"), broken("cut_after_one", "\xC3", "0xC3"),
        broken("cut_after_two", "\xE2\x82", "0xE2"),
        broken("cut_after_three", "\xF0\x9F\x98", "0xF0"),
        broken("ascii_inside", "\xE2\x82x", "0xE2"), broken("latin_1", "\xFCx", "0xFC"),
        broken("utf_16", "\xFF\xFEx", "0xFF"),
        ProblemCase{"too_long",
                    std::string(longest_file + 1, 'x'),
                    {"error: the file is larger than 2000000 bytes"}}),
    RowName());

class BoardCheck : public testing::TestWithParam<ProblemCase> {};

TEST_P(BoardCheck, of) {
  ProblemList problems;
  EXPECT_EQ(check_is_board(GetParam().yaml, problems), GetParam().problems.empty());
  EXPECT_EQ(texts_of(problems.take()), GetParam().problems);
}

const std::string is_eds =
    ": error: this is an EDS file (an electronic data sheet), a board file describes nodes in YAML";
const std::string is_log = ": error: this is a candump log, a board file describes nodes in YAML";

INSTANTIATE_TEST_SUITE_P(
    files, BoardCheck,
    testing::Values(
        ProblemCase{"empty", "", {}}, ProblemCase{"remarks", "# a\n\n; b\n", {}},
        ProblemCase{"board", "# a\nnodes:\n[FileInfo]\n", {}},
        ProblemCase{"eds", "[FileInfo]\nFileName=a.eds\n", {"1:1" + is_eds}},
        ProblemCase{"eds_of_a_device", "[DeviceInfo]\r\nVendorName=a\r\n", {"1:1" + is_eds}},
        ProblemCase{"eds_with_remarks", "; a\n\n  [FILEINFO] \nFileName=a\n", {"3:1" + is_eds}},
        ProblemCase{"dcf", "[DeviceComissioning]\n", {"1:1" + is_eds}},
        ProblemCase{"eds_behind_a_byte_order_mark", "\xEF\xBB\xBF[Comments]\n", {"1:1" + is_eds}},
        ProblemCase{"other_brackets", "[a, b]\n", {}},
        ProblemCase{"log", "(1700000000.000000) can0 123#0102\n", {"1:1" + is_log}},
        ProblemCase{"log_of_a_remote_frame", "(0000000000.1) vcan0 123#R\n", {"1:1" + is_log}},
        ProblemCase{"no_log", "(1) a\n", {}}, ProblemCase{"no_frame", "(a) can0 123#\n", {}},
        ProblemCase{"dump", "\n  can0  123   [2]  01 02\n", {"2:1" + is_log}},
        ProblemCase{"no_dump", "a:  [1]  \n", {}}),
    RowName());

}  // namespace
}  // namespace velmora_can_bridge
