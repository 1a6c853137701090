#include "velmora_can_bridge/turn_queue.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/patience.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

/// Threads that note their names when it is their turn, each started when those before it wait.
class TurnQueueTest : public testing::Test {
 protected:
  void note(const std::string& name) {
    const TurnQueue::Turn turn = turns.take();
    order += name;
  }

  void note_urgently(const std::string& name) {
    const UrgentScope scope;
    note(name);
  }

  /// Runs `action` on a thread of its own, and comes back when that thread waits.
  template <typename Action>
  void start(const Action& action) {
    const std::size_t before = turns.waiting();
    threads.push_back(std::async(std::launch::async, action));
    EXPECT_TRUE(comes_true([&] { return turns.waiting() == before + 1; }));
  }

  void end_all() {
    for (std::future<void>& thread : threads) {
      EXPECT_TRUE(is_done(thread));
      thread.get();
    }
  }

  std::mutex mutex;
  TurnQueue turns{mutex};
  // Guarded by the mutex.
  std::string order;
  std::vector<std::future<void>> threads;
};

TEST_F(TurnQueueTest, turn_that_nobody_has_is_taken_at_once) {
  const TurnQueue::Turn turn = turns.take();
  EXPECT_TRUE(turn.owns_lock());
  EXPECT_EQ(turn.mutex(), &mutex);
  EXPECT_EQ(turns.waiting(), 0U);
}

TEST_F(TurnQueueTest, turn_ends_with_its_lock) {
  turns.take().unlock();
  EXPECT_TRUE(turns.take().owns_lock());
}

TEST_F(TurnQueueTest, who_waits_longest_goes_next) {
  TurnQueue::Turn turn = turns.take();
  for (const char* name : {"a", "b", "c", "d", "e", "f"}) {
    start([this, name] { note(name); });
  }
  turn.unlock();
  end_all();
  EXPECT_EQ(order, "abcdef");
  EXPECT_EQ(turns.waiting(), 0U);
}

TEST_F(TurnQueueTest, urgent_ones_go_before_all_that_wait_and_in_order_among_themselves) {
  TurnQueue::Turn turn = turns.take();
  start([this] { note("a"); });
  start([this] { note("b"); });
  start([this] { note_urgently("1"); });
  start([this] { note("c"); });
  start([this] { note_urgently("2"); });
  turn.unlock();
  end_all();
  EXPECT_EQ(order, "12abc");
}

TEST_F(TurnQueueTest, who_comes_last_does_not_overtake_those_that_wait_though_the_mutex_is_free) {
  TurnQueue::Turn turn = turns.take();
  for (const char* name : {"a", "b", "c"}) {
    start([this, name] { note(name); });
  }
  turn.unlock();
  note("x");
  end_all();
  EXPECT_EQ(order, "abcx");
}

TEST_F(TurnQueueTest, many_threads_all_get_their_turns_and_never_two_at_once) {
  constexpr int rounds = 500;
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  int taken = 0;
  for (int number = 0; number < 6; ++number) {
    threads.push_back(std::async(std::launch::async, [&, number] {
      for (int round = 0; round < rounds; ++round) {
        const bool is_urgent = (round + number) % 7 == 0;
        const auto scope = is_urgent ? std::make_unique<UrgentScope>() : nullptr;
        TurnQueue::Turn turn = turns.take();
        overlaps += inside++ == 0 ? 0 : 1;
        ++taken;
        --inside;
        if (!is_urgent && round % 11 == 0) {
          turns.step_aside(turn, [] { std::this_thread::yield(); });
          overlaps += inside++ == 0 ? 0 : 1;
          --inside;
        }
      }
    }));
  }
  end_all();
  EXPECT_EQ(taken, 6 * rounds);
  EXPECT_EQ(overlaps, 0);
}

// --- giving up ---

TEST_F(TurnQueueTest, free_turn_is_taken_without_asking_whether_it_is_pointless) {
  EXPECT_TRUE(turns.take_unless([] { return true; }).owns_lock());
}

TEST_F(TurnQueueTest, wait_that_is_pointless_from_the_beginning_is_not_begun) {
  const TurnQueue::Turn turn = turns.take();
  auto other = std::async(std::launch::async,
                          [&] { return turns.take_unless([] { return true; }).owns_lock(); });
  ASSERT_TRUE(is_done(other));
  EXPECT_FALSE(other.get());
}

TEST_F(TurnQueueTest, wait_that_becomes_pointless_ends_and_the_others_keep_their_order) {
  TurnQueue::Turn turn = turns.take();
  std::atomic<bool> pointless{false};
  start([this] { note("a"); });
  std::promise<bool> gave_up;
  start(
      [&] { gave_up.set_value(!turns.take_unless([&] { return pointless.load(); }).owns_lock()); });
  start([this] { note("b"); });
  turns.look_again();
  EXPECT_EQ(turns.waiting(), 3U);

  pointless = true;
  turns.look_again();
  auto answer = gave_up.get_future();
  ASSERT_TRUE(is_done(answer));
  EXPECT_TRUE(answer.get());
  EXPECT_TRUE(comes_true([&] { return turns.waiting() == 2; }));
  turn.unlock();
  end_all();
  EXPECT_EQ(order, "ab");
}

TEST_F(TurnQueueTest, wait_of_the_next_in_line_that_became_pointless_ends_when_its_turn_comes) {
  TurnQueue::Turn turn = turns.take();
  std::atomic<bool> pointless{false};
  bool took = true;
  start([&] { took = turns.take_unless([&] { return pointless.load(); }).owns_lock(); });
  start([this] { note("b"); });
  pointless = true;
  turn.unlock();
  end_all();
  EXPECT_FALSE(took);
  EXPECT_EQ(order, "b");
}

// --- stepping aside ---

TEST_F(TurnQueueTest, urgent_ones_go_while_one_has_stepped_aside) {
  TurnQueue::Turn turn = turns.take();
  turns.step_aside(turn, [&] {
    auto other = std::async(std::launch::async, [&] { note_urgently("1"); });
    EXPECT_TRUE(is_done(other));
  });
  EXPECT_TRUE(turn.owns_lock());
  EXPECT_EQ(order, "1");
}

TEST_F(TurnQueueTest, urgent_one_that_waited_goes_when_one_steps_aside) {
  TurnQueue::Turn turn = turns.take();
  start([this] { note_urgently("1"); });
  turns.step_aside(turn, [&] { EXPECT_TRUE(is_done(threads.back())); });
  EXPECT_EQ(order, "1");
}

TEST_F(TurnQueueTest, all_others_wait_behind_one_that_has_stepped_aside) {
  TurnQueue::Turn turn = turns.take();
  start([this] { note("b"); });
  turns.step_aside(turn, [&] {
    start([this] { note("c"); });
    EXPECT_TRUE(still_waits(threads.front()));
  });
  order += "a";
  turn.unlock();
  end_all();
  EXPECT_EQ(order, "abc");
}

TEST_F(TurnQueueTest, exception_of_what_runs_meanwhile_leaves_the_turn_to_others) {
  TurnQueue::Turn turn = turns.take();
  start([this] { note("b"); });
  EXPECT_THROW(turns.step_aside(turn, [] { throw std::runtime_error("meanwhile"); }),
               std::runtime_error);
  EXPECT_FALSE(turn.owns_lock());
  end_all();
  EXPECT_EQ(order, "b");
  EXPECT_EQ(turns.waiting(), 0U);
}

}  // namespace
}  // namespace velmora_can_bridge
