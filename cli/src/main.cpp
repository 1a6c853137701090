#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "completion_command.hpp"
#include "line_editor.hpp"
#include "terminal.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace bridge = velmora_can_bridge;

namespace {

// Set by signal handlers, read by commands.
std::atomic<bool> interrupted{false};
std::atomic<bool> terminated{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may set it");

/// Ends commands in good order; the second signal ends the program at once.
void end_on_signals() {
  struct sigaction action {};
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): how POSIX declares it
  action.sa_handler = [](int /*signal*/) { interrupted = true; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): how POSIX declares it
  action.sa_handler = [](int /*signal*/) {
    terminated = true;
    interrupted = true;
  };
  sigaction(SIGTERM, &action, nullptr);
}

/// Opens what of the standard streams was closed, so that no file or socket of the program gets its
/// number and with it what is printed. Reading and writing fail as they do when it is closed.
void occupy_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): how POSIX declares it
    if (fcntl(stream, F_GETFD) == -1) {
      // The lowest free number. A folder is there always, and can be neither read nor written.
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): how POSIX declares it
      open("/", O_RDONLY | O_DIRECTORY);
    }
  }
}

bool shows_colour(int stream) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing has started a thread yet
  return bridge::has_colour(isatty(stream) == 1, std::getenv("NO_COLOR"), std::getenv("TERM"));
}

/// Columns of the terminal that shows the output; 0: not known.
std::size_t width_of_output() {
  struct winsize window {};
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): how POSIX declares it
  const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing has started a thread yet
  return bridge::terminal_width(std::getenv("COLUMNS"), is_known ? window.ws_col : 0);
}

std::string home_folder() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing has started a thread yet
  const char* const home = std::getenv("HOME");
  return home == nullptr ? "" : home;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    occupy_standard_streams();
    const bool live = isatty(STDOUT_FILENO) == 1;
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    // Words for a shell need no good order at the end, and a person waits for them.
    if (arguments.empty() || arguments.front() != bridge::complete_words) {
      end_on_signals();
    }
    bridge::CommandLineHost host{
        std::cout, std::cerr,    shows_colour(STDOUT_FILENO), {},
        {},        &interrupted, shows_colour(STDERR_FILENO), width_of_output()};
    std::unique_ptr<bridge::LineEditor> editor;
    host.in = &std::cin;
    host.home = home_folder();
    if (live && isatty(STDIN_FILENO) == 1) {
      host.type_line = [&](const std::string& prompt, const bridge::LineCompletion& completion) {
        if (!editor) {
          editor = std::make_unique<bridge::LineEditor>(stdin, stdout, interrupted);
        }
        return editor->type(prompt, completion);
      };
      host.resume = [] {
        interrupted = false;
        interrupted = terminated.load();  // may have come while the line before ran
        end_on_signals();
      };
      host.terminated = &terminated;
    }
    if (live) {
      host.sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); };
    }
    const bridge::ExitStatus status = bridge::run_command_line(arguments, host);
    if (!std::cout.flush()) {
      std::cerr << "velmora-can-bridge: cannot write the output\n";
      return static_cast<int>(bridge::ExitStatus::operation_failed);
    }
    return static_cast<int>(status);
  } catch (const std::exception& error) {
    std::cerr << "velmora-can-bridge: " << error.what() << '\n';
    return static_cast<int>(bridge::ExitStatus::bad_input);
  }
}
