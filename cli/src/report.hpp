// How the commands speak: results to one stream, diagnostics to the other.
#pragma once

#include <optional>
#include <string>

#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// One operation that was run, with all that is said of it.
struct OperationReport {
  std::string operation;
  std::string device;
  OperationResult result;
  /// Why the bus refused, when it did.
  std::optional<std::string> refusal;
};

/// Prints the result for people.
void print_result(const CommandLineHost& host, const OperationReport& report);

/// Prints the result as one JSON object on a line.
void print_result_json(const CommandLineHost& host, const OperationReport& report);

/// A diagnostic line, "velmora-can-bridge: " before it.
void print_diagnostic(const CommandLineHost& host, const std::string& text);

/// Loads the board file and prints its problems as diagnostics; no value when one is an error.
std::optional<BoardFile> load_board(const CommandLineHost& host, const std::string& path);

}  // namespace velmora_can_bridge
