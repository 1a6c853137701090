#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "interface_channel.hpp"
#include "report.hpp"
#include "scripted_faults.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;

/// How often it is looked whether the user has had enough.
constexpr milliseconds poll_slice{50};

/// A trouble that comes back after this time counts as a new one.
constexpr milliseconds calm{5000};

std::string node_ids_text(const BoardFile& file) {
  std::string text;
  for (const NodeConfig& node : file.nodes) {
    text += (text.empty() ? "" : ", ") + hex<2>(node.node_id);
  }
  return (file.nodes.size() == 1 ? "node " : "nodes ") + text;
}

using Nodes = std::vector<std::unique_ptr<SimulatedBusNode>>;

Nodes nodes_of(const BoardFile& file) {
  Nodes nodes;
  for (const NodeConfig& config : file.nodes) {
    nodes.push_back(std::make_unique<SimulatedBusNode>(config.node_id, config.board));
  }
  return nodes;
}

std::vector<SimulatedBusNode*> pointers(const Nodes& nodes) {
  std::vector<SimulatedBusNode*> all;
  all.reserve(nodes.size());
  for (const auto& node : nodes) {
    all.push_back(node.get());
  }
  return all;
}

/// Nodes that are served on a channel.
class Simulation {
 public:
  Simulation(const CommandLineHost& host, CanChannel& channel, std::string interface,
             const Nodes& nodes, ScriptedFaults& faults)
      : host_(host),
        interface_(std::move(interface)),
        faults_(faults),
        server_(channel, pointers(nodes)) {}

  /// Switches the nodes on. The status that ends the program when the bus does not work.
  ExitStatus start() {
    CanStatus status = server_.poll(milliseconds(0));
    if (exit_status_of(status) == ExitStatus::success) {
      tell_trouble(status);
      status = server_.boot();
    }
    tell_trouble(status);
    return exit_status_of(status);
  }

  /// Serves until the time is over, or the user interrupts it.
  ExitStatus run(std::chrono::seconds time) {
    const Time end = Clock::now() + time;
    while (!is_interrupted(host_)) {
      tell_trouble(server_.poll(poll_slice));
      tell_doubles();
      faults_.tell_new(host_);
      if (time.count() != 0 && Clock::now() >= end) {
        return ExitStatus::success;
      }
    }
    return ExitStatus::interrupted;
  }

 private:
  /// One that lasts is told once.
  void tell_trouble(CanStatus status) {
    if (status == CanStatus::ok) {
      return;
    }
    const Time now = Clock::now();
    if (status != trouble_ || now - trouble_seen_ > calm) {
      print_diagnostic(host_, server_.explain(status));
      host_.err.flush();
    }
    trouble_ = status;
    trouble_seen_ = now;
  }

  /// Each once.
  void tell_doubles() {
    for (const std::uint8_t node_id : server_.doubled_node_ids()) {
      if (told_doubles_.insert(node_id).second) {
        print_diagnostic(host_, node_text(node_id) + ": another device on " + interface_ +
                                    " has this node id, and sends as well");
        host_.err.flush();
      }
    }
  }

  const CommandLineHost& host_;
  const std::string interface_;
  ScriptedFaults& faults_;
  SimulatedNodeServer server_;
  // The last one.
  CanStatus trouble_ = CanStatus::ok;
  Time trouble_seen_{};
  std::set<std::uint8_t> told_doubles_;
};

}  // namespace

ExitStatus simulate_command(const CommandLineHost& host, const SimulateArguments& arguments) {
  const std::optional<BoardFile> file = load_board(host, arguments.board);
  if (!file) {
    return ExitStatus::bad_input;
  }
  if (arguments.bus.bus == simulated_bus) {
    print_diagnostic(host, "name the CAN interface for the simulated nodes (--bus vcan0)");
    return ExitStatus::bad_input;
  }
  const Nodes nodes = nodes_of(*file);
  std::optional<ScriptedFaults> faults = load_faults(host, arguments.script, pointers(nodes));
  if (!faults) {
    return ExitStatus::bad_input;
  }
  const auto bus = CommandBus::open(host, arguments.bus, nullptr);
  if (!bus) {
    return ExitStatus::bad_input;
  }
  Simulation simulation(host, bus->channel(), arguments.bus.bus, nodes, *faults);
  if (const ExitStatus status = simulation.start(); status != ExitStatus::success) {
    return bus->finish(status);
  }
  host.out << "simulating " << node_ids_text(*file) << " on " << visible_text(arguments.bus.bus)
           << "; pre-operational until nmt start; Ctrl-C ends it" << std::endl;
  const ExitStatus status = simulation.run(std::chrono::seconds(arguments.seconds));
  faults->tell_missing(host);
  return bus->finish(status);
}

}  // namespace velmora_can_bridge
