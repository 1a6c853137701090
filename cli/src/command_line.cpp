#include "velmora_can_bridge/cli/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>

#include "commands.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

constexpr const char* payload_help =
    "its values in order, or by name (red=255): numbers, with a unit (0.5m/s), names of codes, "
    "hex:0F00, text:hello";

constexpr const char* object_help =
    "a number with its type (u16:500, s32:-1), hex:0F00 or text:hello; without a type where the "
    "board file tells it";

constexpr const char* footer =
    "Exit status: 0 done, 1 the operation failed, 2 usage or board file, 3 no answer,\n"
    "4 bus or interface fault, 130 interrupted.";

constexpr const char* bus_help =
    "a CAN interface, such as can0; sim, the default, is a simulated board that starts afresh "
    "each time";

/// Everything that the arguments can set.
struct Arguments {
  RunArguments run;
  ExplainArguments explain;
  SimulateArguments simulate;
  NmtArguments nmt;
  SdoArguments sdo;
  CheckArguments check;
  WatchArguments watch;
  SyncArguments sync;
  HeartbeatArguments heartbeat;
  std::string board;
  bool json = false;
};

void add_board(CLI::App& command, std::string& board) {
  command.add_option("BOARD", board, "the board file (YAML)")->required();
}

CLI::Option& add_json(CLI::App& command, bool& json) {
  return *command.add_flag("--json", json, "print results as JSON, one object a line");
}

/// What begins with "-" is the next option, whose own value is missing then.
std::string unless_option(const std::string& value, const std::string& refusal) {
  return value.empty() || value.front() == '-' ? "\"" + value + "\" " + refusal : std::string();
}

template <typename Name>
CLI::Option& add_bus_name(CLI::App& command, Name& bus, const std::string& help) {
  return *command.add_option("--bus", bus, help)->check([](const std::string& name) {
    return unless_option(name, "is no name of an interface");
  });
}

/// A number that is read as it looks: 010 is eight for some readers and ten for others.
void add_number(CLI::Option& option, std::uint32_t minimum, std::uint32_t maximum) {
  option.check(CLI::Range(minimum, maximum))->check([](const std::string& number) {
    const bool leads_with_0 = number.size() > 1 && number.front() == '0' && number.find('x') != 1;
    return leads_with_0 ? "\"" + number + "\" begins with 0" : std::string();
  });
}

void add_bus(CLI::App& command, BusArguments& bus) {
  add_bus_name(command, bus.bus, bus_help);
  command.add_option("--trace", bus.trace, "write every frame to this file, as candump -L does")
      ->check([](const std::string& file) {
        return unless_option(file, "names no file for the frames");
      });
  command.footer(footer);
}

void add_timeout(CLI::App& command, BusArguments& bus) {
  add_number(*command.add_option("--timeout", bus.timeout,
                                 "milliseconds to wait for each SDO answer (500)"),
             1, 3600000);
}

/// For commands that need a board only to simulate it.
void add_simulated_board(CLI::App& command, std::string& board) {
  command.add_option("--board", board, "the board file to simulate with --bus sim");
}

void add_operation(CLI::App& command, OperationArguments& operation) {
  add_board(command, operation.board);
  command.add_option("DEVICE", operation.device, "a device of the board")->required();
  command.add_option("OPERATION", operation.operation, "an operation of the device's node")
      ->required();
  command.add_option("PAYLOAD", operation.payload, payload_help);
  command.add_flag("--raw", operation.raw,
                   "the payload is bytes (0F00) and typed numbers (u16:500), unchecked");
}

void add_run(CLI::App& app, RunArguments& run) {
  CLI::App& command = *app.add_subcommand("run", "Execute one configured operation");
  add_operation(command, run.operation);
  add_bus(command, run.bus);
  add_timeout(command, run.bus);
  command.add_flag("--transfers", run.transfers, "print every transfer to the standard error");
  add_json(command, run.json);
}

void add_explain(CLI::App& app, ExplainArguments& explain) {
  CLI::App& command = *app.add_subcommand(
      "explain", "Tell what one configured operation would do; reads, and sends nothing else");
  add_operation(command, explain.operation);
  add_bus(command, explain.bus);
  add_timeout(command, explain.bus);
  CLI::Option& candump = *command.add_flag(
      "--candump", explain.candump, "print the frames alone, as candump -L does, for canplayer");
  add_json(command, explain.json).excludes(&candump);
}

void add_simulate(CLI::App& app, SimulateArguments& simulate) {
  CLI::App& command = *app.add_subcommand("simulate", "Put a simulated board on a CAN interface");
  add_board(command, simulate.board);
  add_bus(command, simulate.bus);
  add_number(*command.add_option("--for", simulate.seconds, "end after so many seconds"), 1,
             31536000);
}

void add_nmt(CLI::App& app, NmtArguments& nmt) {
  CLI::App& command = *app.add_subcommand("nmt", "Tell nodes which state to enter");
  command
      .add_option("COMMAND", nmt.command,
                  "start, stop, pre-operational, reset-node or reset-communication")
      ->required();
  command.add_option("NODE", nmt.node, "a node id, or all")->required();
  add_bus(command, nmt.bus);
  add_simulated_board(command, nmt.board);
  add_json(command, nmt.json);
}

