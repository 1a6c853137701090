// Lines that a person types and edits on a terminal.
#pragma once

#include <atomic>
#include <cstdio>
#include <optional>
#include <string>

#include "velmora_can_bridge/cli/command_line.hpp"

struct editline;
struct history;

namespace velmora_can_bridge {

/// Reads lines from a terminal, with a history and with words that the tabulator completes. One
/// thread at a time.
class LineEditor {
 public:
  /// Both streams are those of the terminal. They and the flag, which a signal handler may set,
  /// outlive the editor.
  LineEditor(std::FILE* input, std::FILE* output, const std::atomic<bool>& interrupted);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor(LineEditor&&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;
  LineEditor& operator=(LineEditor&&) = delete;

  /// A line without its end; an empty one soon after the flag is set, no value when there are no
  /// more.
  std::optional<std::string> type(const std::string& prompt, const LineCompletion& completion);

 private:
  static LineEditor& of(editline* editor);
  static char* prompt_of(editline* editor);
  static int read_character(editline* editor, wchar_t* character);
  bool await_key() const;
  static unsigned char complete_word(editline* editor, int key);
  unsigned char complete();

  std::FILE* const output_;
  const int input_;
  const std::atomic<bool>* const interrupted_;
  editline* const editor_;
  history* const history_;
  // Of the line being typed.
  std::string prompt_;
  const LineCompletion* completion_ = nullptr;
};

}  // namespace velmora_can_bridge
