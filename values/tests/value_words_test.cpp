#include "velmora_can_bridge/values/value_words.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ground/little_endian.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

ValueDescription value_of(ValueType type, const std::string& unit = "",
                          std::optional<double> scale = std::nullopt) {
  ValueDescription value;
  value.type = type;
  value.unit = unit;
  value.scale = scale;
  return value;
}

NodeConfig worded_node() {
  NodeConfig node;
  node.node_id = 0x10;
  node.board.device_od_map["left"] = {"ci402", 0x6040, 0};
  node.board.device_od_map["right"] = {"ci402", 0x6840, 0};
  node.board.device_od_map["claw"] = {"claw", 0x7040, 0x2100};
  node.board.device_od_map["led"] = {"io", 0x2000, 0};
  node.values[{0x2010, 1}] = value_of(ValueType::s16, "mm/s");
  node.values[{0x2010, 2}] = value_of(ValueType::u16, "m/s", 0.001);
  node.values[{0x2010, 3}] = value_of(ValueType::float32, "V");
  node.values[{0x2010, 4}] = value_of(ValueType::text);
  node.values[{0x2010, 5}] = value_of(ValueType::bytes);
  node.values[{0x2010, 6}] = value_of(ValueType::u64);
  node.values[{0x2010, 7}] = value_of(ValueType::s64);
  node.values[{0x2010, 8}] = value_of(ValueType::u8, "V");
  node.values[{0x2010, 8}].values = {{"breath", Count::of(2)}};
  node.values[{0x2010, 9}] = value_of(ValueType::s8);
  node.values[{0x2010, 9}].values = {{"reverse", Count::of(-1)}};
  node.values[{0x6841, 0}].values = {{"asleep", Count::of(0x40)}};
  OperationConfig write;
  write.kind = "sdo_write";
  write.index = 0x2400;
  write.data_type = "s16";
  node.operations["set_offset"] = write;
  return node;
}

struct WordsCase {
  std::string name;
  std::uint16_t index;
  std::uint8_t sub_index;
  Bytes bytes;
  std::string text;
};

void PrintTo(const WordsCase& row, std::ostream* out) { *out << row.name; }

std::string words_row_name(const testing::TestParamInfo<WordsCase>& row) { return row.param.name; }

class ReadValue : public testing::TestWithParam<WordsCase> {};

TEST_P(ReadValue, has_number_and_words) {
  const NodeConfig node = worded_node();
  const auto& [name, index, sub_index, bytes, text] = GetParam();
  EXPECT_EQ(reading_text(read_value(&node, index, sub_index, bytes)), text);
}

