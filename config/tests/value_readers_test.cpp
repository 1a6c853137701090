#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "problem_texts.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// What the board of one node says of its objects.
class DescribedNode : public testing::Test {
 protected:
  void SetUp() override {
    const LoadedBoard loaded = parse_board(R"(
nodes:
  - node_id: 1
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x60FF, bit_length: 32, type: s32, unit: mm/s, minimum: -300, maximum: 0x12C,
             scale: 0.25}
          - {index: 0x2000, sub_index: 4, bit_length: 8, values: {off: 0, on: 1, yes: 2, no: 0x3}}
          - {index: 0x2000, sub_index: 5, bit_length: 8}
      - number: 1
        direction: TPDO
        mappings:
          - {index: 0x2000, sub_index: 4, bit_length: 8}
          - {index: 0x2001, bit_length: 12, unit: "%"}
    objects:
      - {index: 0x1008, type: text}
      - {index: 0x2100, sub_index: 255, minimum: -9223372036854775808,
         maximum: 18446744073709551615}
)");
    ASSERT_TRUE(loaded.file.has_value()) << testing::PrintToString(texts_of(loaded.problems));
    EXPECT_THAT(texts_of(loaded.problems), SizeIs(1)) << "the object without a type";
    node = loaded.file->nodes.at(0);
  }

  NodeConfig node;
};

TEST_F(DescribedNode, has_what_is_described_and_nothing_else) {
  std::string objects;
  for (const auto& [address, value] : node.values) {
    objects += std::to_string(address.index) + "/" + std::to_string(address.sub_index) + " ";
  }
  EXPECT_EQ(objects, "4104/0 8192/4 8193/0 8448/255 24831/0 ");
}

TEST_F(DescribedNode, has_every_part_of_a_field) {
  const ValueDescription& value = node.values.at({0x60FF, 0});
  EXPECT_EQ(value.type, ValueType::s32);
  EXPECT_EQ(value.unit, "mm/s");
  EXPECT_EQ(value.minimum, Count::of(-300));
  EXPECT_EQ(value.maximum, Count::of(300));
  ASSERT_TRUE(value.scale.has_value());
  EXPECT_DOUBLE_EQ(*value.scale, 0.25);
  EXPECT_THAT(value.values, IsEmpty());
}

TEST_F(DescribedNode, has_codes_in_the_order_of_the_file) {
  std::string codes;
  for (const NamedCode& named : node.values.at({0x2000, 4}).values) {
    codes += named.name + "=" + count_text(named.code) + " ";
  }
  EXPECT_EQ(codes, "off=0 on=1 yes=2 no=3 ");
}

TEST_F(DescribedNode, has_nothing_for_what_is_left_out) {
  const ValueDescription& value = node.values.at({0x1008, 0});
  EXPECT_EQ(value.type, ValueType::text);
  EXPECT_EQ(value.unit, "");
  EXPECT_EQ(value.minimum, std::nullopt);
  EXPECT_EQ(value.maximum, std::nullopt);
  EXPECT_EQ(value.scale, std::nullopt);
  EXPECT_EQ(node.values.at({0x2001, 0}).type, std::nullopt);
}

TEST_F(DescribedNode, has_counts_to_the_ends_of_64_bits) {
  const ValueDescription& value = node.values.at({0x2100, 255});
  ASSERT_TRUE(value.minimum && value.maximum);
  EXPECT_EQ(count_text(*value.minimum), "-9223372036854775808");
  EXPECT_EQ(count_text(*value.maximum), "18446744073709551615");
}

TEST_F(DescribedNode, still_has_its_mappings) {
  const PdoMapping& mapping = node.board.pdos.at(0).mappings.at(0);
  EXPECT_EQ(mapping.index, 0x60FF);
  EXPECT_EQ(mapping.bit_length, 32);
}

TEST(ValueTypes, are_read_by_their_names) {
  for (const char* name :
       {"u8", "s8", "u16", "s16", "u32", "s32", "u64", "s64", "float32", "text", "bytes"}) {
    const LoadedBoard loaded = parse_board(
        "nodes: [{node_id: 1, objects: [{index: 1, type: " + std::string(name) + "}]}]");
    ASSERT_TRUE(loaded.file.has_value()) << name;
    EXPECT_EQ(loaded.file->nodes.at(0).values.at({1, 0}).type, find_value_type(name)) << name;
  }
}

