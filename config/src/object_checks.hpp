// The descriptions of objects that no mapping has, beside what else is known of them.
#pragma once

#include "node_facts.hpp"
#include "problem_list.hpp"

namespace velmora_can_bridge {

/// Judges the list `objects` of one node.
void check_objects(const NodeFacts& facts, ProblemList& problems);

}  // namespace velmora_can_bridge
