#include "shell_line.hpp"

#include <algorithm>

namespace velmora_can_bridge {
namespace {

bool separates_words(char character) {
  return character == ' ' || character == '\t' || character == '\n';
}

bool holds(std::string_view characters, char character) {
  return characters.find(character) != std::string_view::npos;
}

/// Reads a line character by character.
class LineReader {
 public:
  LineReader(std::string_view breaks, std::string_view home) : breaks_(breaks), home_(home) {}

  void take(char character) {
    if (is_escaped_) {
      take_escaped(character);
    } else if (character == '\\' && line_.quote != '\'') {
      is_escaped_ = true;
      is_begun_ = true;
    } else if (line_.quote != '\0') {
      take_quoted(character);
    } else {
      take_bare(character);
    }
  }

  ShellLine finish() {
    // Behind an open quote bash replaces all that stands in it, break characters included.
    line_.kept = line_.quote != '\0' ? quote_begin_ : break_end_;
    line_.is_redirected = is_redirected_;
    line_.begins_at_home = has_home_;
    return line_;
  }

 private:
  /// Between double quotes a backslash stands for itself before most characters.
  void take_escaped(char character) {
    is_escaped_ = false;
    if (line_.quote == '"' && !holds("\\\"$`", character)) {
      line_.begun += '\\';
    }
    line_.begun += character;
  }

  void take_quoted(char character) {
    if (character == line_.quote) {
      line_.quote = '\0';
      return;
    }
    line_.has_variable = line_.has_variable || (line_.quote == '"' && character == '$');
    line_.begun += character;
  }

  void take_bare(char character) {
    if (character == '"' || character == '\'') {
      line_.quote = character;
      quote_begin_ = line_.begun.size();
      is_begun_ = true;
    } else if (separates_words(character)) {
      end_word();
    } else if (character == '<' || character == '>') {
      begin_redirection();
    } else {
      take_plain(character);
    }
  }

  void take_plain(char character) {
    has_home_ = has_home_ || (!is_begun_ && character == '~');
    line_.has_variable = line_.has_variable || character == '$';
    is_begun_ = true;
    line_.begun += character;
    if (holds(breaks_, character)) {
      break_end_ = line_.begun.size();
    }
  }

  void end_word() {
    if (!is_begun_) {
      return;
    }
    if (!is_redirected_) {
      line_.words.push_back(has_home_ ? expanded_path(line_.begun, home_) : line_.begun);
    }
    is_redirected_ = false;
    begin_word();
  }

  /// "2>", ">": the number before it belongs to it.
  void begin_redirection() {
    const bool is_number = std::all_of(line_.begun.begin(), line_.begun.end(),
                                       [](char digit) { return '0' <= digit && digit <= '9'; });
    if (is_number) {
      begin_word();
    }
    end_word();
    is_redirected_ = true;
  }

  void begin_word() {
    line_.begun.clear();
    line_.has_variable = false;
    is_begun_ = false;
    has_home_ = false;
    break_end_ = 0;
  }

  const std::string_view breaks_;
  const std::string_view home_;
  ShellLine line_;
  bool is_escaped_ = false;
  bool is_begun_ = false;
  bool has_home_ = false;
  bool is_redirected_ = false;
  // Bytes of the word before the quote that was opened last, and up to its last break character.
  std::size_t quote_begin_ = 0;
  std::size_t break_end_ = 0;
};

/// What the shell takes as it stands, wherever in a word.
bool is_plain(char character) {
  const auto byte = static_cast<unsigned char>(character);
  const bool is_letter = ('a' <= character && character <= 'z') ||
                         ('A' <= character && character <= 'Z') ||
                         ('0' <= character && character <= '9');
  return is_letter || byte >= 0x80 || holds("_-+=:.,/@%^", character);
}

/// A quote inside single quotes: they end before it and begin again behind it.
std::string single_quoted(std::string_view text) {
  std::string quoted;
  for (const char character : text) {
    quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return quoted;
}

}  // namespace

ShellLine parse_shell_line(std::string_view line, std::string_view breaks, std::string_view home) {
  LineReader reader(breaks, home);
  for (const char character : line) {
    reader.take(character);
  }
  return reader.finish();
}

std::string expanded_path(const std::string& path, std::string_view home) {
  const bool is_home = path == "~" || path.rfind("~/", 0) == 0;
  return is_home && !home.empty() ? std::string(home) + path.substr(1) : path;
}

std::string shell_quoted(std::string_view text, char quote) {
  if (quote == '\'') {
    return single_quoted(text);
  }
  std::string quoted;
  for (const char character : text) {
    const bool is_taken = quote == '"' ? !holds("\\\"$`", character) : is_plain(character);
    quoted += is_taken ? "" : "\\";
    quoted += character;
  }
  return quoted;
}

}  // namespace velmora_can_bridge
