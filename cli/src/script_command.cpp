#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "command_bus.hpp"
#include "commands.hpp"
#include "interface_channel.hpp"
#include "line_completion.hpp"
#include "report.hpp"
#include "script_line.hpp"
#include "script_session.hpp"

namespace velmora_can_bridge {
namespace {

constexpr const char* standard_input = "-";
constexpr const char* prompt = "> ";
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

constexpr const char* typed_help =
    "[run] DEVICE OPERATION [PAYLOAD...]  runs an operation\n"
    "explain DEVICE OPERATION [PAYLOAD...]  tells what it would do\n"
    "wait TIME                            lets time pass: 200ms, 1.5s\n"
    "wait DEVICE CONDITION [TIME]         waits for a drive: left_wheel target_reached 5s\n"
    "help, ?                              shows these lines\n"
    "exit, quit                           ends the session, as Ctrl-D does\n";

/// An interruption has come behind a line, or while the next one was waited for.
ExitStatus end_early(const CommandLineHost& host, ExitStatus gravest) {
  if (gravest != ExitStatus::interrupted) {
    print_diagnostic(host, "interrupted; the lines that follow are not run");
  }
  return ExitStatus::interrupted;
}

/// Whether more lines may follow; one from the standard input could be long in coming.
bool may_follow(std::istream& lines, const std::string& name) {
  return name == standard_input || lines.peek() != std::istream::traits_type::eof();
}

/// Runs all lines of a stream, or those up to the first that fails.
ExitStatus run_stream(const CommandLineHost& host, const ScriptArguments& arguments,
                      ScriptSession& session, std::istream& lines) {
  ExitStatus gravest = ExitStatus::success;
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (number == 1 && line.rfind(byte_order_mark, 0) == 0) {
      line.erase(0, byte_order_mark.size());
    }
    const std::string place = arguments.file + ":" + std::to_string(number);
    gravest = std::max(gravest, session.run(line, number, place));
    const bool goes_on = gravest == ExitStatus::success || arguments.keep_going;
    if (!goes_on) {
      return gravest;
    }
    host.out.flush();  // whoever reads along sees each line when it is done
    if (is_interrupted(host) && may_follow(lines, arguments.file)) {
      return end_early(host, gravest);
    }
  }
  if (is_interrupted(host) && arguments.file == standard_input) {
    return end_early(host, gravest);
  }
  if (lines.bad()) {
    print_diagnostic(host, "cannot read all of " + arguments.file);
    return std::max(gravest, ExitStatus::bad_input);
  }
  return gravest;
}

/// Whether the line is one of these words alone.
bool is_word(const std::string& line, std::initializer_list<std::string_view> words) {
  const auto typed = script_words(line);
  return typed && typed->size() == 1 &&
         std::find(words.begin(), words.end(), typed->front()) != words.end();
}

/// Runs a line, or shows which there are.
void run_line(const CommandLineHost& host, ScriptSession& session, const std::string& line,
              std::size_t number) {
  if (is_word(line, {"help", "?"})) {
    host.out << typed_help;
  } else {
    session.run(line, number, "");
  }
  host.out.flush();
}

/// Runs what a person types until there is no more, or somebody else ends the session. What fails
/// is for the person to see.
ExitStatus run_typed(const CommandLineHost& host, ScriptSession& session) {
  const LineCompletion completion = [&](const std::string& line) {
    return line_candidates(line, session.board());
  };
  std::size_t number = 0;
  while (const std::optional<std::string> line = host.type_line(prompt, completion)) {
    if (is_word(*line, {"exit", "quit"})) {
      return ExitStatus::success;
    }
    if (!is_interrupted(host)) {
      run_line(host, session, *line, ++number);
    }
    if (is_terminated(host)) {
      return ExitStatus::interrupted;
    }
    if (is_interrupted(host)) {
      session.renew();
      host.resume();
    }
  }
  return ExitStatus::success;
}

/// The stream with the lines; null, after a diagnostic, where there is none. Opens `file`.
std::istream* open_lines(const CommandLineHost& host, const std::string& name,
                         std::ifstream& file) {
  if (name == standard_input) {
    if (host.in == nullptr) {
      print_diagnostic(host, "there is no standard input; name a script");
    }
    return host.in;
  }
  if (name.empty()) {
    print_diagnostic(host, "the name of the script is empty");
    return nullptr;
  }
  std::error_code ignored;
  if (std::filesystem::is_directory(name, ignored)) {
    print_diagnostic(host, "cannot read " + name + ": it is a folder");
    return nullptr;
  }
  file.open(name);
  if (!file) {
    print_diagnostic(host, "cannot read " + name + ": " + std::generic_category().message(errno));
    return nullptr;
  }
  return &file;
}

}  // namespace

ExitStatus script_command(const CommandLineHost& host, const ScriptArguments& arguments) {
  const std::optional<BoardFile> board = load_board(host, arguments.board);
  if (!board) {
    return ExitStatus::bad_input;
  }
  const bool is_typed = arguments.file == standard_input && host.type_line;
  std::ifstream file;
  std::istream* const lines = is_typed ? nullptr : open_lines(host, arguments.file, file);
  if (!is_typed && lines == nullptr) {
    return ExitStatus::bad_input;
  }
  const auto bus = CommandBus::open(host, arguments.bus, &*board);
  if (!bus) {
    return ExitStatus::bad_input;
  }
  ScriptSession session(host, arguments, *board, *bus);
  const ExitStatus status =
      is_typed ? run_typed(host, session) : run_stream(host, arguments, session, *lines);
  session.await_late_answers();
  return bus->finish(status);
}

}  // namespace velmora_can_bridge
