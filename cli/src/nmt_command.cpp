#include <algorithm>
#include <array>
#include <string_view>

#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "json_line.hpp"
#include "number_argument.hpp"
#include "report.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"

namespace velmora_can_bridge {
namespace {

struct NamedCommand {
  std::string_view name;
  NmtCommand command;
};

constexpr std::array<NamedCommand, 5> named_commands{{
    {"start", NmtCommand::start},
    {"stop", NmtCommand::stop},
    {"pre-operational", NmtCommand::enter_pre_operational},
    {"reset-node", NmtCommand::reset_node},
    {"reset-communication", NmtCommand::reset_communication},
}};

std::optional<NmtCommand> read_command(const CommandLineHost& host, const std::string& name) {
  const auto* const found =
      std::find_if(named_commands.begin(), named_commands.end(),
                   [&](const NamedCommand& candidate) { return candidate.name == name; });
  if (found == named_commands.end()) {
    print_diagnostic(host, "unknown command \"" + name +
                               "\", expected start, stop, pre-operational, reset-node or "
                               "reset-communication");
    return std::nullopt;
  }
  return found->command;
}

void print_sent(const CommandLineHost& host, const NmtArguments& arguments, std::uint8_t node_id) {
  const std::string to = node_id == 0 ? "all nodes" : node_text(node_id);
  host.out << "sent " << arguments.command << " to " << to
           << "; nodes do not confirm it, their heartbeats show it\n";
}

void print_json(const CommandLineHost& host, const NmtArguments& arguments, std::uint8_t node_id,
                ExitStatus status, const std::string& reason) {
  nlohmann::ordered_json line{{"command", arguments.command},
                              {"node_id", node_id},
                              {"ok", status == ExitStatus::success},
                              {"code", exit_status_word(status)}};
  if (!reason.empty()) {
    line["reason"] = reason;
  }
  print_json_line(host, line);
}

}  // namespace

std::vector<std::string> nmt_command_names() {
  std::vector<std::string> names;
  names.reserve(named_commands.size());
  for (const NamedCommand& command : named_commands) {
    names.emplace_back(command.name);
  }
  return names;
}

ExitStatus nmt_command(const CommandLineHost& host, const NmtArguments& arguments) {
  const std::optional<NmtCommand> command = read_command(host, arguments.command);
  const std::optional<std::uint32_t> node =
      arguments.node == "all"
          ? 0
          : or_diagnostic(host, number_argument("node id", arguments.node, 1, highest_node_id));
  std::optional<BoardFile> board;
  if (!command || !node || !load_optional_board(host, arguments.board, board)) {
    return ExitStatus::bad_input;
  }
  const auto bus = CommandBus::open(host, arguments.bus, board ? &*board : nullptr);
  if (!bus) {
    return ExitStatus::bad_input;
  }

  const auto node_id = static_cast<std::uint8_t>(*node);
  const std::optional<BusError> error = NmtMaster(bus->channel()).send(*command, node_id);
  const ExitStatus status = error ? exit_status_of(*error) : ExitStatus::success;
  const std::string reason = error ? error->text : "";
  if (arguments.json) {
    print_json(host, arguments, node_id, status, reason);
  } else if (error) {
    print_failure(host, "not sent", reason);
  } else {
    print_sent(host, arguments, node_id);
  }
  return bus->finish(status);
}

}  // namespace velmora_can_bridge
