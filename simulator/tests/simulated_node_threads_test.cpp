#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
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

  SimulatedNode node{5, {{{1, "RPDO", {{0x2000, 0, 64, ""}}}}, {}}};
  std::atomic<int> failures{0};
};

TEST_F(SimulatedNodeThreadsTest, transfers_and_frames_take_effect_as_a_whole) {
  using Self = SimulatedNodeThreadsTest;
  const std::vector<void (Self::*)(int)> tasks = {
      &Self::download, &Self::download,         &Self::upload,           &Self::upload,
      &Self::send,     &Self::send_short_frame, &Self::ask_another_node, &Self::work_on_the_bench};

  std::vector<std::thread> threads;
  threads.reserve(tasks.size());
  for (const auto task : tasks) {
    threads.emplace_back([this, task] {
      for (int round = 0; round < rounds; ++round) {
        (this->*task)(round);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace velmora_can_bridge
