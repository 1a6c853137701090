// How long anything on a bus waits at most.
#pragma once

#include <algorithm>
#include <chrono>

namespace velmora_can_bridge {

/// Longer waits count as this one, so that no sum overflows.
inline constexpr std::chrono::hours longest_wait{24 * 365};

/// `time`, but no longer than `longest_wait` and not below 0.
inline constexpr std::chrono::milliseconds bounded(std::chrono::milliseconds time) {
  return std::clamp<std::chrono::milliseconds>(time, std::chrono::milliseconds(0), longest_wait);
}

}  // namespace velmora_can_bridge
