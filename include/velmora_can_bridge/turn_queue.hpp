/// Locking a mutex in the order in which one came.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Stands in front of a mutex and lets threads lock it in turn: who waits longest goes next, and
/// those inside an `UrgentScope` go before all others that wait.
///
/// Nobody is overtaken by one that came when he already waited, but for urgent ones. While nobody
/// waits, taking a turn costs what locking the mutex costs. Any thread; not recursive, as the mutex
/// is not.
class TurnQueue {
 public:
  /// A turn lasts while its lock is held.
  using Turn = std::unique_lock<std::mutex>;

  /// `mutex` outlives the queue, and is locked through it alone.
  explicit TurnQueue(std::mutex& mutex) : mutex_(&mutex) {}

  /// Waits for the calling thread's turn. Throws what locking a mutex throws, and bad_alloc.
  Turn take() {
    return is_free() ? Turn(*mutex_, std::adopt_lock) : wait([] { return false; });
  }

  /// As `take`, but answers without the mutex when `pointless` says that waiting is: asked when the
  /// thread has to wait, with every `look_again`, and when its turn has come. The thread that is
  /// next is asked only then. `pointless` runs with the queue locked: it is short and takes no
  /// lock. A turn that is free is taken without asking.
  template <typename Pointless>
  Turn take_unless(const Pointless& pointless) {
    return is_free() ? Turn(*mutex_, std::adopt_lock) : wait(pointless);
  }

  /// Lets every thread that waits ask again whether it is pointless.
  void look_again();

  /// Gives the turn away to urgent ones while `meanwhile` runs, and takes it back before all that
  /// are not urgent.
  void step_aside(Turn& turn, const std::function<void()>& meanwhile);

  /// Threads that wait now, those that have stepped aside included.
  std::size_t waiting() const { return waiting_.load(std::memory_order_relaxed); }

 private:
  struct Waiter;
  class Entry;
  class Unlocked;
  using Queue = std::unique_lock<std::mutex>;

  bool is_free() { return waiting() == 0 && mutex_->try_lock(); }
  Turn wait(const std::function<bool()>& pointless);
  Turn lock_in_turn(Waiter& self, Queue& queue, const std::function<bool()>& pointless);
  bool is_next(const Waiter& waiter) const;
  void call_next();

  std::mutex* const mutex_;
  // The number of waiters_, for who only looks.
  std::atomic<std::size_t> waiting_{0};
  // Guards what follows. Held for moments; may be taken with *mutex_ held, never the reverse.
  std::mutex queue_mutex_;
  // In the order of their turns: urgent ones first.
  std::vector<Waiter*> waiters_;
  // One of them is about to lock the mutex. Only one at a time: another would wake in vain.
  bool is_locking_ = false;
};

}  // namespace velmora_can_bridge