/// An object on line 2 that says so much of its value.
std::string object_yaml(const std::string& keys) {
  // The mapping tells what no type does, but for a length.
  return "nodes: [{node_id: 1, objects: [{index: 0x2000,\n" + keys +
         "}], pdos: [{number: 1, direction: TPDO, mappings: [{index: 0x2000, bit_length: 12}]}]}]";
}

struct ScaleCase {
  std::string name;
  std::string text;
  double scale;
};

void PrintTo(const ScaleCase& row, std::ostream* out) { *out << row.name; }

class Scale : public testing::TestWithParam<ScaleCase> {};

TEST_P(Scale, is_read) {
  const LoadedBoard loaded = parse_board(object_yaml("unit: V, scale: " + GetParam().text));
  ASSERT_TRUE(loaded.file.has_value()) << testing::PrintToString(texts_of(loaded.problems));
  EXPECT_EQ(loaded.file->nodes.at(0).values.at({0x2000, 0}).scale, GetParam().scale);
}

INSTANTIATE_TEST_SUITE_P(texts, Scale,
                         testing::Values(ScaleCase{"whole", "250", 250},
                                         ScaleCase{"fraction", "0.001", 0.001},
                                         ScaleCase{"exponent", "1e-3", 0.001},
                                         ScaleCase{"one", "1", 1},
                                         ScaleCase{"large", "1e300", 1e300}),
                         RowName());

class ValueProblems : public testing::TestWithParam<ProblemCase> {};

TEST_P(ValueProblems, of) {
  const LoadedBoard loaded = parse_board(GetParam().yaml);
  EXPECT_EQ(texts_of(loaded.problems), GetParam().problems);
}

ProblemCase value_case(const std::string& name, const std::string& keys, const Texts& problems) {
  return {name, object_yaml(keys), problems};
}

/// A minimum, which stands at 2:10.
ProblemCase count(const std::string& name, const std::string& text, const std::string& found) {
  return value_case(name, "minimum: " + text,
                    found.empty()
                        ? Texts{}
                        : Texts{"2:10: error: minimum: expected a whole number of at most 64 bits, "
                                "found " +
                                found});
}

INSTANTIATE_TEST_SUITE_P(
    count, ValueProblems,
    testing::Values(
        count("zero", "0", ""), count("minus_zero", "-0", ""), count("decimal", "-12", ""),
        count("hexadecimal", "0xFF", ""), count("negative_hexadecimal", "-0x80", ""),
        count("greatest", "0xFFFFFFFFFFFFFFFF", ""), count("least", "-0x8000000000000000", ""),
        count("too_large", "18446744073709551616", "\"18446744073709551616\""),
        count("far_too_large", "99999999999999999999999", "\"99999999999999999999999\""),
        count("too_small", "-9223372036854775809", "\"-9223372036854775809\""),
        count("plus", "+1", "\"+1\""), count("two_signs", "--1", "\"--1\""),
        count("sign_alone", "'-'", "the text \"-\""), count("fraction", "1.5", "\"1.5\""),
        count("exponent", "1e3", "\"1e3\" (a hexadecimal number is written 0x1e3)"),
        count("word", "low", "\"low\""),
        count("leading_zero", "010", "\"010\" (a number has no leading zeros)"),
        count("leading_zero_below_0", "-010", "\"-010\""), count("list", "[1]", "a list"),
        count("quoted", "'5'", "the text \"5\" (a number has no quotes)"),
        value_case("nothing", "minimum: ~",
                   {"2:1: error: minimum: expected a whole number of at most 64 bits, found "
                    "nothing"})),
    RowName());

/// A scale, which stands at 2:17.
ProblemCase scale(const std::string& name, const std::string& text, const std::string& found) {
  return value_case(
      name, "unit: V, scale: " + text,
      {"2:17: error: scale: expected a decimal number above 0, such as 0.001, found " + found});
}

