#include "line_editor.hpp"

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <vector>

#include "line_completion.hpp"

// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg): how libedit declares its functions
namespace velmora_can_bridge {
namespace {

constexpr int remembered_lines = 500;

// How long an interruption may go unnoticed, in milliseconds.
constexpr int key_patience = 50;

}  // namespace

LineEditor::LineEditor(std::FILE* input, std::FILE* output, const std::atomic<bool>& interrupted)
    : output_(output),
      input_(fileno(input)),
      interrupted_(&interrupted),
      editor_(el_init("velmora-can-bridge", input, output, output)),
      history_(history_init()) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing has started a thread yet
  static_cast<void>(std::setlocale(LC_CTYPE, ""));  // characters of several bytes are edited as one
  HistEvent event;
  history(history_, &event, H_SETSIZE, remembered_lines);
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_PROMPT, &LineEditor::prompt_of);
  el_set(editor_, EL_GETCFN, &LineEditor::read_character);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_HIST, history, history_);
  // As wide texts, which need no copy: the editor would never give that back.
  el_wset(editor_, EL_ADDFN, L"complete", L"complete the word", &LineEditor::complete_word);
  el_set(editor_, EL_BIND, "^I", "complete", nullptr);
}

LineEditor::~LineEditor() {
  el_end(editor_);
  history_end(history_);
}

std::optional<std::string> LineEditor::type(const std::string& prompt,
                                            const LineCompletion& completion) {
  prompt_ = prompt;
  completion_ = &completion;
  int length = 0;
  errno = 0;
  const char* const typed = el_gets(editor_, &length);
  if (typed == nullptr || length <= 0) {
    static_cast<void>(std::fputc('\n', output_));
    return errno == EINTR ? std::make_optional(std::string()) : std::nullopt;
  }
  std::string line(typed, static_cast<std::size_t>(length));
  line.erase(line.find_last_not_of("\r\n") + 1);
  if (!line.empty()) {
    HistEvent event;
    history(history_, &event, H_ENTER, line.c_str());
  }
  return line;
}

LineEditor& LineEditor::of(editline* editor) {
  void* self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return *static_cast<LineEditor*>(self);
}

char* LineEditor::prompt_of(editline* editor) { return of(editor).prompt_.data(); }

/// The editor's own would read on after a signal. 1 for a character, 0 at the end, -1 after a
/// failure.
int LineEditor::read_character(editline* editor, wchar_t* character) {
  const LineEditor& self = of(editor);
  std::mbstate_t state{};
  while (true) {
    char byte = 0;
    if (!self.await_key()) {
      return -1;
    }
    const ssize_t count = read(self.input_, &byte, 1);
    if (count <= 0) {
      return static_cast<int>(count);
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is its own
    const std::size_t length = std::mbrtowc(character, &byte, 1, &state);
    if (length <= 1) {
      return 1;
    }
    if (length == static_cast<std::size_t>(-1)) {
      state = {};  // no character: what follows may be one
    }
  }
}

/// False, as after a signal, once the session is interrupted.
bool LineEditor::await_key() const {
  pollfd news{input_, POLLIN, 0};
  while (!*interrupted_) {
    const int count = poll(&news, 1, key_patience);
    if (count > 0 || (count < 0 && errno != EINTR)) {
      return count > 0;
    }
  }
  errno = EINTR;
  return false;
}

unsigned char LineEditor::complete_word(editline* editor, int /*key*/) {
  return of(editor).complete();
}

/// Inserts what all candidates have in common; where that is nothing new, shows them.
unsigned char LineEditor::complete() {
  const LineInfo* const info = el_line(editor_);
  const std::string line(info->buffer, info->cursor);
  const std::vector<std::string> candidates = (*completion_)(line);
  const std::size_t typed = line.size() - (line.rfind(' ') + 1);
  std::string rest = common_beginning(candidates).substr(candidates.empty() ? 0 : typed);
  if (candidates.size() == 1 && candidates.front().back() != '=') {
    rest += ' ';
  }
  if (!rest.empty()) {
    return el_insertstr(editor_, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }
  if (candidates.empty()) {
    return CC_ERROR;
  }
  static_cast<void>(std::fputc('\n', output_));
  for (const std::string& candidate : candidates) {
    static_cast<void>(std::fprintf(output_, "%s  ", candidate.c_str()));
  }
  static_cast<void>(std::fputc('\n', output_));
  return CC_REDISPLAY;
}

}  // namespace velmora_can_bridge
// NOLINTEND(cppcoreguidelines-pro-type-vararg)
