/// The program velmora-can-bridge as a function.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace velmora_can_bridge {

/// Exit statuses of the program.
enum class ExitStatus {
  /// The operation succeeded, or what was asked was shown.
  success = 0,
  /// The operation ran and failed.
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
  /// Whether a person watches `out` on a terminal: waits then take their real time and show how far
  /// they are. Otherwise only the simulated time passes.
  bool live = false;
};

/// Runs the program with `arguments`, the program's name not among them.
///
/// Writes only to `output` and reads only the board file that the arguments name. Everything that
/// is wrong with the arguments or the board is one line in `output.err` that names the culprit.
ExitStatus run_command_line(const std::vector<std::string>& arguments,
                            const CommandLineOutput& output);

}  // namespace velmora_can_bridge