INSTANTIATE_TEST_SUITE_P(
    scale, ValueProblems,
    testing::Values(scale("zero", "0", "\"0\""), scale("zero_point_zero", "0.0", "\"0.0\""),
                    scale("negative", "-1", "\"-1\""), scale("infinite", "inf", "\"inf\""),
                    scale("no_number", "nan", "\"nan\""), scale("too_large", "1e400", "\"1e400\""),
                    scale("too_small", "1e-400", "\"1e-400\""), scale("word", "x", "\"x\""),
                    scale("with_a_comma", "'0,5'", "the text \"0,5\""),
                    scale("hexadecimal", "0x10", "\"0x10\""),
                    scale("behind_it", "1 mm", "\"1 mm\""), scale("list", "[1]", "a list"),
                    scale("quoted", "'1'", "the text \"1\""),
                    scale("leading_zero", "01.5", "\"01.5\"")),
    RowName());

/// A unit, which stands at 2:7.
ProblemCase unit(const std::string& name, const std::string& text, const std::string& problem) {
  return value_case(name, "unit: " + text,
                    problem.empty() ? Texts{} : Texts{"2:7: error: " + problem});
}

ProblemCase number_like_unit(const std::string& name, const std::string& text,
                             const std::string& found) {
  return unit(name, text,
              "unit: expected a unit that stands behind a number without being taken for a part of "
              "it, so not one that begins with a digit, a sign, a point, or with x or e before a "
              "digit, found " +
                  found);
}

INSTANTIATE_TEST_SUITE_P(
    unit, ValueProblems,
    testing::Values(
        unit("plain", "mm/s", ""), unit("percent", "'%'", ""), unit("degree", "°C", ""),
        unit("x_alone", "x", ""), unit("e_word", "edges", ""), unit("e_sign", "e-", ""),
        unit("equals_sign", "a=b",
             R"(unit: expected a unit without "=" and ":", which split words, such as mm/s, found )"
             "\"a=b\""),
        unit("colon", "'a:b'",
             R"(unit: expected a unit without "=" and ":", which split words, such as mm/s, found )"
             "the text \"a:b\""),
        unit("empty", "''",
             "unit: expected a unit without blanks, such as mm/s, found the text "
             "\"\""),
        unit("blank", "mm s", "unit: expected a unit without blanks, such as mm/s, found \"mm s\""),
        unit("tab", "\"a\\tb\"",
             "unit: expected a unit without blanks, such as mm/s, found the text \"a\\x09b\""),
        unit("list", "[mm]", "unit: expected a text, found a list"),
        number_like_unit("digit", "1/min", "\"1/min\""), number_like_unit("sign", "-mm", "\"-mm\""),
        number_like_unit("plus", "+mm", "\"+mm\""), number_like_unit("point", ".mm", "\".mm\""),
        number_like_unit("x_digit", "x1", "\"x1\""), number_like_unit("e_digit", "e3", "\"e3\""),
        number_like_unit("upper_case_e", "E3", "\"E3\""),
        number_like_unit("e_sign_digit", "e-3", "\"e-3\"")),
    RowName());

/// Names of codes, which stand at 2:9 and on.
ProblemCase names(const std::string& name, const std::string& codes, const std::string& place,
                  const std::string& found) {
  return value_case(name, "values: {" + codes + "}",
                    found.empty()
                        ? Texts{}
                        : Texts{place + ": error: values: expected a word as name, found " + found +
                                " (it has no blank, \"=\" or \":\" and does not begin as a "
                                "number)"});
}

