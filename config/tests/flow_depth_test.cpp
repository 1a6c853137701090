#include "flow_depth.hpp"

#include <gtest/gtest.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace velmora_can_bridge {
namespace {

/// How deep the brackets of the text are nested.
std::size_t depth_of(const std::string& text) {
  std::size_t depth = 0;
  while (find_deep_flow(text, depth)) {
    ++depth;
  }
  return depth;
}

struct DepthCase {
  std::string name;
  std::string text;
  std::size_t depth;
};

void PrintTo(const DepthCase& row, std::ostream* out) { *out << row.name; }

class FlowDepth : public testing::TestWithParam<DepthCase> {};

TEST_P(FlowDepth, counts_brackets_that_open_something) {
  EXPECT_EQ(depth_of(GetParam().text), GetParam().depth);
}

INSTANTIATE_TEST_SUITE_P(
    of, FlowDepth,
    testing::Values(
        DepthCase{"nothing", "", 0}, DepthCase{"lists", "[[[a]]]", 3},
        DepthCase{"maps", "{a: {b: c}}", 2}, DepthCase{"both", "a: [{b: [c]}]", 3},
        DepthCase{"neighbours", "[[a], [b], {c: d}]", 2}, DepthCase{"lines", "[\n[\n[", 3},
        DepthCase{"unclosed", "[[[[", 4}, DepthCase{"closed_too_often", "]]]] [[", 2},
        DepthCase{"double_quoted", "[\"[[ \\\" [[\", 'a']", 1},
        DepthCase{"double_quoted_that_ends_with_a_backslash", "[\"\\\\\", [a]]", 2},
        DepthCase{"single_quoted", "['[[ '' [[', [a]]", 2},
        DepthCase{"quotes_inside_a_text", "[it's, [a \"b\", c\"]]", 2},
        DepthCase{"comments", "[ # [[[\n a, # [[[\n #[[[\n[b]]", 2},
        DepthCase{"hash_inside_a_text", "[a#b, [c]]", 2},
        DepthCase{"plain_text", "a: b[[[ [[[\n", 0},
        DepthCase{"plain_text_of_several_lines", "a: b\n  [[[\n  [[[ c\nd: [e]\n", 1},
        DepthCase{"plain_text_that_ends_at_its_indentation", "a: b\n[[[", 3},
        DepthCase{"plain_text_that_a_comment_ends", "a:\n  b\n  # c\n  [[", 2},
        DepthCase{"plain_text_in_brackets", "[a\n  b[c\n]]", 2},
        DepthCase{"block_text", "a: |\n  [[[\n\n  [[[\nb: [c]\n", 1},
        DepthCase{"folded_block_text", "- >-\n [[[\n- [a]\n", 1},
        DepthCase{"block_text_without_a_line", "a: |\n[[[", 3},
        DepthCase{"block_text_in_a_list_in_a_map", "a:\n  - b: |\n      [[[\n    c: [d]\n", 1},
        DepthCase{"block_text_of_given_indentation", "a: |2\n    b\n  [[[\n [c]", 1},
        DepthCase{"key_in_quotes", "\"[[\": [a]", 1},
        DepthCase{"value_behind_a_quote", "{\"a\":[b], 'c':[d]}", 2},
        DepthCase{"value_behind_a_bracket", "{[a]:[[b]]}", 3},
        DepthCase{"mark_of_a_document", "a: |\n  b\n---\n[[c]]", 2},
        DepthCase{"directive", "%YAML [[[\n---\n[a]", 1},
        DepthCase{"anchor_and_tag", "[&a [b], !c [d], *a]", 2},
        DepthCase{"byte_order_mark", "\xEF\xBB\xBF[a]", 1},
        DepthCase{"carriage_returns", "a: |\r\n  [[[\r\n\r\nb: c\r\n  [[\r\nd: [e]\r\n", 1}),
    [](const testing::TestParamInfo<DepthCase>& row) { return row.param.name; });

TEST(FlowDepth, ends_behind_the_first_bracket_too_many) {
  EXPECT_EQ(find_deep_flow("['[', [[a]]]", 2), 8U);
  EXPECT_EQ(find_deep_flow("['[', [[a]]]", 3), std::nullopt);
}

/// The deepest nesting in brackets that the parser tells of.
class DeepestFlow : public YAML::EventHandler {
 public:
  explicit DeepestFlow(std::string text) : text_(std::move(text)) {}

  void OnDocumentStart(const YAML::Mark& /*mark*/) override {}
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& /*mark*/, YAML::anchor_t /*anchor*/) override {}
  void OnAlias(const YAML::Mark& /*mark*/, YAML::anchor_t /*anchor*/) override {}
  void OnScalar(const YAML::Mark& /*mark*/, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                const std::string& /*text*/) override {}
  void OnSequenceStart(const YAML::Mark& /*mark*/, const std::string& /*tag*/,
                       YAML::anchor_t /*anchor*/, YAML::EmitterStyle::value style) override {
    begin(style == YAML::EmitterStyle::Flow);
  }
  void OnSequenceEnd() override { end(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                  YAML::EmitterStyle::value style) override {
    // In a list in brackets "a: b" is a map too, without any of its own.
    begin(style == YAML::EmitterStyle::Flow && text_.at(static_cast<std::size_t>(mark.pos)) == '{');
  }
  void OnMapEnd() override { end(); }

  std::size_t deepest() const { return deepest_; }

 private:
  void begin(bool has_brackets) {
    is_flow_.push_back(has_brackets);
    deepest_ = std::max(
        deepest_, static_cast<std::size_t>(std::count(is_flow_.begin(), is_flow_.end(), true)));
  }
  void end() { is_flow_.pop_back(); }

  const std::string text_;
  std::vector<bool> is_flow_;
  std::size_t deepest_ = 0;
};

/// A text of pieces that mean something, in a random order.
std::string random_text(std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "[",    "[",  "]",   "]",     "{",    "}",  ", ",   "a: ", "b",   "\n",   "\n  ",  "\n    ",
      "- ",   "? ", ": ",  "\"",    "'",    "\\", "#",    " # ", "|\n", ">-\n", "|1\n",  "\n# [\n",
      "'[' ", " ",  "'a'", "\"[\"", "&a b", "*a", "!x b", ":",   "c\n", "\n\n", "---\n", "- - "};
  std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1);
  std::uniform_int_distribution<int> length(1, 14);
  std::string text;
  for (int count = length(random); count > 0; --count) {
    text += pieces[piece(random)];
  }
  return text;
}

TEST(FlowDepth, agrees_with_the_parser_on_what_it_accepts) {
  int accepted = 0;
  for (unsigned seed = 0; seed < 20'000; ++seed) {
    std::mt19937 random(seed);
    const std::string text = random_text(random);
    DeepestFlow events(text);
    try {
      std::istringstream input(text);
      YAML::Parser parser(input);
      parser.HandleNextDocument(events);
      if (parser.HandleNextDocument(events)) {
        continue;  // No board file; of some the parser finds no end.
      }
    } catch (const YAML::Exception&) {
      continue;
    }
    ++accepted;
    EXPECT_EQ(depth_of(text), events.deepest()) << "seed " << seed << ": " << text;
  }
  EXPECT_GT(accepted, 500);
}

}  // namespace
}  // namespace velmora_can_bridge
