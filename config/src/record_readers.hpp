// From the YAML tree to the records: one table of members for each record.
#pragma once

#include <string_view>

#include "problem_list.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// Reads the board file whose top value is `root`, and reports whatever a value, a record or a
/// kind of operation shows by itself; `check_board` judges how records fit together.
///
/// What could not be read keeps its default; lists have one element for each of the file's.
BoardFile read_board(const YamlValue& root, ProblemList& problems);

/// Whether a node may have that key.
bool is_node_key(std::string_view key);

/// Whether the record could be read without an error, so that all of it is what the file says.
bool is_readable_device(const YamlValue& source);
bool is_readable_pdo(const YamlValue& source);
bool is_readable_operation(const YamlValue& source);

}  // namespace velmora_can_bridge