INSTANTIATE_TEST_SUITE_P(
    names, ValueProblems,
    testing::Values(
        names("words", "off: 0, on: 1, breath: 2", "", ""),
        names("sign_and_word", "-on: 1, .x: 2, +: 3, on2: 4", "", ""),
        names("empty", "'': 1", "2:10", "\"\""), names("number", "5: 1", "2:10", "\"5\""),
        names("quoted_number", "'5': 1", "2:10", "\"5\""),
        names("hexadecimal", "0x10: 1", "2:10", "\"0x10\""),
        names("below_0", "-1: 1", "2:10", "\"-1\""), names("fraction", "-.5: 1", "2:10", "\"-.5\""),
        names("number_with_unit", "5mm: 1", "2:10", "\"5mm\""),
        names("blank", "a: 1, b c: 2", "2:16", "\"b c\""),
        names("equals", "a=b: 1", "2:10", "\"a=b\""), names("colon", "a:b: 1", "2:10", "\"a:b\""),
        value_case("list", "values: [off, on]",
                   {"2:9: error: values: expected a map from names to numbers, found a list"}),
        value_case("no_number", "values: {off: no}",
                   {"2:15: error: values, off: expected a whole number of at most 64 bits, found "
                    "\"no\""}),
        value_case("name_twice", "values: {off: 0, off: 1}",
                   {"2:18: error: key \"off\" stands twice, first in line 2"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    record, ValueProblems,
    testing::Values(
        value_case(
            "unknown_type", "type: i16",
            {"2:7: error: type: expected u8, s8, u16, s16, u32, s32, u64, s64, float32, text or "
             "bytes, found \"i16\""}),
        value_case(
            "type_as_list", "type: [u8]",
            {"2:7: error: type: expected u8, s8, u16, s16, u32, s32, u64, s64, float32, text or "
             "bytes, found a list"}),
        value_case("slip", "units: mm",
                   {"2:1: error: object: unknown key \"units\", did you mean \"unit\"?"}),
        ProblemCase{"without_index",
                    "nodes: [{node_id: 1, objects: [{type: u8}]}]",
                    {"1:32: error: object: missing key \"index\""}},
        ProblemCase{"index_of_no_object",
                    "nodes: [{node_id: 1, objects: [{index: 0, type: u8}]}]",
                    {"1:40: error: index: expected a number from 1 to 0xFFFF, found \"0\""}},
        ProblemCase{"as_map",
                    "nodes: [{node_id: 1, objects: {index: 1}}]",
                    {"1:31: error: objects: expected a list, found a map"}},
        ProblemCase{"as_text",
                    "nodes: [{node_id: 1, objects: [x]}]",
                    {"1:32: error: object: expected a map, found \"x\""}},
        ProblemCase{"mapping_slip",
                    "nodes: [{node_id: 1, pdos: [{number: 1, direction: TPDO, mappings:\n"
                    "[{index: 1, bit_length: 8, minium: 1}]}]}]",
                    {"2:28: error: mapping: unknown key \"minium\", did you mean \"minimum\"?"}}),
    RowName());

/// Descriptions of these mappings, one a line from 2 on, and of these objects behind them.
ProblemCase both(const std::string& name, const std::string& mappings, const std::string& objects,
                 const Texts& problems) {
  return {name,
          "nodes: [{node_id: 1, pdos: [{number: 1, direction: TPDO, mappings: [\n" + mappings +
              "]}],\nobjects: [\n" + objects + "]}]",
          problems};
}

INSTANTIATE_TEST_SUITE_P(
    twice, ValueProblems,
    testing::Values(
        both("mappings",
             "{index: 0x2000, bit_length: 8, unit: a},\n"
             "{index: 0x2000, bit_length: 8,\n type: u8}",
             "", {"4:2: error: object 0x2000/0 is described twice, first in line 2"}),
        both("mapping_and_object", "{index: 0x2000, sub_index: 3, bit_length: 8, unit: a}",
             "{index: 0x2000, sub_index: 3, unit: a}",
             {"4:31: error: object 0x2000/3 is described twice, first in line 2"}),
        both("objects", "", "{index: 0x2000, type: u8},\n{index: 0x2000, sub_index: 0, type: u8}",
             {"5:31: error: object 0x2000/0 is described twice, first in line 4"}),
        both("sub_indices", "{index: 0x2000, sub_index: 1, bit_length: 8, unit: a}",
             "{index: 0x2000, sub_index: 2, type: u8}", {}),
        both("described_and_mapped",
             "{index: 0x2000, bit_length: 8, unit: a},\n"
             "{index: 0x2000, bit_length: 8}",
             "", {}),
        both("alias", "&a {index: 0x2000, bit_length: 8, unit: a}, *a", "", {}),
        both("unreadable_index", "", "{index: x, unit: a}, {index: 0, unit: a}",
             {"4:9: error: index: expected a number from 1 to 0xFFFF, found \"x\"",
              "4:30: error: index: expected a number from 1 to 0xFFFF, found \"0\""}),
        both("unreadable_sub_index", "", "{index: 1, sub_index: x, type: u8}, {index: 1, type: u8}",
             {"4:23: error: sub_index: expected a number from 0 to 255, found \"x\""}),
        ProblemCase{"in_two_nodes",
                    "nodes: [{node_id: 1, objects: [{index: 1, type: u8}]},\n"
                    "{node_id: 2, objects: [{index: 1, type: u8}]}]",
                    {}}),
    RowName());

}  // namespace
}  // namespace velmora_can_bridge