/// The states of the profile, each with the bits that its mask leaves out clear and set.
const std::vector<WordsCase> statuswords{
    {"not_ready", 0x6041, 0, {0x00, 0x00}, "0, Not ready to switch on"},
    {"not_ready_other_bits", 0x6041, 0, {0x30, 0x02}, "560, Not ready to switch on"},
    {"disabled", 0x6041, 0, {0x40, 0x00}, "64, Switch on disabled"},
    {"disabled_other_bits", 0x6041, 0, {0x70, 0x02}, "624, Switch on disabled"},
    {"ready", 0x6041, 0, {0x21, 0x00}, "33, Ready to switch on"},
    {"ready_other_bits", 0x6041, 0, {0x31, 0x02}, "561, Ready to switch on"},
    {"switched_on", 0x6041, 0, {0x23, 0x00}, "35, Switched on"},
    {"switched_on_other_bits", 0x6041, 0, {0x33, 0x02}, "563, Switched on"},
    {"enabled", 0x6041, 0, {0x27, 0x00}, "39, Operation enabled"},
    {"enabled_other_bits", 0x6041, 0, {0x37, 0xC3}, "49975, Operation enabled"},
    {"quick_stop", 0x6041, 0, {0x07, 0x00}, "7, Quick stop active"},
    {"quick_stop_other_bits", 0x6041, 0, {0x17, 0x02}, "535, Quick stop active"},
    {"fault_reaction", 0x6041, 0, {0x0F, 0x00}, "15, Fault reaction active"},
    {"fault_reaction_other_bits", 0x6041, 0, {0x3F, 0x02}, "575, Fault reaction active"},
    {"fault", 0x6041, 0, {0x08, 0x00}, "8, Fault"},
    {"fault_other_bits", 0x6041, 0, {0x38, 0x02}, "568, Fault"},
    {"none", 0x6041, 0, {0x05, 0x00}, "5, no state of a drive"},
    {"warning", 0x6041, 0, {0xB7, 0x02}, "695, Operation enabled, warning"},
    {"target_reached", 0x6041, 0, {0x37, 0x06}, "1591, Operation enabled, target reached"},
    {"limit", 0x6041, 0, {0x37, 0x0A}, "2615, Operation enabled, internal limit"},
    {"mode_bit", 0x6041, 0, {0x37, 0x12}, "4663, Operation enabled, mode bit 12"},
    {"mode_error", 0x6041, 0, {0x37, 0x22}, "8759, Operation enabled, mode error"},
    {"all_bits",
     0x6041,
     0,
     {0xB7, 0x3E},
     "16055, Operation enabled, warning, target reached, internal limit, mode bit 12, mode error"},
    {"of_the_second_drive", 0x6841, 0, {0x37, 0x06}, "1591, Operation enabled, target reached"},
    {"named_by_the_board_file", 0x6841, 0, {0x40, 0x00}, "64, asleep"},
    {"of_a_claw", 0x7041, 0, {0x08, 0x00}, "8, Fault"},
    {"of_no_drive", 0x5041, 0, {0x08, 0x00}, "8"},
    {"of_another_sub_index", 0x6041, 1, {0x08, 0x00}, "8"},
};

const std::vector<WordsCase> controlwords{
    {"shutdown", 0x6040, 0, {0x06, 0}, "6, shutdown"},
    {"switch_on", 0x6040, 0, {0x07, 0}, "7, switch on"},
    {"enable_operation", 0x6040, 0, {0x0F, 0}, "15, enable operation"},
    {"disable_voltage", 0x6040, 0, {0x00, 0}, "0, disable voltage"},
    {"quick_stop", 0x6040, 0, {0x02, 0}, "2, quick stop"},
    {"fault_reset", 0x6040, 0, {0x80, 0}, "128, fault reset"},
    {"fault_reset_whatever_else", 0x6040, 0, {0x8F, 0}, "143, fault reset"},
    {"start", 0x6040, 0, {0x1F, 0}, "31, enable operation, start"},
    {"halt", 0x6040, 0, {0x0F, 1}, "271, enable operation, halt"},
    {"mode_bits",
     0x6040,
     0,
     {0x6F, 2},
     "623, enable operation, mode bit 5, mode bit 6, mode bit 9"},
    {"of_the_second_drive", 0x6840, 0, {0x06, 0}, "6, shutdown"},
};

