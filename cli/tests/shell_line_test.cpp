#include "shell_line.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

using Words = std::vector<std::string>;

/// COMP_WORDBREAKS as bash begins with it.
constexpr const char* bash_breaks = " \t\n\"'@><=;|&(:";

struct ShellLineRow {
  const char* name;
  const char* line;
  Words words;
  const char* begun;
  std::size_t kept;
  char quote;
};

class ShellLines : public testing::TestWithParam<ShellLineRow> {};

TEST_P(ShellLines, are_taken_apart_as_bash_does) {
  const ShellLine line = parse_shell_line(GetParam().line, bash_breaks, "/home/me");
  EXPECT_EQ(line.words, GetParam().words);
  EXPECT_EQ(line.begun, GetParam().begun);
  EXPECT_EQ(line.kept, GetParam().kept);
  EXPECT_EQ(line.quote, GetParam().quote);
  EXPECT_FALSE(line.is_redirected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ShellLines,
    testing::Values(
        ShellLineRow{"nothing", "", {}, "", 0, '\0'},
        ShellLineRow{"begun_word", "p ru", {"p"}, "ru", 0, '\0'},
        ShellLineRow{"behind_a_blank", "p \t run ", {"p", "run"}, "", 0, '\0'},
        ShellLineRow{"value_by_name", "p red=25", {"p"}, "red=25", 4, '\0'},
        ShellLineRow{"several_breaks", "p a=b:c", {"p"}, "a=b:c", 4, '\0'},
        ShellLineRow{"breaks_of_an_earlier_word", "p a=b c", {"p", "a=b"}, "c", 0, '\0'},
        ShellLineRow{"break_behind_a_backslash", "p a\\:b", {"p"}, "a:b", 0, '\0'},
        ShellLineRow{"break_in_closed_quotes", "p \"a:b\"c", {"p"}, "a:bc", 0, '\0'},
        ShellLineRow{"blank_behind_a_backslash", "p a\\ b", {"p"}, "a b", 0, '\0'},
        ShellLineRow{"closed_quotes", "p 'a b' \"c d\" e", {"p", "a b", "c d"}, "e", 0, '\0'},
        ShellLineRow{"empty_word", "p '' e", {"p", ""}, "e", 0, '\0'},
        ShellLineRow{"open_double_quote", "p \"a b=c", {"p"}, "a b=c", 0, '"'},
        ShellLineRow{"open_single_quote", "p x'a b", {"p"}, "xa b", 1, '\''},
        ShellLineRow{"break_before_an_open_quote", "p red='a", {"p"}, "red=a", 4, '\''},
        ShellLineRow{"backslash_in_double_quotes", R"(p "a\"\b)", {"p"}, R"(a"\b)", 0, '"'},
        ShellLineRow{"backslash_in_single_quotes", R"(p 'a\)", {"p"}, R"(a\)", 0, '\''},
        ShellLineRow{
            "quote_in_other_quotes", R"(p "it's" 'a"b' )", {"p", "it's", "a\"b"}, "", 0, '\0'},
        ShellLineRow{"folder_of_the_person",
                     "p ~/a ~ ~b x~ '~/c' ",
                     {"p", "/home/me/a", "/home/me", "~b", "x~", "~/c"},
                     "",
                     0,
                     '\0'},
        ShellLineRow{"folder_of_the_person_begun", "p ~/a", {"p"}, "~/a", 0, '\0'},
        ShellLineRow{"redirections", "p >out 2>&1 <in a >>b c", {"p", "a"}, "c", 0, '\0'},
        ShellLineRow{"redirection_at_the_end_of_a_word", "p a>out c", {"p", "a"}, "c", 0, '\0'}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ShellLine, ends_with_the_file_of_a_redirection) {
  for (const char* const text : {"p >a", "p > a", "p 2>a", "p x >>a"}) {
    const ShellLine line = parse_shell_line(text, bash_breaks, "");
    EXPECT_TRUE(line.is_redirected) << text;
    EXPECT_EQ(line.begun, "a") << text;
  }
}

struct ExpansionRow {
  const char* name;
  const char* line;
  bool begins_at_home;
  bool has_variable;
};

class Expansions : public testing::TestWithParam<ExpansionRow> {};

TEST_P(Expansions, are_seen_in_the_word_at_the_cursor) {
  const ShellLine line = parse_shell_line(GetParam().line, bash_breaks, "/home/me");
  EXPECT_EQ(line.begins_at_home, GetParam().begins_at_home);
  EXPECT_EQ(line.has_variable, GetParam().has_variable);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Expansions,
    testing::Values(ExpansionRow{"home", "p ~/a", true, false},
                    ExpansionRow{"home_of_a_redirection", "p >~/a", true, false},
                    ExpansionRow{"home_of_an_earlier_word", "p ~/a b", false, false},
                    ExpansionRow{"home_behind_equals", "p --board=~/a", false, false},
                    ExpansionRow{"home_behind_a_quote", "p \"~/a", false, false},
                    ExpansionRow{"home_behind_a_backslash", "p \\~/a", false, false},
                    ExpansionRow{"variable", "p $A/b", false, true},
                    ExpansionRow{"variable_inside", "p --board=$A", false, true},
                    ExpansionRow{"variable_in_double_quotes", "p \"$A", false, true},
                    ExpansionRow{"variable_in_single_quotes", "p '$A", false, false},
                    ExpansionRow{"variable_behind_a_backslash", "p \\$A", false, false},
                    ExpansionRow{"escaped_variable_in_quotes", R"(p "\$A)", false, false},
                    ExpansionRow{"variable_of_an_earlier_word", "p $A b", false, false}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ShellLine, breaks_where_the_person_wants_it) {
  EXPECT_EQ(parse_shell_line("p red=25", " ", "").kept, 0U);
}

TEST(ExpandedPath, knows_one_home_alone) {
  EXPECT_EQ(expanded_path("~/a", "/home/me"), "/home/me/a");
  EXPECT_EQ(expanded_path("~", "/home/me"), "/home/me");
  EXPECT_EQ(expanded_path("~you/a", "/home/me"), "~you/a");
  EXPECT_EQ(expanded_path("a/~", "/home/me"), "a/~");
  EXPECT_EQ(expanded_path("~/a", ""), "~/a");
}

struct QuotedRow {
  const char* name;
  const char* text;
  char quote;
  const char* quoted;
};

class ShellQuoted : public testing::TestWithParam<QuotedRow> {};

TEST_P(ShellQuoted, is_what_the_shell_takes_for_the_text) {
  const QuotedRow& row = GetParam();
  EXPECT_EQ(shell_quoted(row.text, row.quote), row.quoted);
  // And back, as a whole word.
  const std::string quote = row.quote == '\0' ? "" : std::string(1, row.quote);
  const ShellLine line =
      parse_shell_line("p " + quote + row.quoted + quote + " ", bash_breaks, "/home/me");
  EXPECT_EQ(line.words, (Words{"p", row.text}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ShellQuoted,
    testing::Values(QuotedRow{"plain", "left_wheel-2", '\0', "left_wheel-2"},
                    QuotedRow{"breaks", "red=5:a@b", '\0', "red=5:a@b"},
                    QuotedRow{"letters_of_other_tongues", "Räder", '\0', "Räder"},
                    QuotedRow{"blank", "my lamp", '\0', "my\\ lamp"},
                    QuotedRow{"quotes", R"(it's "x")", '\0', R"(it\'s\ \"x\")"},
                    QuotedRow{"backslash", R"(a\b)", '\0', R"(a\\b)"},
                    QuotedRow{"expansions", "$a`b*~#!", '\0', R"(\$a\`b\*\~\#\!)"},
                    QuotedRow{"operators", "a;b|c&d<e>f(g)", '\0', R"(a\;b\|c\&d\<e\>f\(g\))"},
                    QuotedRow{"in_double_quotes", R"(it's "x" \ $a `)", '"',
                              R"(it's \"x\" \\ \$a \`)"},
                    QuotedRow{"in_single_quotes", R"(it's "x" \)", '\'', R"(it'\''s "x" \)"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
