// Manual pages of documents that are written in Markdown.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "roff.hpp"
#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// What a page takes from its document, and what stands behind that.
struct MarkdownPage {
  ManPageTitle title;
  /// Headings of sections that are for other readers.
  std::vector<std::string> left_out;
  /// Entries of the section of files, in roff; empty for no such section.
  std::string files;
  /// References to other pages, in roff.
  std::vector<std::string> see_also;
};

/// The page in roff, of a document with one title, sections, paragraphs, lists, tables and code.
/// Rows of tables become entries. Code in C++ is left out. Or the line of the document that is
/// nothing of these, or the section that is to be left out and is not there.
Expected<std::string> markdown_man_page(std::string_view markdown, const MarkdownPage& page);

}  // namespace velmora_can_bridge