const std::vector<WordsCase> others{
    {"mode", 0x6060, 0, {3}, "3, velocity"},
    {"mode_shown", 0x6861, 0, {6}, "6, homing"},
    {"mode_unknown", 0x6861, 0, {0xFA}, "-6"},
    {"sign_of_the_drive", 0x60FF, 0, {0xB3, 0xFF, 0xFF, 0xFF}, "-77"},
    {"no_sign", 0x6081, 0, {0xB3, 0xFF, 0xFF, 0xFF}, "4294967219"},
    {"error_code", 0x603F, 0, {0x11, 0x86}, "34321, following error"},
    {"error_code_of_the_second_drive", 0x683F, 0, {0x10, 0x32}, "12816, DC link over-voltage"},
    {"error_list",
     0x1003,
     1,
     {0x10, 0x82, 0x34, 0x12},
     "305431056, PDO not taken: its length is wrong"},
    {"error_list_length", 0x1003, 0, {2}, "2"},
    {"error_register", 0x1001, 0, {0x11}, "17, generic, communication"},
    {"error_register_clear", 0x1001, 0, {0}, "0, no error"},
    {"device_servo", 0x1000, 0, {0x92, 1, 2, 0}, "131474, CiA 402 drive, servo"},
    {"device_stepper", 0x1000, 0, {0x92, 1, 4, 0}, "262546, CiA 402 drive, stepper"},
    {"device_converter", 0x1000, 0, {0x92, 1, 1, 0}, "65938, CiA 402 drive, frequency converter"},
    {"device_io",
     0x1000,
     0,
     {0x91, 1, 0x0F, 0},
     "983441, CiA 401 inputs and outputs, digital inputs, digital outputs, analogue inputs, "
     "analogue outputs"},
    {"device_encoder", 0x1000, 0, {0x96, 1, 0, 0}, "406, CiA 406 encoder"},
    {"device_of_another_profile",
     0x1000,
     0,
     {0xE7, 3, 0x34, 0x12},
     "305398759, CiA 999, additional information 0x1234"},
    {"device_without_profile", 0x1000, 0, {0, 0, 0, 0}, "0, no standard profile"},
    {"claw_action", 0x2100, 1, {2}, "2, done"},
    {"claw_position", 0x2100, 2, {2}, "2, extended"},
    {"claw_position_unknown", 0x2100, 2, {9}, "9"},
    {"claw_command", 0x2100, 9, {1}, "1"},
    {"unit", 0x2010, 1, {0xD4, 0xFE}, "-300 mm/s"},
    {"unit_with_scale", 0x2010, 2, {0x2C, 0x01}, "300, 0.3 m/s"},
    {"float32", 0x2010, 3, {0, 0, 0x20, 0x41}, "10 V"},
    {"text", 0x2010, 4, {'r', 'e', 'd'}, "\"red\""},
    {"text_of_four_bytes", 0x2010, 4, {'b', 'l', 'u', 'e'}, "\"blue\""},
    {"text_filled_with_zeros", 0x2010, 4, {'r', 'e', 'd', 0, 0}, "\"red\""},
    {"bytes", 0x2010, 5, {1, 2}, ""},
    {"u64", 0x2010, 6, {255, 255, 255, 255, 255, 255, 255, 255}, "18446744073709551615"},
    {"s64", 0x2010, 7, {255, 255, 255, 255, 255, 255, 255, 255}, "-1"},
    {"code", 0x2010, 8, {2}, "2, breath"},
    {"code_without_name", 0x2010, 8, {3}, "3 V"},
    {"negative_code", 0x2010, 9, {0xFF}, "-1, reverse"},
    {"unit_of_the_standard", 0x1017, 0, {0xF4, 1}, "500 ms"},
    {"name_of_the_device", 0x1008, 0, {'V', 'C', 'B', '1'}, "\"VCB1\""},
    {"written_with_sign", 0x2400, 0, {0xFF, 0xFF}, "-1"},
    {"unknown", 0x2800, 0, {0xFF, 0xFF}, "65535"},
    {"unknown_text", 0x2800, 0, {'w', 'h', 'e', 'e', 'l'}, "\"wheel\""},
    {"unknown_text_of_eight", 0x2800, 0, {'r', 'i', 'g', 'h', 't', 'e', 'r', ' '}, "\"righter \""},
    {"unknown_four_letters_are_a_number", 0x2800, 0, {'l', 'e', 'f', 't'}, "1952867692"},
    {"odd_number_of_bytes", 0x2800, 0, {1, 2, 3}, ""},
    {"nothing", 0x2800, 0, {}, ""},
    {"short_statusword", 0x6041, 0, {0x08}, "8, Fault"},
    {"long_statusword", 0x6041, 0, {0x37, 0x06, 0, 0}, "1591, Operation enabled, target reached"},
    {"empty_statusword", 0x6041, 0, {}, ""},
    {"odd_statusword", 0x6041, 0, {1, 2, 3}, ""},
    {"short_float32", 0x2010, 3, {1, 0}, "1 V"},
};

INSTANTIATE_TEST_SUITE_P(Statuswords, ReadValue, testing::ValuesIn(statuswords), words_row_name);
INSTANTIATE_TEST_SUITE_P(Controlwords, ReadValue, testing::ValuesIn(controlwords), words_row_name);
INSTANTIATE_TEST_SUITE_P(Others, ReadValue, testing::ValuesIn(others), words_row_name);

