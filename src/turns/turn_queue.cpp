#include "velmora_can_bridge/turn_queue.hpp"

#include <algorithm>

#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {

struct TurnQueue::Waiter {
  bool is_urgent = false;
  /// Has stepped aside: keeps its place and does not want the turn yet.
  bool is_aside = false;
  /// Told when it may be this one's turn.
  std::condition_variable called;
};

/// A thread's place in the queue. Made and ended with the queue locked.
class TurnQueue::Entry {
 public:
  Entry(TurnQueue& turns, Waiter& waiter) : turns_(&turns), waiter_(&waiter) {
    // Who steps aside had his turn: before all others that are not urgent.
    const bool goes_last = !waiter.is_urgent && !waiter.is_aside;
    auto& waiters = turns.waiters_;
    const auto place = goes_last
                           ? waiters.end()
                           : std::find_if(waiters.begin(), waiters.end(),
                                          [](const Waiter* other) { return !other->is_urgent; });
    waiters.insert(place, &waiter);
    turns.waiting_ = waiters.size();
  }
  ~Entry() {
    auto& waiters = turns_->waiters_;
    waiters.erase(std::find(waiters.begin(), waiters.end(), waiter_));
    turns_->waiting_ = waiters.size();
    turns_->call_next();
  }
  Entry(const Entry&) = delete;
  Entry(Entry&&) = delete;
  Entry& operator=(const Entry&) = delete;
  Entry& operator=(Entry&&) = delete;

 private:
  TurnQueue* const turns_;
  Waiter* const waiter_;
};

/// The queue is unlocked while this lives, with a mark set meanwhile.
class TurnQueue::Unlocked {
 public:
  Unlocked(Queue& queue, bool& mark) : queue_(&queue), mark_(&mark) {
    mark = true;
    queue.unlock();
  }
  ~Unlocked() {
    queue_->lock();
    *mark_ = false;
  }
  Unlocked(const Unlocked&) = delete;
  Unlocked(Unlocked&&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;
  Unlocked& operator=(Unlocked&&) = delete;

 private:
  Queue* const queue_;
  bool* const mark_;
};

void TurnQueue::look_again() {
  const Queue queue(queue_mutex_);
  for (Waiter* const waiter : waiters_) {
    waiter->called.notify_one();
  }
}

void TurnQueue::step_aside(Turn& turn, const std::function<void()>& meanwhile) {
  Queue queue(queue_mutex_);
  Waiter self;
  self.is_aside = true;
  const Entry entry(*this, self);
  turn.unlock();
  call_next();
  {
    const Unlocked unlocked(queue, self.is_aside);
    meanwhile();
  }
  turn = lock_in_turn(self, queue, [] { return false; });
}

TurnQueue::Turn TurnQueue::wait(const std::function<bool()>& pointless) {
  Queue queue(queue_mutex_);
  Waiter self;
  self.is_urgent = UrgentScope::is_active();
  const Entry entry(*this, self);
  return lock_in_turn(self, queue, pointless);
}

/// The turn of a thread that stands in the queue; without the mutex when waiting was pointless.
TurnQueue::Turn TurnQueue::lock_in_turn(Waiter& self, Queue& queue,
                                        const std::function<bool()>& pointless) {
  Turn turn(*mutex_, std::defer_lock);
  while (!turn.owns_lock()) {
    self.called.wait(queue, [&] { return is_next(self) || pointless(); });
    if (pointless()) {
      break;
    }
    {
      const Unlocked unlocked(queue, is_locking_);
      turn.lock();
    }
    // Meanwhile an urgent one may have come, or the wait may have become pointless.
    if (pointless() || !is_next(self)) {
      turn.unlock();
      call_next();
    }
  }
  return turn;
}

/// Whether the waiter may lock the mutex now.
bool TurnQueue::is_next(const Waiter& waiter) const {
  return !is_locking_ && waiters_.front() == &waiter;
}

void TurnQueue::call_next() {
  if (!is_locking_ && !waiters_.empty()) {
    waiters_.front()->called.notify_one();
  }
}

}  // namespace velmora_can_bridge
