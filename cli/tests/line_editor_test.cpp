#include "line_editor.hpp"

#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <thread>
#include <vector>

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;

/// An editor on a terminal of the test's own.
class LineEditorOnTerminal : public testing::Test {
 protected:
  LineEditorOnTerminal() {
    int terminal = -1;
    openpty(&person, &terminal, nullptr, nullptr, nullptr);
    input = fdopen(terminal, "r");
    output = fdopen(dup(terminal), "w");
    setenv("TERM", "xterm", 1);
  }

  ~LineEditorOnTerminal() override {
    std::fclose(input);
    std::fclose(output);
    close(person);
  }

  /// The person types the keys when the editor takes them one by one: earlier ones are for the
  /// terminal itself.
  std::optional<std::string> type(LineEditor& editor, const std::string& keys) {
    std::thread typist([&] {
      while (takes_lines()) {
        std::this_thread::yield();
      }
      EXPECT_EQ(write(person, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    });
    auto line = editor.type("> ", [](const std::string& begun) {
      return begun.rfind(' ') == std::string::npos
                 ? std::vector<std::string>{"led", "left", "level="}
                 : std::vector<std::string>{"level="};
    });
    typist.join();
    std::fflush(output);
    return line;
  }

  /// Whether the terminal itself edits lines.
  bool takes_lines() const {
    termios mode{};
    tcgetattr(person, &mode);
    return (mode.c_lflag & static_cast<tcflag_t>(ICANON)) != 0;
  }

  /// Reads what the terminal shows, up to the text or to all that comes within seconds.
  std::string read_up_to(const std::string& text) const {
    std::string shown;
    pollfd news{person, POLLIN, 0};
    while (shown.find(text) == std::string::npos && poll(&news, 1, 5000) == 1) {
      std::array<char, 4096> part{};
      const ssize_t length = read(person, part.data(), part.size());
      shown.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    return shown;
  }

  int person = -1;
  std::FILE* input = nullptr;
  std::FILE* output = nullptr;
  std::atomic<bool> interrupted{false};
};

TEST_F(LineEditorOnTerminal, gives_lines_without_their_ends) {
  LineEditor editor(input, output, interrupted);
  EXPECT_EQ(type(editor, "led on\r"), "led on");
  EXPECT_EQ(type(editor, "\r"), "");
}

TEST_F(LineEditorOnTerminal, edits_a_line) {
  LineEditor editor(input, output, interrupted);
  EXPECT_EQ(type(editor, "led off\x7F\x7Fn\r"), "led on");
}

TEST_F(LineEditorOnTerminal, brings_earlier_lines_back) {
  LineEditor editor(input, output, interrupted);
  type(editor, "led on\r");
  EXPECT_EQ(type(editor, "\x1B[A!\r"), "led on!");
}

TEST_F(LineEditorOnTerminal, completes_a_word_as_far_as_it_is_certain) {
  LineEditor editor(input, output, interrupted);
  EXPECT_EQ(type(editor, "l\tf\r"), "lef");
}

TEST_F(LineEditorOnTerminal, leaves_room_for_the_value_behind_a_name) {
  LineEditor editor(input, output, interrupted);
  EXPECT_EQ(type(editor, "led l\t5\r"), "led level=5");
}

TEST_F(LineEditorOnTerminal, shows_what_may_stand_there) {
  LineEditor editor(input, output, interrupted);
  EXPECT_EQ(type(editor, "le\t\r"), "le");
  const std::string candidates = "led  left  level=  ";
  EXPECT_THAT(read_up_to(candidates), HasSubstr(candidates));
}

TEST_F(LineEditorOnTerminal, gives_an_empty_line_when_it_is_interrupted) {
  LineEditor editor(input, output, interrupted);
  std::thread user([this] {
    while (takes_lines()) {
      std::this_thread::yield();
    }
    interrupted = true;
  });
  EXPECT_EQ(editor.type("> ", [](const std::string&) { return std::vector<std::string>(); }), "");
  user.join();
  interrupted = false;
  EXPECT_EQ(type(editor, "led on\r"), "led on") << "it can be used on";
}

TEST_F(LineEditorOnTerminal, takes_characters_of_several_bytes) {
  LineEditor editor(input, output, interrupted);
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
    GTEST_SKIP() << "there is no such locale here";
  }
  EXPECT_EQ(type(editor, "gr\xC3\xBC\xC3\xA4\x7Fn\r"), "gr\xC3\xBCn");
}

TEST_F(LineEditorOnTerminal, ends_with_control_d) {
  LineEditor editor(input, output, interrupted);
  EXPECT_EQ(type(editor, "\x04"), std::nullopt);
}

}  // namespace
}  // namespace velmora_can_bridge
