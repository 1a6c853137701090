// A bridge that many threads use at once, for the thread sanitizer above all.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <thread>

#include "lamp_board.hpp"
#include "velmora_can_bridge/bridge/bridge_runner.hpp"

namespace velmora_can_bridge {
namespace {

/// Two lamps, 0x10 and 0x11, whose "mode" is 7 and stays so, whoever writes "level".
class BridgeStress : public testing::Test {
 protected:
  static constexpr int rounds = 150;
  static constexpr std::uint8_t mode = 7;

  BridgeStress() {
    for (NodeOnBus* const node : {&lamp, &other}) {
      node->node.device().set_object_value(0x2000, 2, {mode});
    }
    NmtMaster(bus).send(NmtCommand::start, 0);
  }

  static BoardFile two_lamps() {
    BoardFile file = lamp_file();
    NodeConfig second = file.nodes.front();
    second.node_id = 0x11;
    second.board.device_od_map = {{"other", {"", 0x2000, 0}}};
    file.nodes.push_back(second);
    return file;
  }

  /// It may fail for a stop alone.
  void judge(const OperationResult& result, const std::optional<BusError>& error) {
    const bool is_stopped = error && error->kind == BusErrorKind::stopped;
    ++(result.ok ? succeeded : is_stopped ? stopped : failed);
  }

  void run(const char* device, const char* operation, int value) {
    const OperationReport report =
        bridge.run(device, operation, {static_cast<std::uint8_t>(value)}, Detail::transfers);
    judge(report.result, report.error);
  }

  void explain(const char* device, const char* operation, int value) {
    const Explanation explanation =
        bridge.explain(device, operation, {static_cast<std::uint8_t>(value)});
    judge(explanation.result, explanation.error);
  }

  /// Each boot-up makes the bridge forget images, while others write through them.
  void restart(NodeOnBus& node, std::uint8_t node_id) {
    node.on_bus.boot();
    EXPECT_FALSE(bridge.send(NmtCommand::start, node_id));
  }

  void read_states() {
    bridge.node_state(0x10);
    const auto read = bridge.read_object(0x11, 0x2000, 2);
    if (read) {
      EXPECT_EQ(*read, std::vector<std::uint8_t>{mode});
    } else {
      EXPECT_EQ(read.error().kind, BusErrorKind::stopped);
    }
  }

  void come_and_go() {
    const std::uint64_t observer = bridge.add_observer([this](const auto& /*event*/) { ++told; });
    bridge.poll(std::chrono::milliseconds(0));
    bridge.remove_observer(observer);
  }

  InProcessBus bus{BusTime::real};
  NodeOnBus lamp{bus, 0x10, lamp_board()};
  NodeOnBus other{bus, 0x11, lamp_board()};
  Bridge bridge{bus, two_lamps()};
  std::atomic<int> frames{0};
  std::atomic<int> wrong_frames{0};
  const std::unique_ptr<CanEndpoint> listener =
      bus.open({{0x210}, {0x211}}, [this](const CanFrame& frame, auto& /*answers*/) {
        ++frames;
        wrong_frames += frame.length != 2 || frame.data[1] != mode ? 1 : 0;
      });
  std::atomic<int> succeeded{0};
  std::atomic<int> stopped{0};
  std::atomic<int> failed{0};
  std::atomic<int> told{0};
  std::atomic<int> run_by_observer{0};
};

TEST_F(BridgeStress, threads_and_observers_use_one_bridge_until_a_stop) {
  bridge.add_observer([this](const BridgeEvent& /*event*/) {
    run("lamp", "set_level", 100);
    ++run_by_observer;
  });
  const std::vector<std::function<void(int)>> tasks{
      [&](int round) { run("lamp", "set_level", round); },
      [&](int round) { run("lamp", "refresh_level", round); },
      [&](int round) { run("other", "set_level", round); },
      [&](int round) { explain("lamp", "set_level", round); },
      [&](int round) { explain("other", "refresh_level", round); },
      [&](int /*round*/) { read_states(); },
      [&](int round) { round % 2 == 0 ? restart(lamp, 0x10) : restart(other, 0x11); },
      [&](int /*round*/) { come_and_go(); },
  };
  {
    const BridgeRunner runner(bridge);
    std::vector<std::thread> threads;
    threads.reserve(tasks.size());
    for (const auto& task : tasks) {
      threads.emplace_back([&task, this, is_first = threads.empty()] {
        for (int round = 0; round < rounds; ++round) {
          task(round);
        }
        if (is_first) {
          bridge.stop("enough");
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  run("lamp", "set_level", 1);
  bridge.poll(std::chrono::milliseconds(0));
  EXPECT_EQ(failed, 0) << "for another reason than the stop";
  EXPECT_GE(succeeded, rounds) << "those of the thread that has stopped it at its end";
  EXPECT_GE(stopped, 1) << "the one after the stop";
  EXPECT_GT(frames, 0);
  EXPECT_EQ(wrong_frames, 0) << "the other field of an image was lost";
  EXPECT_GT(run_by_observer, 0);
}

}  // namespace
}  // namespace velmora_can_bridge
