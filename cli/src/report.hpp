// How the commands speak: results to one stream, diagnostics to the other.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "velmora_can_bridge/bridge/explanation.hpp"
#include "velmora_can_bridge/bridge/operation_report.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// What a drive has shown after an operation.
struct ShownDrive {
  /// "Operation enabled"; empty where its statusword was not read.
  std::string state;
  /// Somebody has waited for it, and it was there in time.
  bool is_awaited = false;
};

/// The result for people, in lines: "ok: MESSAGE" and its data, or as `failure_text`. `drive` is
/// that of a command to a drive, else it has no value.
std::string result_text(const OperationReport& report, bool colour,
                        const std::optional<ShownDrive>& drive = std::nullopt);

/// Prints the result for people, a failure as `print_failure` does.
void print_result(const CommandLineHost& host, const OperationReport& report,
                  const std::optional<ShownDrive>& drive = std::nullopt);

/// Prints the result as one JSON object on a line; behind `line`, that of a script, unless it is 0.
void print_result_json(const CommandLineHost& host, const OperationReport& report,
                       const std::optional<ShownDrive>& drive = std::nullopt, std::size_t line = 0);

/// Prints as diagnostics which transfers failed while the operation went on, each on a line.
void print_tolerated(const CommandLineHost& host, const OperationReport& report);

/// Prints what an operation would do as one JSON object on a line, with `line` as above.
void print_explanation_json(const CommandLineHost& host, const Explanation& explanation,
                            ExitStatus status, std::size_t line = 0);

/// A failure for people: the line "failed: MESSAGE (REASON)", the parentheses only for a reason.
std::string failure_text(const std::string& message, const std::string& reason, bool colour);

/// Prints a failure for people to the standard error, as `failure_text`.
void print_failure(const CommandLineHost& host, const std::string& message,
                   const std::string& reason);

/// A diagnostic line: what is wrong, behind "velmora-can-bridge: ".
void print_diagnostic(const CommandLineHost& host, const std::string& text);

/// As `print_diagnostic`, of something worth to know that is no error.
void print_remark(const CommandLineHost& host, const std::string& text);

/// A line that tells a mistake in the board file at `path`.
void print_problem(const CommandLineHost& host, const std::string& path, const Problem& problem);

/// The value. Where there is none, the reason is printed as a diagnostic.
template <typename Value>
std::optional<Value> or_diagnostic(const CommandLineHost& host, const Expected<Value>& expected) {
  if (!expected) {
    print_diagnostic(host, expected.error());
    return std::nullopt;
  }
  return *expected;
}

/// Loads the board file and prints its errors as diagnostics; no value when there is one. Of
/// warnings it prints how many there are, and that `check` shows them.
std::optional<BoardFile> load_board(const CommandLineHost& host, const std::string& path);

/// As `load_board` into `file`, but an empty path loads none. False when there is an error.
bool load_optional_board(const CommandLineHost& host, const std::string& path,
                         std::optional<BoardFile>& file);

}  // namespace velmora_can_bridge
