#include "script_line.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using Words = std::vector<std::string>;

TEST(ScriptWords, stand_between_blanks_and_before_a_comment) {
  EXPECT_EQ(*script_words(" a\tb  c#d # e 'f\r"), (Words{"a", "b", "c#d"}));
  EXPECT_EQ(*script_words("# a"), Words{});
}

TEST(ScriptWords, are_held_together_by_quotes) {
  EXPECT_EQ(*script_words("text:'a  b' \"# c\"d '' \"it's\""),
            (Words{"text:a  b", "# cd", "", "it's"}));
}

/// What the line asks for, in words.
std::string described(const std::string& line) {
  struct Description {
    std::string operator()(const EmptyLine& /*line*/) const { return "nothing"; }
    std::string operator()(const OperationLine& asked) const {
      std::string text =
          (asked.explains ? "explain " : "run ") + asked.device + "/" + asked.operation;
      for (const std::string& word : asked.payload) {
        text += " " + word;
      }
      return text;
    }
    std::string operator()(const PauseLine& asked) const {
      return "pause " + std::to_string(asked.time.count());
    }
    std::string operator()(const WaitLine& asked) const {
      return "wait " + asked.device + "/" + asked.condition + " " +
             std::to_string(asked.patience.count());
    }
  };
  const Expected<ScriptLine> parsed = parse_script_line(line);
  return parsed ? std::visit(Description(), *parsed) : "error: " + parsed.error();
}

struct LineRow {
  const char* name;
  const char* line;
  const char* meaning;
};

class ParsedLine : public testing::TestWithParam<LineRow> {};

TEST_P(ParsedLine, asks_for_what_it_says) {
  EXPECT_EQ(described(GetParam().line), GetParam().meaning);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ParsedLine,
    testing::Values(
        LineRow{"blank", " \t", "nothing"}, LineRow{"comment", "# led on", "nothing"},
        LineRow{"operation", "led set_led 1 2", "run led/set_led 1 2"},
        LineRow{"run", "run led set_led 1 2", "run led/set_led 1 2"},
        LineRow{"explain", "explain led set_led", "explain led/set_led"},
        LineRow{"device_named_wait", "run wait on", "run wait/on"},
        LineRow{"device_alone", "led", "error: expected \"DEVICE OPERATION [PAYLOAD...]\""},
        LineRow{"run_alone", "run led", "error: expected \"DEVICE OPERATION [PAYLOAD...]\""},
        LineRow{"milliseconds", "wait 200ms", "pause 200"},
        LineRow{"seconds", "wait 1.5s # a while", "pause 1500"},
        LineRow{"no_time", "wait 0ms", "pause 0"},
        LineRow{"a_day", "wait 86400s", "pause 86400000"},
        LineRow{"more_than_a_day", "wait 86401s",
                "error: \"86401s\" is no time, expected one such as 200ms or 5s, up to 86400s"},
        LineRow{"negative_time", "wait -1s",
                "error: \"-1s\" is no time, expected one such as 200ms or 5s, up to 86400s"},
        LineRow{"time_without_unit", "wait 200",
                "error: \"200\" is no time, expected one such as 200ms or 5s, up to 86400s"},
        LineRow{"time_that_is_no_number", "wait nans",
                "error: \"nans\" is no time, expected one such as 200ms or 5s, up to 86400s"},
        LineRow{"condition", "wait left fault", "wait left/fault 5000"},
        LineRow{"condition_with_time", "wait left fault 300ms", "wait left/fault 300"},
        LineRow{"condition_with_odd_time", "wait left fault soon",
                "error: \"soon\" is no time, expected one such as 200ms or 5s, up to 86400s"},
        LineRow{"wait_alone", "wait",
                "error: expected \"wait TIME\" or \"wait DEVICE CONDITION [TIME]\""},
        LineRow{"wait_for_too_much", "wait a b 1s c",
                "error: expected \"wait TIME\" or \"wait DEVICE CONDITION [TIME]\""},
        LineRow{"open_quote", "led 'set", "error: a quote does not end"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