TEST(ReadValueWithoutNode, knows_the_objects_that_all_nodes_have) {
  EXPECT_EQ(value_words(nullptr, 0x1001, 0, {1}), "generic");
  EXPECT_EQ(value_words(nullptr, 0x6041, 0, {8, 0}), "");
}

TEST(ReadValueTyped, tells_guesses_apart) {
  const NodeConfig node = worded_node();
  EXPECT_TRUE(read_value(&node, 0x6041, 0, {8, 0}).is_typed);
  EXPECT_TRUE(read_value(&node, 0x603F, 0, {0x11, 0x86}).is_typed);
  EXPECT_TRUE(read_value(&node, 0x2010, 4, {'a'}).is_typed);
  EXPECT_TRUE(read_value(&node, 0x2010, 5, {1}).is_typed);
  EXPECT_FALSE(read_value(&node, 0x2800, 0, {8, 0}).is_typed);
  EXPECT_FALSE(read_value(&node, 0x2800, 0, {'w', 'h', 'e', 'e', 'l'}).is_typed);
}

TEST(ReadValueOfADriveAtIndex0, has_no_error_code_below) {
  NodeConfig node;
  node.board.device_od_map["odd"] = {"ci402", 0, 0};
  EXPECT_EQ(value_words(&node, 0xFFFF, 0, {0x11, 0x86}), "");
}

TEST(ReadField, takes_bits) {
  const NodeConfig node = worded_node();
  EXPECT_EQ(reading_text(read_field(&node, 0x6077, 0, 0xFFF, 12)), "-1");
  EXPECT_EQ(reading_text(read_field(&node, 0x6041, 0, 0x0637, 16)),
            "1591, Operation enabled, target reached");
}

TEST(ValueText, has_the_bytes_before) {
  const NodeConfig node = worded_node();
  const auto text = [&](std::uint16_t index, const Bytes& bytes) {
    return value_text(bytes, read_value(&node, index, 0, bytes));
  };
  EXPECT_EQ(text(0x6041, {0x37, 0x06}), "37 06 (1591, Operation enabled, target reached)");
  EXPECT_EQ(text(0x1008, {'a'}), "61 (\"a\")");
  EXPECT_EQ(text(0x2800, {1, 2, 3}), "01 02 03");
  EXPECT_EQ(text(0x1008, {}), "no bytes");
}

TEST(BracketedReadingText, has_the_words_in_parentheses) {
  const NodeConfig node = worded_node();
  const auto text = [&](std::uint16_t index, std::uint8_t sub_index, const Bytes& bytes) {
    return bracketed_reading_text(read_value(&node, index, sub_index, bytes));
  };
  EXPECT_EQ(text(0x6060, 0, {0}), "0 (none)");
  EXPECT_EQ(text(0x2010, 1, {0xD4, 0xFE}), "-300 mm/s");
  EXPECT_EQ(text(0x2800, 0, {5}), "5");
  EXPECT_EQ(text(0x1008, 0, {'a'}), "\"a\"");
}

TEST(ReadingJson, has_number_and_words) {
  const NodeConfig node = worded_node();
  const auto json = [&](std::uint16_t index, std::uint8_t sub_index, const Bytes& bytes) {
    auto line = nlohmann::ordered_json::object();
    add_reading(line, read_value(&node, index, sub_index, bytes));
    return line.dump();
  };
  EXPECT_EQ(json(0x60FF, 0, {0xB3, 0xFF, 0xFF, 0xFF}), R"({"value":-77})");
  EXPECT_EQ(json(0x6041, 0, {8, 0}), R"({"value":8,"words":"Fault"})");
  EXPECT_EQ(json(0x2010, 3, {0xCD, 0xCC, 0xCC, 0x3D}), R"({"value":0.1,"words":"0.1 V"})");
  EXPECT_EQ(json(0x2010, 6, {255, 255, 255, 255, 255, 255, 255, 255}),
            R"({"value":18446744073709551615})");
  EXPECT_EQ(json(0x1008, 0, {'a', 'b'}), R"({"words":"ab"})");
  EXPECT_EQ(json(0x2800, 0, {1, 2, 3}), "{}");
}

}  // namespace
}  // namespace velmora_can_bridge
