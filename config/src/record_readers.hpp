// From the YAML tree to the records: one table of members for each record.
#pragma once

#include "problem_list.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// Reads the board file whose top value is `root`, and reports whatever a value, a record or a
/// kind of operation shows by itself; `check_board` judges how records fit together.
///
/// What could not be read keeps its default; lists have one element for each of the file's.
BoardFile read_board(const YamlValue& root, ProblemList& problems);

}  // namespace velmora_can_bridge
