// Counts what the program takes from the heap.
#pragma once

#include <cstddef>

namespace velmora_can_bridge {

/// Calls of operator new of this thread so far.
std::size_t allocations();

}  // namespace velmora_can_bridge
