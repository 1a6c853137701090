// Devices: where they may stand, beside each other and beside what PDOs map.
#pragma once

#include "node_facts.hpp"
#include "problem_list.hpp"

namespace velmora_can_bridge {

/// Judges the devices of one node that could be read.
void check_devices(const NodeFacts& facts, ProblemList& problems);

}  // namespace velmora_can_bridge
