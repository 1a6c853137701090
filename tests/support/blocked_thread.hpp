// Threads that a test lets run into a wait, one after another.
#pragma once

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <future>
#include <string>
#include <utility>

#include "support/patience.hpp"

namespace velmora_can_bridge {

/// Runs an action on a thread of its own.
template <typename Result>
class BlockedThread {
 public:
  /// Comes back when the thread sleeps in a wait. The action must run into one.
  template <typename Action>
  explicit BlockedThread(Action action)
      : result_(std::async(std::launch::async,
                           [this, action = std::move(action)] {
                             thread_id_ = ::gettid();
                             return action();
                           })),
        is_blocked_(comes_true([this] { return sleeps(); })) {}

  /// False when the thread never came to its wait.
  bool is_blocked() const { return is_blocked_; }

  std::future<Result>& result() { return result_; }

 private:
  /// Whether the system sees the thread asleep, several times in a row: a lock that is held for
  /// moments lets it sleep, too.
  bool sleeps() const {
    for (int look = 0; look < 5; ++look) {
      if (thread_id_ == 0 || state_of(thread_id_) != 'S') {
        return false;
      }
      std::this_thread::yield();
    }
    return true;
  }

  /// What the system says of the thread: R runs, S sleeps.
  static char state_of(int thread_id) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread_id) + "/stat");
    std::string text;
    std::getline(file, text);
    const std::size_t name_end = text.rfind(')');
    return name_end == std::string::npos ? '?' : text.at(name_end + 2);
  }

  std::atomic<int> thread_id_{0};
  std::future<Result> result_;
  const bool is_blocked_;
};

}  // namespace velmora_can_bridge
