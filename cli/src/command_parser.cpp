#include "command_parser.hpp"

#include <cstdint>
#include <limits>

#include "help_table.hpp"
#include "help_text.hpp"

namespace velmora_can_bridge {
namespace {

/// The command of that name, one of the table of help.
CLI::App& add_command(CLI::App& parent, const std::string& name) {
  CLI::App& command = *parent.add_subcommand(name.substr(name.find(' ') + 1));
  const CommandHelp* const help = find_command_help(name);
  command.formatter_fn(
      [help](const CLI::App* /*command*/, const std::string& /*name*/,
             CLI::AppFormatMode /*mode*/) { return help == nullptr ? "" : help_text(*help); });
  return command;
}

void add_board(CLI::App& command, std::string& board) {
  command.add_option("BOARD", board)->required();
}

CLI::Option& add_json(CLI::App& command, bool& json) { return *command.add_flag("--json", json); }

/// What begins with "-" is the next option, whose own value is missing then.
std::string unless_option(const std::string& value, const std::string& refusal) {
  return value.empty() || value.front() == '-' ? "\"" + value + "\" " + refusal : std::string();
}

template <typename Name>
CLI::Option& add_bus_name(CLI::App& command, Name& bus) {
  return *command.add_option("--bus", bus)->check([](const std::string& name) {
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

CLI::Option& add_bus(CLI::App& command, BusArguments& bus) {
  command.add_option("--trace", bus.trace)->check([](const std::string& file) {
    return unless_option(file, "names no file for the frames");
  });
  return add_bus_name(command, bus.bus);
}

void add_timeout(CLI::App& command, BusArguments& bus) {
  add_number(*command.add_option("--timeout", bus.timeout), 1, 3600000);
}

/// For commands that need a board only to simulate it.
void add_simulated_board(CLI::App& command, std::string& board) {
  command.add_option("--board", board);
}

void add_operation(CLI::App& command, OperationArguments& operation) {
  add_board(command, operation.board);
  command.add_option("DEVICE", operation.device)->required();
  command.add_option("OPERATION", operation.operation)->required();
  command.add_option("PAYLOAD", operation.payload);
  command.add_flag("--raw", operation.raw);
}

void add_run(CLI::App& app, RunArguments& run) {
  CLI::App& command = add_command(app, "run");
  add_operation(command, run.operation);
  add_bus(command, run.bus);
  add_timeout(command, run.bus);
  command.add_flag("--transfers", run.transfers);
  command.add_flag("--force", run.force);
  add_number(*command.add_flag("--wait{10}", run.wait), 1, 86400);
  add_json(command, run.json);
}

void add_explain(CLI::App& app, ExplainArguments& explain) {
  CLI::App& command = add_command(app, "explain");
  add_operation(command, explain.operation);
  add_bus(command, explain.bus);
  add_timeout(command, explain.bus);
  command.add_flag("--force", explain.force);
  CLI::Option& candump = *command.add_flag("--candump", explain.candump);
  add_json(command, explain.json).excludes(&candump);
}

void add_script(CLI::App& app, ScriptArguments& script) {
  CLI::App& command = add_command(app, "script");
  add_board(command, script.board);
  command.add_option("FILE", script.file);
  add_bus(command, script.bus);
  add_timeout(command, script.bus);
  command.add_flag("--force", script.force);
  command.add_flag("--keep-going", script.keep_going);
  command.add_flag("--transfers", script.transfers);
  add_json(command, script.json);
}

void add_simulate(CLI::App& app, SimulateArguments& simulate) {
  CLI::App& command = add_command(app, "simulate");
  add_board(command, simulate.board);
  add_bus(command, simulate.bus).required();
  command.add_option("--script", simulate.script)->check([](const std::string& file) {
    return unless_option(file, "names no script");
  });
  add_number(*command.add_option("--for", simulate.seconds), 1, 31536000);
}

void add_nmt(CLI::App& app, NmtArguments& nmt) {
  CLI::App& command = add_command(app, "nmt");
  command.add_option("COMMAND", nmt.command)->required();
  command.add_option("NODE", nmt.node)->required();
  add_bus(command, nmt.bus);
  add_simulated_board(command, nmt.board);
  add_json(command, nmt.json);
}

void add_sdo_transfer(CLI::App& command, SdoArguments& sdo) {
  command.add_option("NODE", sdo.node)->required();
  command.add_option("INDEX", sdo.index)->required();
  command.add_option("SUB", sdo.sub_index)->required();
  add_bus(command, sdo.bus);
  add_timeout(command, sdo.bus);
  add_simulated_board(command, sdo.board);
  add_json(command, sdo.json);
}

void add_sdo(CLI::App& app, SdoArguments& sdo) {
  CLI::App& command = add_command(app, "sdo");
  command.require_subcommand(1);
  add_sdo_transfer(add_command(command, "sdo read"), sdo);
  CLI::App& write = add_command(command, "sdo write");
  add_sdo_transfer(write, sdo);
  write.add_option("VALUE", sdo.value)->required();
}

void add_check(CLI::App& app, CheckArguments& check) {
  CLI::App& command = add_command(app, "check");
  add_board(command, check.board);
  add_bus_name(command, check.bus);
  add_json(command, check.json);
}

void add_watch(CLI::App& app, WatchArguments& watch) {
  CLI::App& command = add_command(app, "watch");
  add_board(command, watch.board);
  add_bus_name(command, watch.bus).required();
  command.add_option("--for", watch.seconds);
  add_json(command, watch.json);
}

void add_producer(CLI::App& command, std::string& bus, std::uint32_t& period) {
  add_bus_name(command, bus).required();
  add_number(*command.add_option("--period", period)->required(), 1, 3600000);
}

void add_sync(CLI::App& app, SyncArguments& sync) {
  CLI::App& command = add_command(app, "sync");
  add_producer(command, sync.bus, sync.period);
  add_number(*command.add_option("--count", sync.count), 1,
             std::numeric_limits<std::uint32_t>::max());
  add_json(command, sync.json);
}

void add_heartbeat(CLI::App& app, HeartbeatArguments& heartbeat) {
  CLI::App& command = add_command(app, "heartbeat");
  command.add_option("--node", heartbeat.node)->required();
  add_producer(command, heartbeat.bus, heartbeat.period);
  add_json(command, heartbeat.json);
}

void add_commands(CLI::App& app, Arguments& arguments) {
  add_run(app, arguments.run);
  add_explain(app, arguments.explain);
  add_script(app, arguments.script);
  add_simulate(app, arguments.simulate);
  add_nmt(app, arguments.nmt);
  add_sdo(app, arguments.sdo);
  CLI::App& operations = add_command(app, "operations");
  add_board(operations, arguments.board);
  add_json(operations, arguments.json);
  add_check(app, arguments.check);
  add_watch(app, arguments.watch);
  add_sync(app, arguments.sync);
  add_heartbeat(app, arguments.heartbeat);
  add_json(add_command(app, "demo"), arguments.json);
  add_command(app, "completion").add_option("SHELL", arguments.shell)->required();
  add_command(app, "help").add_option("COMMAND", arguments.topic);
  add_command(app, "version");
}

}  // namespace

std::unique_ptr<CLI::App> command_parser(Arguments& parsed) {
  auto parser = std::make_unique<CLI::App>("", program_name);
  parser->formatter_fn([](const CLI::App* /*command*/, const std::string& /*name*/,
                          CLI::AppFormatMode /*mode*/) { return program_help_text(); });
  parser->set_version_flag(std::string(version_option.name), program_version());
  parser->require_subcommand(1);
  add_commands(*parser, parsed);
  return parser;
}

/// The parser would take the argument behind "--trace=" for the name of the file.
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

std::string parsed_command(const CLI::App& parser) {
  std::string name;
  const CLI::App* command = &parser;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    name += (name.empty() ? "" : " ") + command->get_name();
  }
  return name;
}

}  // namespace velmora_can_bridge
