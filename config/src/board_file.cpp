#include "velmora_can_bridge/config/board_file.hpp"

#include <utility>

#include "board_checks.hpp"
#include "ground/read_file.hpp"
#include "problem_list.hpp"
#include "record_readers.hpp"
#include "text_check.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {
namespace {

BoardFile read_checked(const std::string& yaml, ProblemList& problems) {
  if (!check_text(yaml, problems) || !check_is_board(yaml, problems)) {
    return {};
  }
  const YamlTree tree = parse_yaml(yaml, problems);
  if (tree.root == nullptr) {
    return {};
  }
  BoardFile board = read_board(*tree.root, problems);
  check_board(*tree.root, board, problems);
  return board;
}

}  // namespace

std::string problem_text(const std::string& file, const Problem& problem) {
  const std::string place =
      problem.line == 0 ? ""
                        : std::to_string(problem.line) + ":" + std::to_string(problem.column) + ":";
  const std::string severity = problem.severity == Severity::error ? "error" : "warning";
  return file + ":" + place + " " + severity + ": " + problem.message;
}

LoadedBoard load_board_file(const std::string& path) {
  const Expected<std::string> text = read_file(path, longest_file);
  return text ? parse_board(*text)
              : LoadedBoard{std::nullopt, {{Severity::error, 0, 0, text.error()}}};
}

LoadedBoard parse_board(const std::string& yaml) {
  ProblemList problems;
  BoardFile board = read_checked(yaml, problems);
  LoadedBoard loaded;
  if (!problems.has_errors()) {
    loaded.file = std::move(board);
  }
  loaded.problems = problems.take();
  return loaded;
}

}  // namespace velmora_can_bridge
