// How the commands speak: results to one stream, diagnostics to the other.
#pragma once

#include <optional>
#include <string>

#include "velmora_can_bridge/bridge/explanation.hpp"
#include "velmora_can_bridge/bridge/operation_report.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// Prints the result for people.
void print_result(const CommandLineHost& host, const OperationReport& report);

/// Prints the result as one JSON object on a line.
void print_result_json(const CommandLineHost& host, const OperationReport& report);

/// Prints what an operation would do as one JSON object on a line.
void print_explanation_json(const CommandLineHost& host, const Explanation& explanation,
                            ExitStatus status);

/// Prints a failure for people: "failed: MESSAGE (REASON)", the parentheses only for a reason.
void print_failure(const CommandLineHost& host, const std::string& message,
                   const std::string& reason);

/// A diagnostic line, "velmora-can-bridge: " before it.
void print_diagnostic(const CommandLineHost& host, const std::string& text);

/// The value. Where there is none, the reason is printed as a diagnostic.
template <typename Value>
std::optional<Value> or_diagnostic(const CommandLineHost& host, const Expected<Value>& expected) {
  if (!expected) {
    print_diagnostic(host, expected.error());
    return std::nullopt;
  }
  return *expected;
}

/// Loads the board file and prints its problems as diagnostics; no value when one is an error.
std::optional<BoardFile> load_board(const CommandLineHost& host, const std::string& path);

/// As `load_board` into `file`, but an empty path loads none. False when there is an error.
bool load_optional_board(const CommandLineHost& host, const std::string& path,
                         std::optional<BoardFile>& file);

}  // namespace velmora_can_bridge
