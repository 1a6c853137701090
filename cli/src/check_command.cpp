#include <algorithm>

#include "commands.hpp"
#include "json_line.hpp"
#include "report.hpp"

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

std::string counted(std::size_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

void print_text(const CommandLineHost& host, const std::string& path, const LoadedBoard& loaded,
                const Counts& counts) {
  for (const Problem& problem : loaded.problems) {
    host.err << problem_text(path, problem) << '\n';
  }
  host.out << path << ": ";
  if (loaded.file) {
    host.out << counted(counts.nodes, "node") << ", " << counted(counts.devices, "device") << ", "
             << counted(counts.pdos, "PDO") << ", " << counted(counts.operations, "operation")
             << "; ";
  }
  host.out << counted(counts.errors, "error") << ", " << counted(counts.warnings, "warning")
           << '\n';
}

void print_json(const CommandLineHost& host, const std::string& path, const LoadedBoard& loaded,
                const Counts& counts) {
  for (const Problem& problem : loaded.problems) {
    print_json_line(host, {{"severity", problem.severity == Severity::error ? "error" : "warning"},
                           {"file", path},
                           {"line", problem.line},
                           {"column", problem.column},
                           {"message", problem.message}});
  }
  print_json_line(host, {{"file", path},
                         {"ok", loaded.file.has_value()},
                         {"nodes", counts.nodes},
                         {"devices", counts.devices},
                         {"pdos", counts.pdos},
                         {"operations", counts.operations},
                         {"errors", counts.errors},
                         {"warnings", counts.warnings}});
}

}  // namespace

ExitStatus check_command(const CommandLineHost& host, const std::string& board, bool json) {
  const LoadedBoard loaded = load_board_file(board);
  (json ? print_json : print_text)(host, board, loaded, count(loaded));
  return loaded.file ? ExitStatus::success : ExitStatus::bad_input;
}

}  // namespace velmora_can_bridge
