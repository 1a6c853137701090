// The commands of the program, each in a file of its own name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "command_bus.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

struct OperationArguments {
  std::string board;
  std::string device;
  std::string operation;
  std::vector<std::string> payload;
  /// The words are bytes and typed numbers, whatever the operation takes.
  bool raw = false;
};

struct RunArguments {
  OperationArguments operation;
  BusArguments bus;
  /// Print every transfer.
  bool transfers = false;
  /// Send also what carries fields that nobody knows.
  bool force = false;
  /// How many seconds a drive has to do what it was told; 0: nobody waits for it.
  std::uint32_t wait = 0;
  bool json = false;
};

struct SimulateArguments {
  std::string board;
  BusArguments bus;
  /// The script of faults; no value for none.
  std::optional<std::string> script;
  /// How long; 0 until interrupted.
  std::uint32_t seconds = 0;
};

struct NmtArguments {
  /// "start", "stop", "pre-operational", "reset-node", "reset-communication".
  std::string command;
  /// A number, or "all".
  std::string node;
  /// The board to simulate; may be empty.
  std::string board;
  BusArguments bus;
  bool json = false;
};

struct SdoArguments {
  std::string node;
  std::string index;
  std::string sub_index;
  /// What to write.
  std::vector<std::string> value;
  /// The board to simulate; may be empty.
  std::string board;
  BusArguments bus;
  bool json = false;
};

/// Executes one configured operation.
ExitStatus run_command(const CommandLineHost& host, const RunArguments& arguments);

struct ExplainArguments {
  OperationArguments operation;
  BusArguments bus;
  /// As of `RunArguments`.
  bool force = false;
  bool json = false;
  /// Print the frames alone.
  bool candump = false;
};

/// Tells what one configured operation would do.
ExitStatus explain_command(const CommandLineHost& host, const ExplainArguments& arguments);

struct ScriptArguments {
  std::string board;
  /// "-" for the standard input.
  std::string file = "-";
  BusArguments bus;
  /// Send also what carries fields that nobody knows.
  bool force = false;
  /// Go on behind a line that has failed.
  bool keep_going = false;
  /// Print every transfer.
  bool transfers = false;
  bool json = false;
};

/// Runs the lines of a script, or those that a person types, on one board.
ExitStatus script_command(const CommandLineHost& host, const ScriptArguments& arguments);

/// Puts the nodes of a board on a CAN interface until it is interrupted.
ExitStatus simulate_command(const CommandLineHost& host, const SimulateArguments& arguments);

/// Sends one command of network management.
ExitStatus nmt_command(const CommandLineHost& host, const NmtArguments& arguments);

/// What `nmt` takes as its first word.
std::vector<std::string> nmt_command_names();

/// Reads one object of a node by SDO.
ExitStatus sdo_read_command(const CommandLineHost& host, const SdoArguments& arguments);

/// Writes one object of a node by SDO.
ExitStatus sdo_write_command(const CommandLineHost& host, const SdoArguments& arguments);

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

struct SyncArguments {
  /// The CAN interface.
  std::string bus;
  /// Milliseconds, 1 or more.
  std::uint32_t period = 0;
  /// How many frames; no value: until the program is interrupted.
  std::optional<std::uint32_t> count;
  bool json = false;
};

/// Sends the SYNC until it is interrupted.
ExitStatus sync_command(const CommandLineHost& host, const SyncArguments& arguments);

struct HeartbeatArguments {
  /// The CAN interface.
  std::string bus;
  /// The node id of the host.
  std::string node;
  /// Milliseconds, 1 or more.
  std::uint32_t period = 0;
  bool json = false;
};

/// Sends a heartbeat of the host until it is interrupted.
ExitStatus heartbeat_command(const CommandLineHost& host, const HeartbeatArguments& arguments);

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
