#include "velmora_can_bridge/values/payload_words.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::string>;

ValueDescription described(ValueType type, const std::string& unit = "",
                           std::optional<double> scale = std::nullopt) {
  ValueDescription value;
  value.type = type;
  value.unit = unit;
  value.scale = scale;
  return value;
}

OperationConfig fields_write(const char* kind, std::uint8_t rpdo, std::vector<std::string> fields) {
  OperationConfig op;
  op.kind = kind;
  op.pdo_number = rpdo;
  op.fields = std::move(fields);
  return op;
}

OperationConfig object_write(std::uint16_t index, bool sub_index_in_payload = false) {
  OperationConfig op;
  op.kind = "sdo_write";
  op.index = index;
  op.subindex_in_payload = sub_index_in_payload ? 1 : 0;
  return op;
}

/// A lamp in RPDO 1, two wheels in RPDO 2, a float, a text and numbers of odd lengths.
NodeConfig words_node() {
  NodeConfig node;
  node.node_id = 1;
  node.board.pdos = {
      {1,
       "RPDO",
       0,
       {{0x2000, 1, 8, "led_red"},
        {0x2000, 2, 8, "led_green"},
        {0x2000, 3, 8, "led_blue"},
        {0x2000, 4, 8, "led_mode"},
        {0x2000, 5, 16, "led_period"}}},
      {2, "RPDO", 0, {{0x60FF, 0, 32, "left_speed"}, {0x68FF, 0, 32, "right_speed"}}},
      {3, "RPDO", 0, {{0x2001, 1, 24, "odd"}, {0x2001, 2, 40, "long"}}},
      {1, "TPDO", 0, {{0x2001, 3, 32, "limited"}, {0x2001, 4, 32, "plain"}}}};
  node.board.device_od_map = {{"wheel", {"ci402", 0x6040, 0}}};
  ValueDescription mode = described(ValueType::u8);
  mode.values = {{"off", Count()},
                 {"on", Count::of(1)},
                 {"breath", Count::of(2)},
                 {"slow_breath", Count::of(4)}};
  mode.maximum = Count::of(4);
  node.values[{0x2000, 4}] = mode;
  node.values[{0x2000, 5}] = described(ValueType::u16, "ms");
  ValueDescription speed = described(ValueType::s32, "m/s", 0.001);
  speed.minimum = Count::of(-5000);
  speed.maximum = Count::of(5000);
  node.values[{0x60FF, 0}] = speed;
  node.values[{0x68FF, 0}] = speed;
  node.values[{0x2100, 0}] = described(ValueType::float32, "V");
  node.values[{0x2101, 0}] = described(ValueType::text);
  node.values[{0x2102, 0}] = described(ValueType::u64);
  node.values[{0x2103, 0}] = described(ValueType::s64, "m", 1e-9);
  node.values[{0x2104, 3}] = described(ValueType::u16, "%", 0.1);
  for (const auto& [sub_index, scale] :
       {std::pair(1, 0.1), std::pair(2, 0.01), std::pair(3, 0.001)}) {
    node.values[{0x2107, static_cast<std::uint8_t>(sub_index)}] =
        described(ValueType::s32, "%", scale);
  }
  node.values[{0x2107, 0}] = described(ValueType::u64, "%");
  node.values[{0x2108, 0}] = described(ValueType::s64, "ns");
  ValueDescription limited;
  limited.maximum = Count::of(1000);
  node.values[{0x2001, 3}] = limited;
  node.values[{0x2105, 0}] = described(ValueType::u16, "A", 0.5);
  ValueDescription colour = described(ValueType::u8);
  colour.values = {{"add", Count::of(1)}, {"fade", Count::of(2)}, {"slow", Count::of(3)}};
  node.values[{0x2106, 0}] = colour;
  return node;
}

OperationConfig sub_object_write(std::uint16_t index, std::uint8_t sub_index) {
  OperationConfig op = object_write(index);
  op.sub_index = sub_index;
  return op;
}

