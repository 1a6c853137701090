#include "velmora_can_bridge/cli/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "commands.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

constexpr const char* payload_help =
    "hex bytes (0F 00, 0F00) or typed values (u16:500, s16:-500, u8:0x1F), little-endian";

constexpr const char* footer =
    "Exit status: 0 the operation succeeded, 1 it failed, 2 bad usage or board file.\n"
    "Operations run on a simulated board that starts afresh each time.";

/// Everything that the arguments can set.
struct Arguments {
  RunArguments run;
  CheckArguments check;
  WatchArguments watch;
  std::string board;
  bool json = false;
};

void add_board(CLI::App& command, std::string& board) {
  command.add_option("BOARD", board, "the board file (YAML)")->required();
}

void add_json(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "print results as JSON, one object a line");
}

void add_run(CLI::App& app, RunArguments& run) {
  CLI::App& command = *app.add_subcommand("run", "Execute one configured operation");
  add_board(command, run.board);
  command.add_option("DEVICE", run.device, "a device of the board")->required();
  command.add_option("OPERATION", run.operation, "an operation of the device's node")->required();
  command.add_option("PAYLOAD", run.payload, payload_help);
  command.add_flag("--trace", run.trace, "print every bus transfer to the standard error");
  add_json(command, run.json);
  command.footer(footer);
}

void add_check(CLI::App& app, CheckArguments& check) {
  CLI::App& command = *app.add_subcommand(
      "check", "Validate a board file, and compare it with the devices on a bus");
  add_board(command, check.board);
  command.add_option("--bus", check.bus, "compare with the devices on this CAN interface");
  add_json(command, check.json);
}

void add_watch(CLI::App& app, WatchArguments& watch) {
  CLI::App& command = *app.add_subcommand("watch", "Show what passes on a bus, decoded");
  add_board(command, watch.board);
  command.add_option("--bus", watch.bus, "the CAN interface, such as can0")->required();
  command.add_option("--for", watch.seconds, "end after that many seconds");
  add_json(command, watch.json);
}

void add_commands(CLI::App& app, Arguments& arguments) {
  add_run(app, arguments.run);
  CLI::App& operations = *app.add_subcommand(
      "operations", "List devices and operations, with the payload that each expects");
  add_board(operations, arguments.board);
  add_json(operations, arguments.json);
  add_check(app, arguments.check);
  add_watch(app, arguments.watch);
  CLI::App& demo = *app.add_subcommand("demo", "Run a tour over the example board");
  add_json(demo, arguments.json);
}

ExitStatus execute(const CommandLineHost& host, const CLI::App& app, const Arguments& arguments) {
  if (app.got_subcommand("run")) {
    return run_command(host, arguments.run);
  }
  if (app.got_subcommand("operations")) {
    return operations_command(host, arguments.board, arguments.json);
  }
  if (app.got_subcommand("check")) {
    return check_command(host, arguments.check);
  }
  if (app.got_subcommand("watch")) {
    return watch_command(host, arguments.watch);
  }
  return demo_command(host, arguments.json);
}

}  // namespace

ExitStatus run_command_line(const std::vector<std::string>& arguments,
                            const CommandLineHost& host) {
  CLI::App app("Runs configured operations on the CANopen nodes of a robot board.",
               "velmora-can-bridge");
  Arguments parsed;
  app.set_version_flag("--version", "velmora-can-bridge " VELMORA_CAN_BRIDGE_VERSION);
  app.require_subcommand(1);
  app.footer(footer);
  add_commands(app, parsed);
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::Success& asked) {
    app.exit(asked, host.out, host.err);  // --help or --version
    return ExitStatus::success;
  } catch (const CLI::ParseError& error) {
    print_diagnostic(host, std::string(error.what()) + " (see --help)");
    return ExitStatus::bad_input;
  }
  return execute(host, app, parsed);
}

}  // namespace velmora_can_bridge
