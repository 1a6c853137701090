#include "velmora_can_bridge/config/board_file.hpp"

#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

#include "board_checks.hpp"
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

LoadedBoard failed_load(int reason) {
  return {std::nullopt,
          {{Severity::error, 0, 0, "cannot be read: " + std::generic_category().message(reason)}}};
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
  // The library's streams tell the reason of a failure in errno alone.
  errno = 0;
  std::ifstream input(path, std::ios::binary);
  if (!input) {
    return failed_load(errno);
  }
  // One byte more than allowed, so that a longer file is seen as such; it may have no end.
  std::string text(longest_file + 1, '\0');
  input.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (input.bad()) {
    return failed_load(errno);
  }
  text.resize(static_cast<std::size_t>(input.gcount()));
  return parse_board(text);
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
