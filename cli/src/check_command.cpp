#include <algorithm>
#include <utility>

#include "command_bridge.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "interface_channel.hpp"
#include "json_line.hpp"
#include "report.hpp"
#include "table.hpp"

namespace velmora_can_bridge {
namespace {

struct Counts {
  std::size_t nodes = 0;
  std::size_t devices = 0;
  std::size_t pdos = 0;
  std::size_t operations = 0;
  std::size_t errors = 0;
  std::size_t warnings = 0;
};

Counts count(const LoadedBoard& loaded) {
  Counts counts;
  for (const Problem& problem : loaded.problems) {
    ++(problem.severity == Severity::error ? counts.errors : counts.warnings);
  }
  if (!loaded.file) {
    return counts;
  }
  counts.nodes = loaded.file->nodes.size();
  for (const NodeConfig& node : loaded.file->nodes) {
    counts.devices += node.board.device_od_map.size();
    counts.pdos += node.board.pdos.size();
    counts.operations += node.operations.size();
  }
  return counts;
}

void print_file_text(const CommandLineHost& host, const std::string& path,
                     const LoadedBoard& loaded, const Counts& counts) {
  for (const Problem& problem : loaded.problems) {
    print_problem(host, path, problem);
  }
  host.out << visible_text(path) << ": ";
  if (loaded.file) {
    host.out << counted(counts.nodes, "node") << ", " << counted(counts.devices, "device") << ", "
             << counted(counts.pdos, "PDO") << ", " << counted(counts.operations, "operation")
             << "; ";
  }
  host.out << counted(counts.errors, "error") << ", " << counted(counts.warnings, "warning")
           << '\n';
}

void print_file_json(const CommandLineHost& host, const std::string& path,
                     const LoadedBoard& loaded, const Counts& counts) {
  for (const Problem& problem : loaded.problems) {
    print_json_line(host, {{"severity", problem.severity == Severity::error ? "error" : "warning"},
                           {"file", path},
                           {"line", problem.line},
                           {"column", problem.column},
                           {"message", problem.message}});
  }
  print_json_line(
      host, {{"file", path},
             {"ok", loaded.file.has_value()},
             {"code", exit_status_word(loaded.file ? ExitStatus::success : ExitStatus::bad_input)},
             {"nodes", counts.nodes},
             {"devices", counts.devices},
             {"pdos", counts.pdos},
             {"operations", counts.operations},
             {"errors", counts.errors},
             {"warnings", counts.warnings}});
}

/// One node beside its device.
struct CheckedNode {
  const NodeConfig* node;
  DeviceComparison comparison;

  bool matches() const { return comparison.differences.empty() && comparison.gaps.empty(); }
};

using CheckedNodes = std::vector<CheckedNode>;

void print_node(const CommandLineHost& host, const CheckedNode& checked) {
  const DeviceComparison& comparison = checked.comparison;
  const std::size_t pdos = checked.node->board.pdos.size();
  if (checked.matches()) {
    host.out << node_text(checked.node->node_id) << ": " << counted(pdos, "PDO")
             << (pdos == 1 ? " matches\n" : " match\n");
  } else {
    host.out << node_text(checked.node->node_id) << ": "
             << counted(comparison.differences.size(), "difference") << " in "
             << counted(pdos, "PDO") << (comparison.gaps.empty() ? "\n" : ", not all compared\n");
  }
  for (const Gap& gap : comparison.gaps) {
    host.out << "  not compared: " << gap.what << ": " << visible_text(gap.reason) << '\n';
  }
  for (const std::string& warning : comparison.warnings) {
    host.out << "  warning: " << warning << '\n';
  }
  for (const std::string& note : comparison.notes) {
    host.out << "  note: " << note << '\n';
  }
}

void print_text(const CommandLineHost& host, const CheckedNodes& nodes) {
  Table table;
  table.add({"node", "PDO", "what", "file", "device"});
  bool has_rows = false;
  for (const CheckedNode& checked : nodes) {
    print_node(host, checked);
    for (const Difference& row : checked.comparison.differences) {
      table.add({hex<2>(checked.node->node_id), row.pdo, row.what, row.file, row.device});
      has_rows = true;
    }
  }
  if (has_rows) {
    host.out << '\n';
    table.print(host);
  }
}

ExitStatus status_of(const DeviceComparison& comparison) {
  ExitStatus status =
      comparison.differences.empty() ? ExitStatus::success : ExitStatus::operation_failed;
  for (const Gap& gap : comparison.gaps) {
    status = std::max(status, exit_status_of(gap.error));
  }
  return status;
}

/// The gravest that any node has: the statuses are numbered by how little the check could do.
ExitStatus status_of(const CheckedNodes& nodes) {
  ExitStatus status = ExitStatus::success;
  for (const CheckedNode& checked : nodes) {
    status = std::max(status, status_of(checked.comparison));
  }
  return status;
}

void print_node_json(const CommandLineHost& host, const CheckedNode& checked) {
  const auto node_id = checked.node->node_id;
  const DeviceComparison& comparison = checked.comparison;
  for (const Difference& row : comparison.differences) {
    print_json_line(host, {{"node_id", node_id},
                           {"pdo", row.pdo},
                           {"what", row.what},
                           {"file", row.file},
                           {"device", row.device}});
  }
  for (const Gap& gap : comparison.gaps) {
    print_json_line(host,
                    {{"node_id", node_id}, {"not_compared", gap.what}, {"reason", gap.reason}});
  }
  for (const std::string& warning : comparison.warnings) {
    print_json_line(host, {{"node_id", node_id}, {"warning", warning}});
  }
  for (const std::string& note : comparison.notes) {
    print_json_line(host, {{"node_id", node_id}, {"note", note}});
  }
  print_json_line(host, {{"node_id", node_id},
                         {"ok", checked.matches()},
                         {"code", exit_status_word(status_of(comparison))},
                         {"pdos", checked.node->board.pdos.size()},
                         {"differences", comparison.differences.size()},
                         {"not_compared", comparison.gaps.size()},
                         {"warnings", comparison.warnings.size()}});
}

void print_json(const CommandLineHost& host, const CheckedNodes& nodes) {
  for (const CheckedNode& checked : nodes) {
    print_node_json(host, checked);
  }
}

}  // namespace

ExitStatus check_command(const CommandLineHost& host, const CheckArguments& arguments) {
  const LoadedBoard loaded = load_board_file(arguments.board);
  const auto print_file = arguments.json ? print_file_json : print_file_text;
  print_file(host, arguments.board, loaded, count(loaded));
  if (!loaded.file) {
    return ExitStatus::bad_input;
  }
  if (!arguments.bus) {
    return ExitStatus::success;
  }
  if (!is_interface(host, *arguments.bus)) {
    return ExitStatus::bad_input;
  }
  const std::unique_ptr<CanChannel> channel = interface_channel(host, *arguments.bus);
  CommandBridge bridge(host, *channel, *loaded.file);
  CheckedNodes nodes;
  auto comparisons = bridge.ask([](Bridge& board) { return board.compare_with_devices(); });
  for (DeviceComparison& comparison : comparisons) {
    nodes.push_back({&loaded.file->nodes[nodes.size()], std::move(comparison)});
  }
  (arguments.json ? print_json : print_text)(host, nodes);
  bridge.await_late_answers();
  return status_of(nodes);
}

}  // namespace velmora_can_bridge
