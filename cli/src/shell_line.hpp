// A command line as bash hands it to whoever completes its words.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmora_can_bridge {

/// A line up to the cursor.
struct ShellLine {
  /// The words before the one at the cursor, without quotes; the first is the program. What a
  /// redirection takes is none of them.
  std::vector<std::string> words;
  /// The word at the cursor as far as it is typed, without quotes.
  std::string begun;
  /// So many bytes of `begun` stay as they are: bash replaces what is behind them alone.
  std::size_t kept = 0;
  /// The quote that is open at the cursor, or 0.
  char quote = '\0';
  /// The word at the cursor is the file of a redirection.
  bool is_redirected = false;
  /// The word at the cursor begins with a "~" that stands for a home.
  bool begins_at_home = false;
  /// The word at the cursor holds a "$" that the shell expands.
  bool has_variable = false;
};

/// Takes the line apart as bash does. `breaks` is its variable COMP_WORDBREAKS: where one of these
/// characters stands in the word at the cursor, bash replaces what is behind it.
///
/// Of expansions it knows "~" alone, in front of a word before the cursor, which becomes `home`.
ShellLine parse_shell_line(std::string_view line, std::string_view breaks, std::string_view home);

/// The path with `home` in the place of a "~" that stands for it.
std::string expanded_path(const std::string& path, std::string_view home);

/// The text as it is typed inside `quote`; where that is 0, with backslashes before what the shell
/// would not take as it stands.
std::string shell_quoted(std::string_view text, char quote);

}  // namespace velmora_can_bridge