OperationConfig default_write(std::uint16_t index) {
  OperationConfig op = object_write(index);
  op.default_data = {1};
  return op;
}

OperationConfig typed_write(const char* data_type, std::uint16_t index) {
  OperationConfig op = object_write(index);
  op.data_type = data_type;
  return op;
}

OperationConfig led() {
  return fields_write("pdo_write", 1,
                      {"led_red", "led_green", "led_blue", "led_mode", "led_period"});
}
OperationConfig drive() { return fields_write("pdo_write", 2, {"left_speed", "right_speed"}); }
OperationConfig drive_patch() {
  return fields_write("pdo_patch", 2, {"left_speed", "right_speed"});
}
OperationConfig odd() { return fields_write("pdo_write", 3, {"odd", "long"}); }
OperationConfig red() { return fields_write("pdo_write", 1, {"led_red"}); }

struct WordsRow {
  const char* name;
  OperationConfig op;
  Words words;
  Bytes expected;
};

void PrintTo(const WordsRow& row, std::ostream* out) { *out << row.name; }

class PayloadFromWords : public testing::TestWithParam<WordsRow> {};

TEST_P(PayloadFromWords, is_what_is_meant) {
  const NodeConfig node = words_node();
  const auto payload = payload_from_words({node, "wheel", GetParam().op}, GetParam().words);
  ASSERT_TRUE(payload) << payload.error();
  EXPECT_EQ(*payload, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Words, PayloadFromWords,
    testing::Values(
        WordsRow{"in_order", led(), {"255", "128", "0", "2", "800"}, {255, 128, 0, 2, 0x20, 0x03}},
        WordsRow{"by_last_words",
                 led(),
                 {"red=255", "green=128", "blue=0", "mode=breath", "period=800"},
                 {255, 128, 0, 2, 0x20, 0x03}},
        WordsRow{"by_name_in_any_order",
                 led(),
                 {"led_period=800", "led_mode=on", "blue=3", "green=2", "red=1"},
                 {1, 2, 3, 1, 0x20, 0x03}},
        WordsRow{"in_order_then_by_name",
                 led(),
                 {"1", "2", "3", "period=5", "mode=off"},
                 {1, 2, 3, 0, 5, 0}},
        WordsRow{"by_beginning",
                 drive(),
                 {"left=300", "r=-300"},
                 {0x2C, 1, 0, 0, 0xD4, 0xFE, 0xFF, 0xFF}},
        WordsRow{"negative", drive(), {"300", "-300"}, {0x2C, 1, 0, 0, 0xD4, 0xFE, 0xFF, 0xFF}},
        WordsRow{"bare_number_is_decimal", drive(), {"1000", "0"}, {0xE8, 3, 0, 0, 0, 0, 0, 0}},
        WordsRow{"hexadecimal_after_0x", drive(), {"0x10", "0X1f"}, {0x10, 0, 0, 0, 0x1F, 0, 0, 0}},
        WordsRow{
            "with_a_unit", drive(), {"0.5m/s", "-.25m/s"}, {0xF4, 1, 0, 0, 0x06, 0xFF, 0xFF, 0xFF}},
        WordsRow{"rounds_to_the_nearest_count",
                 drive(),
                 {"0.0004m/s", "0.0006m/s"},
                 {0, 0, 0, 0, 1, 0, 0, 0}},
        WordsRow{"halves_round_away_from_0",
                 drive(),
                 {"0.0005m/s", "-0.0005m/s"},
                 {1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
        WordsRow{"checked_after_rounding",
                 drive(),
                 {"5.0004m/s", "5m/s"},
                 {0x88, 0x13, 0, 0, 0x88, 0x13, 0, 0}},
        WordsRow{"exponent_before_the_unit", drive(), {"1e0m/s", "0"}, {0xE8, 3, 0, 0, 0, 0, 0, 0}},
        WordsRow{"unit_without_scale", led(), {"0", "0", "0", "0", "800ms"}, {0, 0, 0, 0, 0x20, 3}},
        WordsRow{
            "typed", drive(), {"s32:300", "s32:-300"}, {0x2C, 1, 0, 0, 0xD4, 0xFE, 0xFF, 0xFF}},
        WordsRow{"typed_by_name", drive(), {"left=s32:1", "right=s32:2"}, {1, 0, 0, 0, 2, 0, 0, 0}},
        WordsRow{"bytes_of_a_number", drive(), {"hex:2C010000", "0"}, {0x2C, 1, 0, 0, 0, 0, 0, 0}},
        WordsRow{"sign_that_nobody_tells", red(), {"s8:-1"}, {0xFF}},
        WordsRow{"patch_may_end", drive_patch(), {"300"}, {0x2C, 1, 0, 0}},
        WordsRow{"patch_of_nothing", drive_patch(), {}, {}},
        WordsRow{"three_bytes", odd(), {"0xABCDEF", "1"}, {0xEF, 0xCD, 0xAB, 1, 0, 0, 0, 0}},
        WordsRow{
            "five_bytes", odd(), {"0", "1099511627775"}, {0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        WordsRow{"float", object_write(0x2100), {"1.5"}, {0, 0, 0xC0, 0x3F}},
        WordsRow{"float_with_unit", object_write(0x2100), {"-2V"}, {0, 0, 0, 0xC0}},
        WordsRow{"typed_float", object_write(0x2100), {"float32:1.5"}, {0, 0, 0xC0, 0x3F}},
        WordsRow{"float_for_a_data_type_of_its_length",
                 typed_write("u32", 0x2100),
                 {"24V"},
                 {0, 0, 0xC0, 0x41}},
        WordsRow{"float_for_what_nobody_describes",
                 sub_object_write(0x2001, 4),
                 {"float32:1.5"},
                 {0, 0, 0xC0, 0x3F}},
        WordsRow{
            "number_of_the_length_of_a_mapping", sub_object_write(0x2001, 4), {"7"}, {7, 0, 0, 0}},
        WordsRow{"whole_number_beyond_53_bits",
                 object_write(0x2108),
                 {"9007199254740993ns"},
                 {1, 0, 0, 0, 0, 0, 0x20, 0}},
        WordsRow{"exponent_below_a_double", drive(), {"1e-400m/s", "0"}, Bytes(8, 0)},
        WordsRow{"negative_whole_number", object_write(0x2108), {"-1ns"}, Bytes(8, 0xFF)},
        WordsRow{"unit_of_hexadecimal_digits", object_write(0x2105), {"5A"}, {10, 0}},
        WordsRow{"name_of_hexadecimal_digits", object_write(0x2106), {"add"}, {1}},
        WordsRow{"text", object_write(0x2101), {"text:a b"}, {'a', ' ', 'b'}},
        WordsRow{
            "text_with_a_colon", object_write(0x2101), {"text:a:b=c"}, {'a', ':', 'b', '=', 'c'}},
        WordsRow{"bare_text", object_write(0x2101), {"hello"}, {'h', 'e', 'l', 'l', 'o'}},
        WordsRow{"empty_text", object_write(0x2101), {"text:"}, {}},
        WordsRow{"greatest_of_all",
                 object_write(0x2102),
                 {"18446744073709551615"},
                 {255, 255, 255, 255, 255, 255, 255, 255}},
        WordsRow{"least_of_all",
                 object_write(0x2103),
                 {"-9223372036854775808"},
                 {0, 0, 0, 0, 0, 0, 0, 0x80}},
        WordsRow{"tiny_counts", object_write(0x2103), {"1m"}, {0x00, 0xCA, 0x9A, 0x3B, 0, 0, 0, 0}},
        WordsRow{"untyped_object",
                 object_write(0x3000),
                 {"u16:750", "hex:0F00", "text:x"},
                 {0xEE, 2, 0x0F, 0, 'x'}},
        WordsRow{"no_bytes", object_write(0x3000), {"hex:"}, {}},
        WordsRow{"type_by_the_sub_index", object_write(0x2104, true), {"3", "75%"}, {3, 0xEE, 2}},
        WordsRow{"type_by_the_named_sub_index",
                 object_write(0x2104, true),
                 {"data=750", "sub=3"},
                 {3, 0xEE, 2}},
        WordsRow{"other_sub_index", object_write(0x2104, true), {"4", "u16:750"}, {4, 0xEE, 2}}),
    [](const auto& row) { return std::string(row.param.name); });

struct Refused {
  const char* name;
  OperationConfig op;
  Words words;
  /// Stands before the layout.
  const char* reason;
};

void PrintTo(const Refused& row, std::ostream* out) { *out << row.name; }

class WordsRefused : public testing::TestWithParam<Refused> {};

TEST_P(WordsRefused, with_the_reason_and_the_layout) {
  const NodeConfig node = words_node();
  const PayloadUse use{node, "wheel", GetParam().op};
  const auto payload = payload_from_words(use, GetParam().words);
  ASSERT_FALSE(payload);
  const auto layout = payload.error().find("; expected ");
  EXPECT_EQ(payload.error().substr(0, layout), GetParam().reason);
  ASSERT_NE(layout, std::string::npos);
  EXPECT_EQ(payload.error().find('\n'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Words, WordsRefused,
    testing::Values(
        Refused{"too_few", led(), {"1", "2"}, "led_blue is missing"},
        Refused{"none", drive(), {}, "left_speed is missing"},
        Refused{"too_many", drive(), {"1", "2", "3"}, "\"3\" is one value too many"},
        Refused{"for_nothing",
                fields_write("ci402_enable", 0, {}),
                {"1"},
                "\"1\" is one value too many"},
        Refused{"gap_in_a_patch", drive_patch(), {"right=3"}, "left_speed is missing"},
        Refused{"above", red(), {"256"}, "led_red: 256 is out of range, 0 to 255"},
        Refused{"below", red(), {"-1"}, "led_red: -1 is out of range, 0 to 255"},
        Refused{"far_above",
                red(),
                {"99999999999999999999"},
                "led_red: 99999999999999999999 is out of range, 0 to 255"},
        Refused{"above_the_maximum",
                drive(),
                {"5001", "0"},
                "left_speed: 5001 is out of range, -5000 to 5000"},
        Refused{"above_with_a_unit",
                drive(),
                {"6m/s", "0"},
                "left_speed: 6m/s, which is 6000 counts, is out of range, -5000 to 5000"},
        Refused{"far_above_with_a_unit",
                drive(),
                {"1e300m/s", "0"},
                "left_speed: 1e300m/s is out of range, -5000 to 5000"},
        Refused{"typed_above_the_maximum",
                drive(),
                {"s32:5001", "0"},
                "left_speed: 5001 is out of range, -5000 to 5000"},
        Refused{"bytes_above_the_maximum",
                drive(),
                {"hex:89130000", "0"},
                "left_speed: hex:89130000 is out of range, -5000 to 5000"},
        Refused{"wrong_width",
                drive(),
                {"s16:300", "s16:-300"},
                "left_speed: \"s16:300\" has the wrong type, expected s32"},
        Refused{"wrong_sign",
                drive(),
                {"u32:300", "0"},
                "left_speed: \"u32:300\" has the wrong type, expected s32"},
        Refused{"wrong_number_of_bytes",
                red(),
                {"hex:0F00"},
                "led_red: \"hex:0F00\" has the wrong width, expected u8"},
        Refused{"odd_digits",
                red(),
                {"hex:0"},
                "led_red: \"hex:0\": odd number of hexadecimal digits, every byte takes two"},
        Refused{"no_digits", red(), {"hex:xy"}, "led_red: \"hex:xy\": expected hexadecimal digits"},
        Refused{"text_for_a_number",
                red(),
                {"text:a"},
                "led_red: \"text:a\" has the wrong type, expected u8"},
        Refused{"number_for_a_text",
                object_write(0x2101),
                {"hex:0"},
                "value: \"hex:0\": odd number of hexadecimal digits, every byte takes two"},
        Refused{"unknown_type",
                red(),
                {"u24:1"},
                "led_red: unknown type \"u24\", expected u8, s8, u16, s16, u32, s32, u64, s64, "
                "float32, hex or text"},
        Refused{"float_for_a_range",
                sub_object_write(0x2001, 3),
                {"float32:1.5"},
                "limited: \"float32:1.5\" has the wrong type, expected u32"},
        Refused{"empty_text_where_there_is_a_default",
                default_write(0x2101),
                {"text:"},
                "value: an empty value would write the default"},
        Refused{"no_bytes_where_there_is_a_default",
                default_write(0x3000),
                {"hex:"},
                "value: an empty value would write the default"},
        Refused{"typed_no_number",
                drive(),
                {"s32:fast", "0"},
                "left_speed: \"fast\" is not a decimal or 0x hexadecimal number"},
        Refused{"typed_out_of_its_type",
                object_write(0x3000),
                {"u16:65536"},
                "value: \"u16:65536\": out of range, u16 is 0 to 65535"},
        Refused{"leading_0",
                red(),
                {"010"},
                "led_red: \"010\" begins with 0; write 10 for the number, hex:10 for bytes"},
        Refused{"digits_of_fewer_bytes",
                drive(),
                {"0F", "0"},
                "left_speed: \"0F\" is neither a number nor a name; write 0x0F for the number, "
                "hex:0F000000 for bytes"},
        Refused{"signed_hexadecimal",
                drive(),
                {"-0x1", "0"},
                "left_speed: \"-0x1\": a hexadecimal number has no sign; write it in decimal"},
        Refused{"decimal_comma",
                drive(),
                {"0,3m/s", "0"},
                "left_speed: \"0,3m/s\" has a comma; write a point, as in 0.5m/s"},
        Refused{"blank_before_the_unit",
                drive(),
                {"0.3 m/s", "0"},
                "left_speed: \"0.3 m/s\" has a blank; write number and unit without a blank"},
        Refused{"exponent_beyond_a_double",
                drive(),
                {"1e400m/s", "0"},
                "left_speed: 1e400m/s is out of range, -5000 to 5000"},
        Refused{"negative_exponent_beyond_a_double",
                drive(),
                {"-1e400m/s", "0"},
                "left_speed: -1e400m/s is out of range, -5000 to 5000"},
        Refused{"float_beyond_a_double",
                object_write(0x2100),
                {"1e400"},
                "value: out of range, a float32 is no greater than 3.4e38"},
        Refused{"at_2_to_the_64th",
                object_write(0x2107),
                {"18446744073709551616%"},
                "value: 18446744073709551616% is out of range, 0 to 18446744073709551615"},
        Refused{"text_with_an_equals_sign",
                object_write(0x2101),
                {"a=b"},
                "no value is called \"a\"; for a text write text:a=b"},
        Refused{
            "long_word",
            red(),
            {"z234567890123456789012345678901234567890123"},
            "led_red: \"z234567890123456789012345678901234567890...\" is no number; write bytes "
            "as hex:0F"},
        Refused{"long_word_of_long_characters",
                red(),
                {"z23456789012345678901234567890123456789\u00e90"},
                "led_red: \"z23456789012345678901234567890123456789...\" is no number; write bytes "
                "as hex:0F"},
        Refused{"hexadecimal_digits",
                red(),
                {"0F"},
                "led_red: \"0F\" is neither a number nor a name; write 0x0F for the number, hex:0F "
                "for bytes"},
        Refused{"colour_in_one_word",
                led(),
                {"FF8000"},
                "led_red: \"FF8000\" is neither a number nor a name; write 0xFF8000 for the "
                "number, hex:FF8000 for bytes"},
        Refused{"hexadecimal_beginning_of_a_name",
                object_write(0x2106),
                {"fad"},
                "value: \"fad\" is neither a number nor a name; write 0xfad for the number, "
                "hex:0fad for bytes"},
        Refused{"hexadecimal_digits_of_another_unit",
                object_write(0x2105),
                {"5B"},
                "value: \"5B\" is neither a number nor a name; write 0x5B for the number, hex:5B00 "
                "for bytes"},
        Refused{"no_name_of_a_code",
                red(),
                {"fast"},
                "led_red: \"fast\" is no number; write bytes as hex:0F"},
        Refused{"unknown_code",
                led(),
                {"0", "0", "0", "onn", "0"},
                "led_mode: no code is called \"onn\", did you mean \"on\"?"},
        Refused{
            "code_of_two", led(), {"0", "0", "0", "o", "0"}, "led_mode: \"o\" may be off or on"},
        Refused{"fraction_without_unit",
                drive(),
                {"0.5", "0"},
                "left_speed: \"0.5\" is no whole number of counts; with m/s behind it, it is "
                "converted"},
        Refused{"fraction_of_a_plain_value",
                red(),
                {"0.5"},
                "led_red: \"0.5\" is no whole number of counts"},
        Refused{"wrong_unit",
                drive(),
                {"5mm/s", "0"},
                "left_speed: \"5mm/s\" is in mm/s, expected m/s"},
        Refused{"unit_of_a_plain_value",
                red(),
                {"5ms"},
                "led_red: \"5ms\" has a unit, this value has none"},
        Refused{"infinite",
                drive(),
                {"infm/s", "0"},
                "left_speed: \"infm/s\" is no number; write bytes as hex:0F000000"},
        Refused{"empty_word", red(), {""}, "led_red: \"\" is no number; write bytes as hex:0F"},
        Refused{"unknown_name", led(), {"rde=1"}, "no value is called \"rde\""},
        Refused{"misspelt_name",
                led(),
                {"led_rad=1"},
                "no value is called \"led_rad\", did you mean \"led_red\"?"},
        Refused{"name_of_several",
                led(),
                {"led=1"},
                "\"led\" may be led_red, led_green, led_blue, led_mode or led_period"},
        Refused{"doubled_name", led(), {"red=1", "led_red=2"}, "led_red is given twice"},
        Refused{"in_order_and_by_name", led(), {"1", "red=2"}, "led_red is given twice"},
        Refused{"without_a_name_behind_one",
                led(),
                {"red=1", "2"},
                "\"2\" needs a name, as the value before it has one"},
        Refused{"no_value_behind_the_name",
                red(),
                {"red="},
                "led_red: \"\" is no number; write bytes as hex:0F"},
        Refused{"float_of_no_number",
                object_write(0x2100),
                {"nan"},
                "value: \"nan\" is not a decimal number"},
        Refused{"float_too_large",
                object_write(0x2100),
                {"1e39"},
                "value: out of range, a float32 is no greater than 3.4e38"},
        Refused{"float_too_large_with_unit",
                object_write(0x2100),
                {"1e39V"},
                "value: out of range, a float32 is no greater than 3.4e38"},
        Refused{"bare_number_for_bytes",
                object_write(0x3000),
                {"750"},
                "value: \"750\" does not say its type; write a number as u16:750, bytes as "
                "hex:0750, text as text:..."},
        Refused{"bare_word_for_bytes",
                object_write(0x3000),
                {"fast"},
                "value: \"fast\" does not say its type; write a number as u16:500, bytes as "
                "hex:0F00, text as text:..."},
        Refused{"wrong_selecting_value",
                object_write(0x2104, true),
                {"300", "75%"},
                "sub_index: 300 is out of range, 0 to 255"},
        Refused{"data_missing", object_write(0x2104, true), {"3"}, "data is missing"},
        Refused{"selecting_value_missing", object_write(0x2104, true), {}, "sub_index is missing"}),
    [](const auto& row) { return std::string(row.param.name); });

struct HalfCase {
  const char* name;
  std::uint8_t sub_index;
  const char* word;
  std::uint8_t count;
};

class Halves : public testing::TestWithParam<HalfCase> {};

TEST_P(Halves, round_away_from_0_as_they_are_written) {
  const NodeConfig node = words_node();
  const OperationConfig op = sub_object_write(0x2107, GetParam().sub_index);
  EXPECT_EQ(*payload_from_words({node, "", op}, {GetParam().word}),
            (Bytes{GetParam().count, 0, 0, 0}));
}

INSTANTIATE_TEST_SUITE_P(Scales, Halves,
                         testing::Values(HalfCase{"tenths_of_0_15", 1, "0.15%", 2},
                                         HalfCase{"tenths_of_0_25", 1, "0.25%", 3},
                                         HalfCase{"tenths_of_0_35", 1, "0.35%", 4},
                                         HalfCase{"tenths_below", 1, "0.2499999%", 2},
                                         HalfCase{"tenths_above", 1, "0.1500001%", 2},
                                         HalfCase{"tenths_just_below", 1, "0.1499999%", 1},
                                         HalfCase{"hundredths_of_0_015", 2, "0.015%", 2},
                                         HalfCase{"hundredths_of_0_285", 2, "0.285%", 29},
                                         HalfCase{"hundredths_of_0_145", 2, "0.145%", 15},
                                         HalfCase{"thousandths_of_0_0015", 3, "0.0015%", 2},
                                         HalfCase{"thousandths_of_0_0025", 3, "0.0025%", 3},
                                         HalfCase{"thousandths_of_0_0355", 3, "0.0355%", 36}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(PayloadWords, layout_stands_behind_the_reason) {
  const NodeConfig node = words_node();
  EXPECT_EQ(payload_from_words({node, "wheel", drive()}, {"1"}).error(),
            "right_speed is missing; expected left_speed s32, -5000 to 5000 in m/s; right_speed "
            "s32, -5000 to 5000 in m/s");
}

TEST(PayloadWords, of_an_operation_that_cannot_succeed_say_why) {
  const NodeConfig node = words_node();
  EXPECT_EQ(payload_from_words({node, "", fields_write("pdo_write", 9, {"a"})}, {"1"}).error(),
            "no payload can be right: the node has no RPDO 9");
}

TEST(PayloadWords, of_a_selected_object_that_has_no_range_say_why) {
  NodeConfig node = words_node();
  node.values[{0x2104, 4}] = described(ValueType::u8);
  node.values[{0x2104, 4}].minimum = Count::of(300);
  EXPECT_EQ(payload_from_words({node, "", object_write(0x2104, true)}, {"4", "7"}).error(),
            "no payload can be right: the range of data and that of the operation do not meet");
  EXPECT_EQ(object_from_words(&node, 0x2104, 4, {"7"}).error(),
            "no payload can be right: the range of value and that of the operation do not meet");
}

TEST(ObjectWords, need_a_type_of_their_own_without_a_board_file) {
  EXPECT_EQ(object_from_words(nullptr, 0x1017, 0, {"1000"}).error(),
            "value: \"1000\" does not say its type; write a number as u16:1000, bytes as hex:1000, "
            "text as text:...; expected value bytes");
  EXPECT_EQ(*object_from_words(nullptr, 0x1017, 0, {"u16:1000"}), (Bytes{0xE8, 3}));
  EXPECT_EQ(*object_from_words(nullptr, 0x1017, 0, {"u64:1", "s64:-1"}),
            (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255}));
  EXPECT_EQ(*object_from_words(nullptr, 0x1017, 0, {"hex:"}), Bytes{});
}

TEST(ObjectWords, follow_the_type_that_the_board_file_tells) {
  const NodeConfig node = words_node();
  EXPECT_EQ(*object_from_words(&node, 0x60FF, 0, {"-77"}), (Bytes{0xB3, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(*object_from_words(&node, 0x1017, 0, {"1000"}), (Bytes{0xE8, 3}));
  EXPECT_EQ(object_from_words(&node, 0x1017, 0, {"u32:1000"}).error(),
            "value: \"u32:1000\" has the wrong type, expected u16; expected value u16 in ms");
}

}  // namespace
}  // namespace velmora_can_bridge
