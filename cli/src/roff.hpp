// Texts in the language of manual pages, man(7).
#pragma once

#include <string>
#include <string_view>

namespace velmora_can_bridge {

/// The text as roff prints it, character by character: a hyphen stays the one that people type.
std::string roff_text(std::string_view text);

std::string roff_bold(std::string_view text);
std::string roff_italic(std::string_view text);

/// ".SH NAME": begins a section, `title` in capitals.
std::string roff_section(std::string_view title);

/// An entry of a list: `tag` and `body` are roff, and not empty.
std::string roff_entry(const std::string& tag, const std::string& body);

/// Lines that stay as they are, indented.
std::string roff_example(std::string_view lines);

/// What a page says of itself.
struct ManPageTitle {
  /// "velmora-can-bridge-run".
  std::string name;
  /// Of the manual: 1 for commands, 5 for files.
  int section = 1;
  /// One line, which begins with a small letter and has no full stop.
  std::string summary;
};

/// The beginning of a page, up to its line of the name.
std::string roff_head(const ManPageTitle& title);

/// "velmora-can-bridge(1)".
std::string roff_reference(std::string_view name, int section);

}  // namespace velmora_can_bridge
