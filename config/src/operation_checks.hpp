// Operations: which of them fail or do harm with every payload.
#pragma once

#include "node_facts.hpp"
#include "problem_list.hpp"

namespace velmora_can_bridge {

/// Judges the operations of one node against its devices, PDOs and objects.
void check_operations(const NodeFacts& facts, ProblemList& problems);

}  // namespace velmora_can_bridge
