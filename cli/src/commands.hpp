// The commands of the program, each in a file of its own name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

struct RunArguments {
  std::string board;
  std::string device;
  std::string operation;
  std::vector<std::string> payload;
  bool trace = false;
  bool json = false;
};

/// Executes one configured operation on the simulated board.
ExitStatus run_command(const CommandLineHost& host, const RunArguments& arguments);

/// Lists the devices and operations of a board file.
ExitStatus operations_command(const CommandLineHost& host, const std::string& board, bool json);

struct WatchArguments {
  std::string board;
  /// The CAN interface.
  std::string bus;
  /// How long; no value: until the program is interrupted.
  std::optional<double> seconds;
  bool json = false;
};

/// Shows what passes on a bus, decoded by a board file.
ExitStatus watch_command(const CommandLineHost& host, const WatchArguments& arguments);

struct CheckArguments {
  std::string board;
  /// The CAN interface of the devices; no value: the file alone is checked.
  std::optional<std::string> bus;
  bool json = false;
};

/// Loads and validates a board file, and compares it with the devices on a bus.
ExitStatus check_command(const CommandLineHost& host, const CheckArguments& arguments);

/// Runs the tour over the example board.
ExitStatus demo_command(const CommandLineHost& host, bool json);

}  // namespace velmora_can_bridge
