// How a line of a script may go on.
#pragma once

#include <string>
#include <vector>

namespace velmora_can_bridge {

struct BoardFile;

/// Words that may stand where `line`, as far as it is typed, ends: those that begin with what
/// stands behind its last blank, sorted. Devices, operations that suit the device or need none,
/// names of payload values ("red=") and of their codes, conditions of `wait`.
std::vector<std::string> line_candidates(const std::string& line, const BoardFile& file);

/// What all of the words begin with; empty for no words.
std::string common_beginning(const std::vector<std::string>& words);

}  // namespace velmora_can_bridge
