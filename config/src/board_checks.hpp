// How the records of a board file fit together.
#pragma once

#include "problem_list.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// Judges `board`, which `read_board` has read from `root`: names, numbers and COB-IDs that stand
/// twice, the transmission and the layout of PDOs, fields and PDOs that operations name and the
/// node does not have.
///
/// What could not be read is given the benefit of the doubt, so that one mistake is not reported
/// twice: an RPDO whose number is unreadable may be the one that an operation means.
void check_board(const YamlValue& root, const BoardFile& board, ProblemList& problems);

}  // namespace velmora_can_bridge
