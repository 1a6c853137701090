#include "velmora_can_bridge/values/answer_words.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

NodeConfig board_node() {
  NodeConfig node;
  node.node_id = 0x10;
  node.board.device_od_map["wheel"] = {"ci402", 0x6040, 0};
  node.board.device_od_map["claw"] = {"claw", 0x7040, 0x2100};
  node.board.device_od_map["led"] = {"io", 0x2000, 0};
  node.values[{0x2000, 1}].type = ValueType::u8;
  node.values[{0x2000, 2}].type = ValueType::s16;
  node.values[{0x2000, 3}].type = ValueType::text;
  return node;
}

OperationConfig reads(const char* kind, std::uint16_t index = 0, std::uint8_t sub_index = 0) {
  OperationConfig op;
  op.kind = kind;
  op.index = index;
  op.sub_index = sub_index;
  return op;
}

OperationConfig reads_all(const std::vector<std::uint8_t>& sub_indices) {
  OperationConfig op = reads("read_multi", 0x2000);
  op.sub_indices = sub_indices;
  return op;
}

struct Case {
  std::string name;
  const char* device;
  OperationConfig op;
  Bytes payload;
  Bytes data;
  std::string words;
};

void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }

class AnswerWords : public testing::TestWithParam<Case> {};

TEST_P(AnswerWords, tell_what_the_data_hold) {
  const auto& [name, device, op, payload, data, words] = GetParam();
  EXPECT_EQ(answer_words(board_node(), device, op, payload, data), words);
}

INSTANTIATE_TEST_SUITE_P(
    of, AnswerWords,
    testing::Values(
        Case{"sdo_read",
             "wheel",
             reads("sdo_read", 0x6041),
             {},
             {0x37, 0x06},
             "1591, Operation enabled, target reached"},
        Case{"sdo_read_with_sign",
             "wheel",
             reads("sdo_read", 0x60FF),
             {},
             {0xB3, 0xFF, 0xFF, 0xFF},
             "-77"},
        Case{
            "sdo_read_of_text", "wheel", reads("sdo_read", 0x1008), {}, {'b', 'o', 'x'}, "\"box\""},
        Case{"sdo_read_of_the_unknown", "wheel", reads("sdo_read", 0x2800), {}, {1, 2}, ""},
        Case{"sdo_read_by_no_device", "nobody", reads("sdo_read", 0x6041), {}, {8, 0}, "8, Fault"},
        Case{"nothing_read", "wheel", reads("sdo_read", 0x6041), {}, {}, ""},
        Case{"od_io_read_of_the_base", "wheel", reads("od_io_read"), {}, {6, 0}, "6, shutdown"},
        Case{"od_io_read_of_an_offset", "wheel", reads("od_io_read"), {1, 0}, {8, 0}, "8, Fault"},
        Case{"od_io_read_of_one_byte_of_offset",
             "wheel",
             reads("od_io_read"),
             {1},
             {6, 0},
             "6, shutdown"},
        Case{
            "od_io_read_of_a_sub_index", "led", reads("od_io_read"), {0, 0, 2}, {0xFF, 0xFF}, "-1"},
        Case{"od_io_read_by_no_device", "nobody", reads("od_io_read"), {}, {6, 0}, ""},
        Case{"read_multi",
             "led",
             reads_all({1, 2}),
             {},
             {5, 0xFE, 0xFF},
             "0x2000/1 = 5, 0x2000/2 = -2"},
        Case{"read_multi_of_one", "led", reads_all({3}), {}, {'r', 'e', 'd'}, "\"red\""},
        Case{"read_multi_twice_the_same",
             "led",
             reads_all({1, 1}),
             {},
             {5, 6},
             "0x2000/1 = 5, 0x2000/1 = 6"},
        Case{"read_multi_that_does_not_add_up", "led", reads_all({1, 2}), {}, {5, 0xFE}, ""},
        Case{"read_multi_with_a_text", "led", reads_all({1, 3}), {}, {5, 'a'}, ""},
        Case{"read_multi_of_the_unknown", "led", reads_all({1, 9}), {}, {5, 6}, ""},
        Case{"claw", "claw", reads("claw_action"), {}, {2, 2}, "done, extended"},
        Case{"claw_on_its_way", "claw", reads("claw_action"), {}, {1, 3}, "moving, between"},
        Case{"claw_with_a_state_of_its_own", "claw", reads("claw_action"), {}, {9, 1}, "9, home"},
        Case{"claw_answer_of_one_byte", "claw", reads("claw_action"), {}, {2}, "done"},
        Case{"write", "wheel", reads("sdo_write", 0x6041), {}, {8, 0}, ""}),
    [](const testing::TestParamInfo<Case>& row) { return row.param.name; });

TEST(AnswerParts, tell_where_the_values_stand) {
  const auto parts = answer_parts(board_node(), "claw", reads("claw_action"), {}, {2, 2});
  ASSERT_EQ(parts.size(), 2U);
  EXPECT_EQ(parts[1].index, 0x2100);
  EXPECT_EQ(parts[1].sub_index, 2);
  EXPECT_EQ(parts[1].reading.words, "extended");
  EXPECT_EQ(parts[1].reading.number, ValueNumber(std::uint64_t{2}));
}

TEST(AnswerParts, hold_what_is_not_typed_too) {
  const auto parts =
      answer_parts(board_node(), "wheel", reads("sdo_read", 0x2800), {}, {0xFF, 0xFF});
  ASSERT_EQ(parts.size(), 1U);
  EXPECT_EQ(parts[0].reading.number, ValueNumber(std::uint64_t{65535}));
}

}  // namespace
}  // namespace velmora_can_bridge
