#include "markdown_page.hpp"

#include <algorithm>
#include <optional>
#include <set>

#include "help_table.hpp"
#include "man_page.hpp"

namespace velmora_can_bridge {
namespace {

using Lines = std::vector<std::string_view>;

bool begins(std::string_view line, std::string_view with) {
  return line.substr(0, with.size()) == with;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
  text.remove_prefix(begin);
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

Lines lines_of(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    lines.push_back(line);
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  return lines;
}

/// What a part of a text stands in.
struct Marked {
  std::string_view text;
  std::string_view target;
  std::size_t length = 0;
};

/// The text behind the mark with which `text` begins, up to the next one; no length without a next.
Marked marked_by(std::string_view text, std::string_view mark) {
  const std::size_t end = text.find(mark, mark.size());
  if (!begins(text, mark) || end == std::string_view::npos) {
    return {};
  }
  return {text.substr(mark.size(), end - mark.size()), "", end + mark.size()};
}

/// "[text](target)".
Marked link_of(std::string_view text) {
  const std::size_t middle = text.find("](");
  const std::size_t end = text.find(')', middle);
  if (!begins(text, "[") || middle == std::string_view::npos || end == std::string_view::npos) {
    return {};
  }
  return {text.substr(1, middle - 1), text.substr(middle + 2, end - middle - 2), end + 1};
}

/// Without the marks.
std::string without_marks(std::string_view text) {
  std::string without;
  for (const char character : text) {
    without += character == '`' || character == '*' ? "" : std::string(1, character);
  }
  return without;
}

/// The command of a section of the program's document: each of those begins with its command.
std::string_view command_of(std::string_view anchor) {
  const std::string_view word = anchor.substr(0, anchor.find('-'));
  return find_command_help(word) == nullptr ? "" : word;
}

std::string link_text(const Marked& link) {
  constexpr std::string_view document = "command-line.md";
  const std::string_view file = link.target.substr(0, link.target.find('#'));
  if (file != document) {
    return roff_text(without_marks(link.text));
  }
  const bool has_anchor = link.target != document;
  const std::string_view anchor = link.target.substr(has_anchor ? file.size() + 1 : file.size());
  return roff_reference(man_page_name(command_of(anchor)), 1);
}

/// A line of text with its marks as fonts.
std::string inline_roff(std::string_view text) {
  std::string roff;
  std::string bare;
  while (!text.empty()) {
    const Marked bold = marked_by(text, "**");
    const Marked code = marked_by(text, "`");
    const Marked link = link_of(text);
    const std::size_t length = std::max({bold.length, code.length, link.length});
    if (length == 0) {
      bare += text.front();
      text.remove_prefix(1);
      continue;
    }
    roff += roff_text(bare);
    bare.clear();
    text.remove_prefix(length);
    if (bold.length != 0) {
      roff += roff_bold(without_marks(bold.text));
    } else {
      roff += code.length != 0 ? roff_italic(code.text) : link_text(link);
    }
  }
  return roff + roff_text(bare);
}

Lines cells_of(std::string_view row) {
  Lines cells;
  row.remove_prefix(1);
  for (std::size_t end = row.find('|'); end != std::string_view::npos; end = row.find('|')) {
    cells.push_back(trimmed(row.substr(0, end)));
    row.remove_prefix(end + 1);
  }
  return cells;
}

/// Makes the page block by block.
class PageWriter {
 public:
  explicit PageWriter(const MarkdownPage& page) : page_(&page) {}

  /// The line, counted from 0, that is nothing that a page can hold; no value when there is none.
  std::optional<std::size_t> write(const Lines& lines) {
    roff_ = roff_head(page_->title) + roff_section("description");
    std::size_t next = 0;
    while (next < lines.size()) {
      const std::size_t end = write_block(lines, next);
      if (end == next) {
        return next;
      }
      next = end;
    }
    return std::nullopt;
  }

  bool has_left_out(const std::string& section) const { return left_out_.count(section) != 0; }

  std::string finish() {
    std::string references;
    for (const std::string& reference : page_->see_also) {
      references += (references.empty() ? "" : ",\n") + reference;
    }
    const std::string files = page_->files.empty() ? "" : roff_section("files") + page_->files;
    return roff_ + files + roff_section("see also") + references + '\n';
  }

 private:
  /// Writes what begins at `next`; the line behind it, or `next` where that is nothing known.
  std::size_t write_block(const Lines& lines, std::size_t next) {
    const std::string_view line = lines[next];
    if (line.empty() || begins(line, "# ")) {
      return next + 1;  // the page has its own title
    }
    if (begins(line, "## ")) {
      begin_section(line.substr(3));
      return next + 1;
    }
    if (begins(line, "```")) {
      return write_code(lines, next);
    }
    if (begins(line, "| ")) {
      return write_table(lines, next);
    }
    if (begins(line, "- ")) {
      return write_item(lines, next);
    }
    const bool is_text = std::string_view("#>*+<!=_~ \t").find(line.front()) == std::string::npos;
    return is_text ? write_paragraph(lines, next) : next;
  }

  void begin_section(std::string_view heading) {
    const std::string name = without_marks(heading);
    is_left_out_ = std::count(page_->left_out.begin(), page_->left_out.end(), name) != 0;
    if (is_left_out_) {
      left_out_.insert(name);
    }
    add(roff_section(name));
    is_at_heading_ = true;
  }

  std::size_t write_code(const Lines& lines, std::size_t next) {
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(next);
    const auto end = std::find(begin + 1, lines.end(), "```");
    if (end == lines.end()) {
      return next;
    }
    std::string code;
    std::for_each(begin + 1, end, [&](std::string_view line) { code += std::string(line) + '\n'; });
    if (*begin != "```cpp") {
      add((is_at_heading_ ? "" : ".PP\n") + roff_example(code));
      is_at_heading_ = false;
    }
    return static_cast<std::size_t>(end - lines.begin()) + 1;
  }

  std::size_t write_table(const Lines& lines, std::size_t next) {
    const Lines header = cells_of(lines[next]);
    if (header.size() < 2 || next + 1 == lines.size() || !begins(lines[next + 1], "|--")) {
      return next;
    }
    const bool has_labels = header.size() > 2;
    add(".SS " +
        roff_text(without_marks(header[0]) + (has_labels ? "" : ": " + without_marks(header[1]))) +
        '\n');
    std::size_t row = next + 2;
    for (; row < lines.size() && begins(lines[row], "| "); ++row) {
      add(roff_entry(roff_bold(without_marks(cells_of(lines[row]).front())),
                     row_text(header, cells_of(lines[row]))));
    }
    is_at_heading_ = false;
    return row;
  }

  /// The cells behind the first, each on a line of its own with its heading where there are
  /// several.
  static std::string row_text(const Lines& header, const Lines& cells) {
    std::string text;
    for (std::size_t cell = 1; cell < std::min(cells.size(), header.size()); ++cell) {
      if (cells[cell].empty()) {
        continue;
      }
      const std::string label =
          header.size() > 2 ? roff_text(without_marks(header[cell])) + ": " : "";
      text += (text.empty() ? "" : "\n.br\n") + label + inline_roff(cells[cell]);
    }
    return text;
  }

  std::size_t write_item(const Lines& lines, std::size_t next) {
    std::string text(lines[next].substr(2));
    std::size_t end = next + 1;
    for (; end < lines.size() && begins(lines[end], "  "); ++end) {
      text += " " + std::string(trimmed(lines[end]));
    }
    add(".IP \\(bu 2\n" + inline_roff(text) + '\n');
    is_at_heading_ = false;
    return end;
  }

  std::size_t write_paragraph(const Lines& lines, std::size_t next) {
    std::string text;
    std::size_t end = next;
    for (; end < lines.size() && !lines[end].empty(); ++end) {
      text += (text.empty() ? "" : " ") + std::string(lines[end]);
    }
    add((is_at_heading_ ? "" : ".PP\n") + inline_roff(text) + '\n');
    is_at_heading_ = false;
    return end;
  }

  void add(const std::string& roff) { roff_ += is_left_out_ ? "" : roff; }

  const MarkdownPage* const page_;
  std::string roff_;
  std::set<std::string> left_out_;
  bool is_left_out_ = false;
  // A paragraph begins there by itself.
  bool is_at_heading_ = true;
};

}  // namespace

Expected<std::string> markdown_man_page(std::string_view markdown, const MarkdownPage& page) {
  const Lines lines = lines_of(markdown);
  PageWriter writer(page);
  if (const std::optional<std::size_t> refused = writer.write(lines)) {
    return Unexpected{"line " + std::to_string(*refused + 1) + ": \"" +
                      std::string(lines[*refused]) + "\" is nothing that a page is made of"};
  }
  for (const std::string& section : page.left_out) {
    if (!writer.has_left_out(section)) {
      return Unexpected{"the section \"" + section + "\", which is to be left out, is not there"};
    }
  }
  return writer.finish();
}

}  // namespace velmora_can_bridge
