#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <thread>
#include <vector>

#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int rounds = 1000;

bool all_equal(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(),
                     [&](std::uint8_t byte) { return byte == bytes.front(); });
}

/// Runs every task `rounds` times, each in a thread of its own.
template <typename Test>
void run_all(Test& test, const std::vector<void (Test::*)(int)>& tasks) {
  std::vector<std::thread> threads;
  threads.reserve(tasks.size());
  for (const auto task : tasks) {
    threads.emplace_back([&test, task] {
      for (int round = 0; round < rounds; ++round) {
        (test.*task)(round);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

/// One object of 8 bytes, written by SDO and by RPDO 1 with equal bytes only.
class SimulatedNodeThreadsTest : public testing::Test {
 public:
  void download(int round) {
    if (!node.sdo_write(5, 0x2000, 0, Bytes(8, static_cast<std::uint8_t>(round)))) {
      ++failures;
    }
  }

  void upload(int /*round*/) {
    Bytes data;
    if (!node.sdo_read(5, 0x2000, 0, data) || data.size() != 8 || !all_equal(data)) {
      ++failures;
    }
  }

  void send(int round) {
    std::array<std::uint8_t, 8> frame{};
    frame.fill(static_cast<std::uint8_t>(round));
    if (!node.send_rpdo(5, 1, frame, 8)) {
      ++failures;
    }
  }

  void send_short_frame(int /*round*/) {
    node.send_rpdo(5, 1, {}, 7);
    if (node.emergencies().size() > SimulatedNode::emergency_limit) {
      ++failures;
    }
  }

  void ask_another_node(int /*round*/) {
    Bytes data;
    if (node.sdo_read(6, 0x2000, 0, data)) {
      ++failures;
    }
    const std::optional<SdoAbort> abort = node.last_sdo_abort();
    if (abort && abort != SdoAbort::timed_out) {
      ++failures;
    }
  }

  void work_on_the_bench(int round) {
    const Bytes value(8, static_cast<std::uint8_t>(round));
    node.add_object(0x2000, 0, {ObjectAccess::read_write, value});
    if (!node.set_object_value(0x2000, 0, value) || !all_equal(*node.object_value(0x2000, 0))) {
      ++failures;
    }
    node.clear_emergencies();
  }

  SimulatedNode node{5, {{{1, "RPDO", 0, {{0x2000, 0, 64, ""}}}}, {}}};
  std::atomic<int> failures{0};
};

TEST_F(SimulatedNodeThreadsTest, transfers_and_frames_take_effect_as_a_whole) {
  using Self = SimulatedNodeThreadsTest;
  const std::vector<void (Self::*)(int)> tasks = {
      &Self::download, &Self::download,         &Self::upload,           &Self::upload,
      &Self::send,     &Self::send_short_frame, &Self::ask_another_node, &Self::work_on_the_bench};

  run_all<Self>(*this, tasks);

  EXPECT_EQ(failures, 0);
}

/// A claw that is enabled, moved and looked at from all sides while one thread lets the time pass.
class TickingNodeTest : public testing::Test {
 public:
  void tick(int /*round*/) { node.tick(std::chrono::milliseconds(3)); }

  void command(int round) {
    static constexpr std::array<std::uint8_t, 5> words = {0x06, 0x0F, 0x1F, 0x02, 0x80};
    const std::uint8_t word = words.at(static_cast<std::size_t>(round) % words.size());
    if (!node.sdo_write(5, 0x6040, 0, {word, 0}) || !node.sdo_write(5, 0x2300, 9, {1})) {
      ++failures;
    }
  }

  void send_targets(int round) {
    const auto low = static_cast<std::uint8_t>(round);
    node.send_rpdo(5, 1, {low, 1, 0, 0, static_cast<std::uint8_t>(round % 7)}, 5);
  }

  void fail(int round) {
    if (round % 50 == 0 && !node.inject_fault("claw")) {
      ++failures;
    }
  }

  /// Bits 0 to 3, 5 and 6 must always be those of one of the profile's states.
  void read_statusword(int /*round*/) {
    static constexpr std::array<int, 7> states = {0x40, 0x21, 0x23, 0x27, 0x07, 0x0F, 0x08};
    const Bytes statusword = *node.object_value(0x6041, 0);
    if (std::count(states.begin(), states.end(), statusword.front() & 0x6F) != 1) {
      ++failures;
    }
  }

  SimulatedNode node{5,
                     {{{1, "RPDO", 0, {{0x60FF, 0, 32, "velocity"}, {0x6060, 0, 8, "mode"}}}},
                      {{"claw", {"claw", 0x6040, 0x2300}}}}};
  std::atomic<int> failures{0};
};

TEST_F(TickingNodeTest, shows_one_state_at_a_time) {
  using Self = TickingNodeTest;
  const std::vector<void (Self::*)(int)> tasks = {
      &Self::tick, &Self::command,         &Self::command,        &Self::send_targets,
      &Self::fail, &Self::read_statusword, &Self::read_statusword};

  run_all<Self>(*this, tasks);

  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace velmora_can_bridge
