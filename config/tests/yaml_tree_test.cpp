#include "yaml_tree.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "problem_texts.hpp"

namespace velmora_can_bridge {
namespace {

using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::SizeIs;

class YamlProblems : public testing::TestWithParam<ProblemCase> {};

TEST_P(YamlProblems, of) {
  ProblemList problems;
  parse_yaml(GetParam().yaml, problems);
  EXPECT_EQ(texts_of(problems.take()), GetParam().problems);
}

INSTANTIATE_TEST_SUITE_P(
    file, YamlProblems,
    testing::Values(
        ProblemCase{"flow", "{a: [1, 2], b: {c: 3}}", {}},
        ProblemCase{"end_of_document", "a: 1\n...\n", {}},
        ProblemCase{"byte_order_mark",
                    "\xEF\xBB\xBF"
                    "a: 1\na: 2",
                    {"2:1: error: key \"a\" stands twice, first in line 1"}},
        ProblemCase{
            "empty", "", {"error: the file is empty, expected a map with the key \"nodes\""}},
        ProblemCase{"comment",
                    "# nothing\n",
                    {"error: the file is empty, expected a map with the key \"nodes\""}},
        ProblemCase{"null_alone",
                    "---\n~\n",
                    {"error: the file is empty, expected a map with the key \"nodes\""}},
        ProblemCase{"syntax",
                    "a: b: c",
                    {"1:5: error: illegal map value (a key before it lacks the blank behind its "
                     "colon, or the line is indented too far)"}},
        ProblemCase{"blank_missing_behind_a_colon",
                    "a:\n  b:1\n  c: 2\n",
                    {"3:4: error: illegal map value (a key before it lacks the blank behind its "
                     "colon, or the line is indented too far)"}},
        ProblemCase{"missing_brace",
                    "a: {b: 1\nc: {d: 1}\n",
                    {"2:2: error: end of map flow not found (a { has no }, or a comma is missing "
                     "before here)"}},
        ProblemCase{"missing_bracket",
                    "a: [1, 2\nb: [3]\n",
                    {"2:2: error: end of sequence flow not found (a [ has no ], or a comma is "
                     "missing before here)"}},
        ProblemCase{"brackets_crossed",
                    "a: {b: [1}\n",
                    {"1:10: error: illegal flow end (brackets close in the order in which they "
                     "opened)"}},
        ProblemCase{"key_indented_too_little",
                    "a:\n  b: 1\n c: 2\n",
                    {"3:2: error: end of map not found (indent keys of one map alike, with blanks "
                     "alone)"}},
        ProblemCase{"list_indented_too_little",
                    "a:\n  - b: 1\n   c: 2\n",
                    {"3:4: error: end of sequence not found (indent keys of one map alike, with "
                     "blanks alone)"}},
        ProblemCase{"tab",
                    "a:\n  b: 1\n\tc: 2\n",
                    {"3:1: error: illegal tab when looking for indentation (indent with blanks)"}},
        ProblemCase{"unclosed_quote", "a:\n  \"x", {"2:5: error: illegal EOF in scalar"}},
        ProblemCase{"escape_cut_off",
                    "a:\n  \"x\\U0",
                    {"2:8: error: bad character found while scanning hex n..."}},
        ProblemCase{"escape_cut_off_in_the_first_line",
                    "\"\\",
                    {"1:3: error: unknown escape character: \\x04"}},
        ProblemCase{
            "unknown_anchor", "a: *b", {"1:4: error: the referenced anchor is not defined"}},
        ProblemCase{"second_document",
                    "a: 1\n---\nb: 1\n",
                    {"2:1: error: a board file is one document, a second one begins here"}},
        ProblemCase{"tags",
                    "a: !!str 5\nb: !x [1]\nc: !y {}\n",
                    {"1:4: error: a board file has no tags, found \"tag:yaml.org,2002:str\"",
                     "2:4: error: a board file has no tags, found \"!x\"",
                     "3:4: error: a board file has no tags, found \"!y\""}},
        ProblemCase{"list_as_key", "? [1]\n: 2\n", {"1:3: error: expected a text as key"}},
        ProblemCase{"missing_key", "{: 2}", {"1:2: error: expected a text as key"}},
        ProblemCase{"key_twice",
                    "a: 1\nb: {c: 1, c: 2}\na: 3\n\"a\": 4\n",
                    {"2:11: error: key \"c\" stands twice, first in line 2",
                     "3:1: error: key \"a\" stands twice, first in line 1",
                     "4:1: error: key \"a\" stands twice, first in line 1"}},
        ProblemCase{"alias_of_its_list",
                    "a: &x [1, *x]",
                    {"1:11: error: the alias names the value that it stands in"}},
        ProblemCase{"alias_of_its_map",
                    "a: &x {b: {c: *x}}",
                    {"1:15: error: the alias names the value that it stands in"}}),
    RowName());

class YamlTreeTest : public testing::Test {
 protected:
  const YamlValue& root_of(const std::string& text) {
    tree = parse_yaml(text, problems);
    EXPECT_THAT(texts_of(problems.take()), IsEmpty());
    return *tree.root;
  }