void add_sdo_transfer(CLI::App& command, SdoArguments& sdo) {
  command.add_option("NODE", sdo.node, "a node id")->required();
  command.add_option("INDEX", sdo.index, "the object's index")->required();
  command.add_option("SUB", sdo.sub_index, "the object's sub-index")->required();
  add_bus(command, sdo.bus);
  add_timeout(command, sdo.bus);
  add_simulated_board(command, sdo.board);
  add_json(command, sdo.json);
}

void add_sdo(CLI::App& app, SdoArguments& sdo) {
  CLI::App& command = *app.add_subcommand("sdo", "Read or write one object of a node");
  command.require_subcommand(1);
  add_sdo_transfer(*command.add_subcommand("read", "Read one object"), sdo);
  CLI::App& write = *command.add_subcommand("write", "Write one object");
  add_sdo_transfer(write, sdo);
  write.add_option("VALUE", sdo.value, object_help)->required();
}

void add_check(CLI::App& app, CheckArguments& check) {
  CLI::App& command = *app.add_subcommand(
      "check", "Validate a board file, and compare it with the devices on a bus");
  add_board(command, check.board);
  add_bus_name(command, check.bus, "compare with the devices on this CAN interface");
  add_json(command, check.json);
}

void add_watch(CLI::App& app, WatchArguments& watch) {
  CLI::App& command = *app.add_subcommand("watch", "Show what passes on a bus, decoded");
  add_board(command, watch.board);
  add_bus_name(command, watch.bus, "the CAN interface, such as can0").required();
  command.add_option("--for", watch.seconds, "end after that many seconds");
  add_json(command, watch.json);
}

void add_producer(CLI::App& command, std::string& bus, std::uint32_t& period) {
  add_bus_name(command, bus, "the CAN interface, such as can0").required();
  add_number(*command.add_option("--period", period, "milliseconds between two frames")->required(),
             1, 3600000);
}

void add_sync(CLI::App& app, SyncArguments& sync) {
  CLI::App& command = *app.add_subcommand("sync", "Send the SYNC, for which synchronous PDOs wait");
  add_producer(command, sync.bus, sync.period);
  add_number(*command.add_option("--count", sync.count, "end after so many frames"), 1,
             std::numeric_limits<std::uint32_t>::max());
  add_json(command, sync.json);
  command.footer(footer);
}

void add_heartbeat(CLI::App& app, HeartbeatArguments& heartbeat) {
  CLI::App& command = *app.add_subcommand(
      "heartbeat", "Send a heartbeat of the host, so that nodes notice when it ends");
  command.add_option("--node", heartbeat.node, "the node id of the host, which no node has")
      ->required();
  add_producer(command, heartbeat.bus, heartbeat.period);
  add_json(command, heartbeat.json);
  command.footer(footer);
}

void add_commands(CLI::App& app, Arguments& arguments) {
  add_run(app, arguments.run);
  add_explain(app, arguments.explain);
  add_simulate(app, arguments.simulate);
  add_nmt(app, arguments.nmt);
  add_sdo(app, arguments.sdo);
  CLI::App& operations = *app.add_subcommand(
      "operations", "List devices and operations, with the payload that each expects");
  add_board(operations, arguments.board);
  add_json(operations, arguments.json);
  add_check(app, arguments.check);
  add_watch(app, arguments.watch);
  add_sync(app, arguments.sync);
  add_heartbeat(app, arguments.heartbeat);
  CLI::App& demo = *app.add_subcommand("demo", "Run a tour over the example board");
  add_json(demo, arguments.json);
}

/// The arguments in the order in which the parser takes them, the last first. It would take the one
/// behind "--trace=" for the name of the file.
std::vector<std::string> parser_arguments(const std::vector<std::string>& arguments) {
  std::vector<std::string> reversed;
  for (auto argument = arguments.rbegin(); argument != arguments.rend(); ++argument) {
    if (*argument == "--trace=") {
      reversed.insert(reversed.end(), {"", "--trace"});
    } else {
      reversed.push_back(*argument);
    }
  }
  return reversed;
}

ExitStatus execute(const CommandLineHost& host, const CLI::App& app, const Arguments& arguments) {
  if (app.got_subcommand("run")) {
    return run_command(host, arguments.run);
  }
  if (app.got_subcommand("explain")) {
    return explain_command(host, arguments.explain);
  }
  if (app.got_subcommand("simulate")) {
    return simulate_command(host, arguments.simulate);
  }
  if (app.got_subcommand("nmt")) {
    return nmt_command(host, arguments.nmt);
  }
  if (app.got_subcommand("sdo")) {
    const bool reads = app.get_subcommand("sdo")->got_subcommand("read");
    return (reads ? sdo_read_command : sdo_write_command)(host, arguments.sdo);
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
  if (app.got_subcommand("sync")) {
    return sync_command(host, arguments.sync);
  }
  if (app.got_subcommand("heartbeat")) {
    return heartbeat_command(host, arguments.heartbeat);
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
    app.parse(parser_arguments(arguments));
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
