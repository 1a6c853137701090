// Waiting for other threads, with a bound.
#pragma once

#include <chrono>
#include <future>
#include <thread>

namespace velmora_can_bridge {

/// How long a test waits for what must happen; it fails after that, and never passes by waiting.
inline constexpr std::chrono::seconds patience{20};

template <typename Future>
bool is_done(const Future& future) {
  return future.wait_for(patience) == std::future_status::ready;
}

/// Waits until the condition holds; false when it never did.
template <typename Condition>
bool comes_true(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

/// Whether what must not end yet goes on for a moment. A wrong end may be missed on a slow machine;
/// a right wait is never reported.
template <typename Future>
bool still_waits(const Future& future) {
  return future.wait_for(std::chrono::milliseconds(30)) == std::future_status::timeout;
}

}  // namespace velmora_can_bridge
