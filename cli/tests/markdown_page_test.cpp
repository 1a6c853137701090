#include "markdown_page.hpp"

#include <gmock/gmock.h>

#include "man_pages.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;
using testing::Not;

MarkdownPage page_of(std::vector<std::string> left_out = {}) {
  return {{"name", 5, "summary"}, std::move(left_out), "", {roff_reference("other", 1)}};
}

/// The page of the document on a terminal; without warnings.
std::string shown(const std::string& name, const std::string& markdown,
                  std::vector<std::string> left_out = {}) {
  const Expected<std::string> page = markdown_man_page(markdown, page_of(std::move(left_out)));
  EXPECT_TRUE(page) << (page ? "" : page.error());
  const PageFile file("markdown_" + name, page ? *page : "");
  EXPECT_EQ(file.warnings(), "");
  return file.shown();
}

struct BlockRow {
  const char* name;
  const char* markdown;
  const char* shown;
};

class MarkdownBlock : public testing::TestWithParam<BlockRow> {};

TEST_P(MarkdownBlock, is_shown) {
  EXPECT_THAT(shown(GetParam().name, GetParam().markdown), HasSubstr(GetParam().shown));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MarkdownBlock,
    testing::Values(
        BlockRow{"title", "# Title\n\nText.\n",
                 "\nNAME\n       name - summary\n\nDESCRIPTION\n       Text.\n\nSEE ALSO\n       "
                 "other(1)\n"},
        BlockRow{"section", "Text.\n\n## What it's for\n\nMore.\n",
                 "       Text.\n\nWHAT IT'S FOR\n       More.\n"},
        BlockRow{"paragraphs", "One\ntwo.\n\nThree.\n", "       One two.\n\n       Three.\n"},
        BlockRow{"code", "Text:\n\n```yaml\n- a:  1\n\n  b: \\n\n```\nMore.\n",
                 "       Text:\n\n           - a:  1\n\n             b: \\n\n\n       More.\n"},
        BlockRow{"code_first", "## A\n\n```\nb\n```\n", "\nA\n           b\n"},
        BlockRow{"list", "- one\n  two\n- three\n", "       • one two\n\n       • three\n"},
        BlockRow{"table_of_two", "| Kind | Keys |\n|---|---|\n| `a`, `b` | **`c`**, d |\n",
                 "\n   Kind: Keys\n       a, b   c, d\n"},
        BlockRow{"table_of_three",
                 "| PDO | Value | Default |\n|---|---|---|\n| a_long_name | 1 | |\n| b | | 2 |\n",
                 "\n   PDO\n       a_long_name\n              Value: 1\n\n       b      "
                 "Default: 2\n"},
        BlockRow{"marks", "A `code --x`, **bold**, [link](#there), [page](command-line.md).\n",
                 "       A code --x, bold, link, velmora-can-bridge(1).\n"},
        BlockRow{"link_to_a_command", "[a](command-line.md#sdo-one-object-of-a-node) b.\n",
                 "       velmora-can-bridge-sdo(1) b.\n"},
        BlockRow{"link_to_another_section", "[a](command-line.md#exit-status) b.\n",
                 "       velmora-can-bridge(1) b.\n"},
        BlockRow{"link_to_another_document", "[a](commands.md#sdo) b.\n", "       a b.\n"},
        BlockRow{"marks_that_do_not_end", "A `b, c * d, [e](f\n", "       A `b, c * d, [e](f\n"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(MarkdownPage, marks_code_and_what_is_bold) {
  const auto page = markdown_man_page("a `b` **`c`** [d `e`](f.md)\n", page_of());
  ASSERT_TRUE(page);
  EXPECT_THAT(*page, HasSubstr("\na \\fIb\\fR \\fBc\\fR d e\n"));
}

TEST(MarkdownPage, tells_of_files_before_other_pages) {
  MarkdownPage page = page_of();
  page.files = roff_entry("file", "a file");
  EXPECT_THAT(*markdown_man_page("Text.\n", page),
              HasSubstr("Text.\n.SH FILES\n.TP\nfile\na file\n.SH SEE ALSO\n"));
}

TEST(MarkdownPage, leaves_out_what_is_for_others) {
  const std::string text = shown("left_out",
                                 "Text.\n\n```cpp\nint a;\n```\n\n## For others\n\nSecret.\n\n"
                                 "- item\n\n## For all\n\nOpen.\n",
                                 {"For others"});
  EXPECT_THAT(text, HasSubstr("       Text.\n\nFOR ALL\n       Open.\n"));
  EXPECT_THAT(text, Not(HasSubstr("int a")));
  EXPECT_THAT(text, Not(HasSubstr("item")));
}

TEST(MarkdownPage, tells_which_section_it_does_not_find) {
  const auto page = markdown_man_page("## For everybody\n", page_of({"For others"}));
  ASSERT_FALSE(page);
  EXPECT_EQ(page.error(), "the section \"For others\", which is to be left out, is not there");
}

struct UnknownLineRow {
  const char* name;
  const char* line;
};

class RefusedMarkdown : public testing::TestWithParam<UnknownLineRow> {};

TEST_P(RefusedMarkdown, is_told_by_its_line) {
  const auto page = markdown_man_page("Text.\n\n" + std::string(GetParam().line), page_of());
  ASSERT_FALSE(page);
  const std::string line = GetParam().line;
  EXPECT_EQ(page.error(), "line 3: \"" + line.substr(0, line.find('\n')) +
                              "\" is nothing that a page is made of");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RefusedMarkdown,
    testing::Values(UnknownLineRow{"deep_heading", "### a\n"}, UnknownLineRow{"quotation", "> a\n"},
                    UnknownLineRow{"other_bullets", "* a\n"},
                    UnknownLineRow{"picture", "![a](b.png)\n"},
                    UnknownLineRow{"tags", "<b>a</b>\n"}, UnknownLineRow{"indented", "    a\n"},
                    UnknownLineRow{"code_without_end", "```\na\n"},
                    UnknownLineRow{"table_without_line", "| a | b |\n| c | d |\n"},
                    UnknownLineRow{"table_of_one", "| a |\n|---|\n"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
