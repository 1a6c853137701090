/// The program velmora-can-bridge as a function.
#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace velmora_can_bridge {

/// Exit statuses of the program.
enum class ExitStatus {
  /// The operation succeeded, or what was asked was shown.
  success = 0,
  /// The operation ran and failed, or the program could not write its output.
  operation_failed = 1,
  /// Bad usage, or a board file with errors.
  bad_input = 2,
};

/// Where the program writes.
struct CommandLineOutput {
  /// Results.
  std::ostream& out;
  /// Diagnostics.
  std::ostream& err;
  /// Whether `out` may carry terminal colours.
  bool colour = false;
  /// Set when a person watches `out` on a terminal: waits of the tour then show how far they are
  /// and call this to take their real time. Otherwise only simulated time passes.
  std::function<void(std::chrono::milliseconds)> sleep = nullptr;
};

/// Runs the program with `arguments`, the program's name not among them.
///
/// Writes only to `output` and reads only the board file that the arguments name. Everything that
/// is wrong with the arguments or the board is one line in `output.err` that names the culprit.
ExitStatus run_command_line(const std::vector<std::string>& arguments,
                            const CommandLineOutput& output);

}  // namespace velmora_can_bridge
