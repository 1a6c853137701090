/// The program velmora-can-bridge as a function.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// Exit statuses of the program.
enum class ExitStatus {
  /// The operation succeeded, or what was asked was shown.
  success = 0,
  /// The operation ran and failed, a check found differences, or the program could not write its
  /// output.
  operation_failed = 1,
  /// Bad usage, a board file with errors, or something in it that cannot be put on a bus.
  bad_input = 2,
  /// It failed because a node did not answer in time, or answered nothing that can be understood.
  no_answer = 3,
  /// It failed because the bus or its interface did not work.
  bus_fault = 4,
  /// The user stopped the program before it was done: a transfer failed after that, or was not
  /// begun. A failure of before keeps its own status; what succeeds all the same is a success.
  interrupted = 130,
};

/// The words that may stand where `line`, as far as it is typed, ends: whole ones.
using LineCompletion = std::function<std::vector<std::string>(const std::string& line)>;

/// What the program stands on.
struct CommandLineHost {
  /// Takes results.
  std::ostream& out;
  /// Takes failures and diagnostics.
  std::ostream& err;
  /// Whether `out` may carry terminal colours.
  bool colour = false;
  /// Set when a person watches `out` on a terminal: waits of the tour then show how far they are
  /// and call this to take their real time. Otherwise only simulated time passes.
  std::function<void(std::chrono::milliseconds)> sleep = nullptr;
  /// Gives access to the CAN interface of a name; null: to those of the kernel.
  std::function<std::unique_ptr<CanChannel>(const std::string& interface)> open_interface = nullptr;
  /// Set by the host, from any thread or signal handler, to end the program soon; null: never. No
  /// transfer is begun any more; for the one under way its answer or time-out is waited for, which
  /// `err` is told at once.
  const std::atomic<bool>* interrupted = nullptr;
  /// Whether `err` may carry terminal colours.
  bool err_colour = false;
  /// Columns of the terminal, to which tables are fitted; 0: not known, they are fitted to 80.
  std::size_t width = 0;
  /// The standard input; null: there is none.
  std::istream* in = nullptr;
  /// Lets a person type a line behind `prompt` on a terminal, with the completion of words; no
  /// value when there are no more, an empty line when `interrupted` was set meanwhile. Null: the
  /// standard input is no terminal.
  std::function<std::optional<std::string>(const std::string& prompt,
                                           const LineCompletion& completion)>
      type_line = nullptr;
  /// Called by a session of such lines that goes on after an interruption: clears `interrupted`.
  /// Not null where `type_line` is not.
  std::function<void()> resume = nullptr;
  /// Set, together with `interrupted`, where a session of such lines is to end, too, and not only
  /// the line under way; null: never.
  const std::atomic<bool>* terminated = nullptr;
  /// The person's own folder, for which "~" stands in a line to complete; empty: not known.
  std::string home{};
  /// Where the kernel lists the network interfaces, to complete names of CAN interfaces.
  std::string network_folder = "/sys/class/net";
};

/// Runs the program with `arguments`, the program's name not among them.
///
/// Writes only to the streams of `host` and the files that the arguments name, and reads only the
/// files that they name and `CommandLineHost::in`. Everything that
/// is wrong with the arguments or the board is one line in `host.err` that names the culprit.
ExitStatus run_command_line(const std::vector<std::string>& arguments, const CommandLineHost& host);

}  // namespace velmora_can_bridge