  ProblemList problems;
  YamlTree tree;
};

TEST_F(YamlTreeTest, keeps_lists_in_order) {
  const YamlValue& list = root_of("[a, 'b']");
  ASSERT_THAT(list.elements, SizeIs(2));
  EXPECT_EQ(list.elements[0]->text, "a");
  EXPECT_FALSE(list.elements[0]->is_text);
  EXPECT_EQ(list.elements[1]->text, "b");
  EXPECT_TRUE(list.elements[1]->is_text);
}

TEST_F(YamlTreeTest, finds_values_by_key) {
  const YamlValue& map = root_of("a: 1\nb: 2\n");
  ASSERT_THAT(map.find("b"), NotNull());
  EXPECT_EQ(map.find("b")->text, "2");
  EXPECT_THAT(map.find("c"), IsNull());
}

TEST_F(YamlTreeTest, places_a_missing_value_at_its_key) {
  const YamlValue& map = root_of("\n  a:\n  b: 1\n");
  ASSERT_THAT(map.find("a"), NotNull());
  EXPECT_EQ(map.find("a")->type, YamlType::null);
  EXPECT_EQ(map.find("a")->at.line, 2U);
  EXPECT_EQ(map.find("a")->at.column, 3U);
}

TEST_F(YamlTreeTest, counts_columns_in_bytes) {
  const YamlValue& list = root_of("['\xC3\xBC', x]");
  ASSERT_THAT(list.elements, SizeIs(2));
  EXPECT_EQ(list.elements[1]->at.column, 8U);
}

TEST_F(YamlTreeTest, gives_an_alias_the_value_it_names) {
  const YamlValue& list = root_of("[&x {a: 1}, *x]");
  ASSERT_THAT(list.elements, SizeIs(2));
  EXPECT_EQ(list.elements[0], list.elements[1]);
}

TEST_F(YamlTreeTest, weighs_what_aliases_repeat) {
  // The list, twice a list with a text of three characters.
  EXPECT_EQ(root_of("[&x [abc], *x]").weight, 1U + 2U * (1U + 4U));
}

TEST_F(YamlTreeTest, keeps_the_root_beside_problems_that_are_no_syntax_errors) {
  tree = parse_yaml("{a: 1, a: 2}", problems);
  EXPECT_TRUE(problems.has_errors());
  ASSERT_THAT(tree.root, NotNull());
  ASSERT_THAT(tree.root->entries, SizeIs(1));
  EXPECT_EQ(tree.root->entries[0].value->text, "1");
}

TEST_F(YamlTreeTest, has_no_root_after_a_syntax_error) {
  tree = parse_yaml("a: 1\n]", problems);
  EXPECT_TRUE(problems.has_errors());
  EXPECT_THAT(tree.root, IsNull());
}

}  // namespace
}  // namespace velmora_can_bridge
