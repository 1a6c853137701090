/// Board files: the nodes of a robot board and their operations, read from YAML.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/config/value_description.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One node of the board: what a controller needs, and the operations to run on it.
struct NodeConfig {
  /// CANopen node id, 1 to 127 (CiA 301).
  std::uint8_t node_id = 0;
  BoardConfig board{};
  /// Operations by name. The name is the file's own; the controller does not know it.
  std::map<std::string, OperationConfig> operations{};
  /// What the values of objects mean: those that fields of PDOs carry and those reached by SDO.
  std::map<ValueAddress, ValueDescription> values{};
};

/// Everything that one board file describes.
///
/// Controllers refer to `node_id` and `board` inside it: fill it, then neither change, move nor
/// destroy it while a controller lives.
struct BoardFile {
  /// At least one after a successful load; node ids and device names are unique over all of them.
  std::vector<NodeConfig> nodes{};
};

enum class Severity {
  /// The file loads, but a part of it has no effect or not the expected one.
  warning,
  /// The file does not load.
  error
};

/// One mistake in a board file.
struct Problem {
  Severity severity = Severity::error;
  /// Counted from 1; 0 when the problem is the file as a whole.
  std::size_t line = 0;
  /// Counted from 1, in bytes; 0 together with `line`.
  std::size_t column = 0;
  /// What is wrong and what was expected, one line. Text of the file is quoted, shortened to 40
  /// bytes, and free of control characters.
  std::string message{};
};

/// The problem as compilers write it: "robot.yaml:12:14: error: ...", and "robot.yaml: error: ..."
/// for the file as a whole. `file` is printed as it stands.
std::string problem_text(const std::string& file, const Problem& problem);

/// What loading a board file gives.
struct LoadedBoard {
  /// The content; empty when one of the problems is an error.
  std::optional<BoardFile> file{};
  /// Everything found in one run, in the order of the file, problems of the whole file first. At
  /// most 100 errors and 100 warnings; one more problem at the end then tells how many are missing.
  std::vector<Problem> problems{};
};

/// Reads and checks the board file at `path`, whose format docs/board-file.md describes.
///
/// Every failure is a `Problem`: a file that is missing, unreadable, a directory or larger than
/// 2 000 000 bytes gives one for the file as a whole. Blocks while it reads. Throws nothing but
/// what the standard library throws for lack of memory. Safe to call from several threads at once.
LoadedBoard load_board_file(const std::string& path);

/// As `load_board_file`, but reads the text `yaml`.
LoadedBoard parse_board(const std::string& yaml);

}  // namespace velmora_can_bridge
