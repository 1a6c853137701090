#include "roff.hpp"

#include <algorithm>

#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "help_table.hpp"

namespace velmora_can_bridge {
namespace {

/// When the texts of the pages were changed last. A page has a date, and it has to be the same in
/// each build of a version.
constexpr const char* pages_date = "2026-11-22";

/// How roff writes the character of ASCII.
std::string roff_character(char character) {
  switch (character) {
    case '\\':
      return "\\(rs";
    case '-':
      return "\\-";
    case '\'':
      return "\\(aq";
    case '"':
      return "\\(dq";
    case '`':
      return "\\(ga";
    case '^':
      return "\\(ha";
    case '~':
      return "\\(ti";
    default:
      return {character};
  }
}

std::string in_capitals(std::string_view text) {
  std::string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(), [](char character) {
    const bool is_lower = 'a' <= character && character <= 'z';
    return is_lower ? static_cast<char>(character - 'a' + 'A') : character;
  });
  return capitals;
}

/// Short: it stands in the midst of a line that begins and ends with the name of the page.
std::string manual_of(int section) { return section == 1 ? "Commands" : "File Formats"; }

}  // namespace

std::string roff_text(std::string_view text) {
  // A point at the beginning of a line would be a request.
  std::string roff = !text.empty() && text.front() == '.' ? "\\&" : "";
  while (!text.empty()) {
    const std::size_t length = std::max<std::size_t>(character_length(text), 1);
    const std::string_view character = text.substr(0, length);
    text.remove_prefix(length);
    roff += length == 1 ? roff_character(character[0])
                        : "\\[u" + hex<4>(code_point(character)).substr(2) + "]";
  }
  return roff;
}

std::string roff_bold(std::string_view text) { return "\\fB" + roff_text(text) + "\\fR"; }

std::string roff_italic(std::string_view text) { return "\\fI" + roff_text(text) + "\\fR"; }

std::string roff_section(std::string_view title) {
  return ".SH " + roff_text(in_capitals(title)) + '\n';
}

std::string roff_entry(const std::string& tag, const std::string& body) {
  return ".TP\n" + tag + '\n' + body + '\n';
}

std::string roff_example(std::string_view lines) {
  std::string roff = ".RS 4\n.EX\n";
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    roff += roff_text(line) + '\n';
    lines.remove_prefix(std::min(line.size() + 1, lines.size()));
  }
  return roff + ".EE\n.RE\n";
}

std::string roff_head(const ManPageTitle& title) {
  // Neither hyphens at the ends of lines nor stretched blanks: names and options stay as they are.
  return ".TH " + roff_text(title.name) + " " + std::to_string(title.section) + " " + pages_date +
         " \"" + roff_text(program_version()) + "\" \"" + manual_of(title.section) +
         "\"\n.nr HY 0\n.nh\n.ad l\n" + roff_section("name") + roff_text(title.name) + " \\- " +
         roff_text(title.summary) + '\n';
}

std::string roff_reference(std::string_view name, int section) {
  return roff_bold(name) + "(" + std::to_string(section) + ")";
}

}  // namespace velmora_can_bridge
