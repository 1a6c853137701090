// How long one operation takes while other threads wait, or work with the same node.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/every_operation.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;

constexpr std::uint8_t node_id = 1;
constexpr std::chrono::milliseconds frame_timeout{100};

BoardConfig one_rpdo() {
  BoardConfig board;
  board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 16, "left"}, {0x2000, 2, 16, "right"}}}};
  return board;
}

/// Threads that run an operation again and again, until they are destroyed.
class BusyThreads {
 public:
  template <typename Action>
  BusyThreads(std::int64_t count, const Action& action) {
    for (std::int64_t number = 0; number < count; ++number) {
      threads_.emplace_back([this, action] {
        while (!is_over_) {
          action();
        }
      });
    }
  }
  ~BusyThreads() {
    is_over_ = true;
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }
  BusyThreads(const BusyThreads&) = delete;
  BusyThreads(BusyThreads&&) = delete;
  BusyThreads& operator=(const BusyThreads&) = delete;
  BusyThreads& operator=(BusyThreads&&) = delete;

 private:
  std::atomic<bool> is_over_{false};
  std::vector<std::thread> threads_;
};

/// The value that `share` of the samples do not exceed.
double percentile(const std::vector<double>& sorted, double share) {
  const auto position = static_cast<std::size_t>(share * static_cast<double>(sorted.size()));
  return sorted.empty() ? 0 : sorted[std::min(position, sorted.size() - 1)];
}

void note_latencies(benchmark::State& state, std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  state.counters["p50"] = percentile(samples, 0.50);
  state.counters["p99"] = percentile(samples, 0.99);
  state.counters["max"] = percentile(samples, 1);
  state.counters["timeout"] = Nanoseconds(frame_timeout).count();
}

/// Times each run of `action` alone, the reading of the clock included.
template <typename Action>
void measure_latency(benchmark::State& state, const Action& action,
                     std::chrono::microseconds rest_between = {}) {
  std::vector<double> samples;
  while (state.KeepRunning()) {
    std::this_thread::sleep_for(rest_between);
    const auto begin = steady_clock::now();
    const bool is_done = action();
    const Nanoseconds taken = steady_clock::now() - begin;
    samples.push_back(taken.count());
    state.SetIterationTime(taken.count() * 1e-9);
    if (!is_done) {
      state.SkipWithError("an operation failed");
    }
  }
  note_latencies(state, std::move(samples));
}

void rpdo_latency(benchmark::State& state) {
  InProcessBus bus;
  const BoardConfig board = one_rpdo();
  SimulatedBusNode node(node_id, board);
  InProcessNode on_bus(bus, node);
  on_bus.boot();
  CanBusBackend backend(bus, {frame_timeout, frame_timeout, std::chrono::milliseconds(0)});
  CanOpenNodeController controller(node_id, backend, board);
  std::atomic<std::uint8_t> next_silent{2};
  const BusyThreads silent(state.range(0), [&] {
    thread_local const std::uint8_t silent_node = next_silent++;
    std::vector<std::uint8_t> data;
    backend.sdo_read(silent_node, 0x1000, 0, data);
  });
  const OperationConfig op = field_by_name_op();
  const std::string device;
  const std::vector<std::uint8_t> payload{1, 2};
  measure_latency(state,
                  [&] { return controller.execute_configured_operation(op, device, payload).ok; });
}
BENCHMARK(rpdo_latency)->Name("latency/rpdo beside silent nodes")->Arg(0)->Arg(4)->UseManualTime();

BoardConfig with_drive() {
  BoardConfig board = one_rpdo();
  board.pdos.push_back({2, "RPDO", 0, {{0x2200, 1, 8, "red"}, {0x2200, 2, 8, "green"}}});
  board.device_od_map = {{"wheel", {"ci402", 0x6040, 0}}};
  return board;
}

/// A node with a drive and an LED, which answers SDO requests after a millisecond.
class SlowNode {
 public:
  SlowNode() {
    on_bus_.boot();
    bus_.set_fault_rule([](const CanFrame& frame) -> std::vector<CanDelivery> {
      const bool is_answer = frame.id == sdo_answer_cob_id + node_id;
      return {{frame, std::chrono::milliseconds(is_answer ? 1 : 0)}};
    });
  }

  bool run(const OperationConfig& op, const std::vector<std::uint8_t>& payload) {
    return controller_.execute_configured_operation(op, "wheel", payload).ok;
  }

 private:
  InProcessBus bus_;
  const BoardConfig board_ = with_drive();
  SimulatedBusNode node_{node_id, board_};
  InProcessNode on_bus_{bus_, node_};
  CanBusBackend backend_{bus_};
  CanOpenNodeController controller_{node_id, backend_, board_};
};

/// Two transfers at most: the one under way and its own.
void quick_stop_latency(benchmark::State& state) {
  SlowNode node;
  OperationConfig read = every_op("sdo_read");
  read.index = 0x6041;
  const BusyThreads readers(state.range(0), [&] { node.run(read, {}); });
  measure_latency(state, [&] { return node.run(every_op("ci402_quick_stop"), {}); });
}
BENCHMARK(quick_stop_latency)
    ->Name("latency/quick stop beside readers of its node")
    ->Arg(0)
    ->Arg(2)
    ->Iterations(100)
    ->UseManualTime();

/// Two refreshes of two objects at most, each a transfer.
void write_latency(benchmark::State& state) {
  SlowNode node;
  OperationConfig refresh = every_field_op("pdo_write", {"red"});
  refresh.pdo_number = 2;
  refresh.refresh_shadow = 1;
  node.run(field_by_name_op(), {0, 0});
  const BusyThreads writers(state.range(0), [&] { node.run(refresh, {1}); });
  measure_latency(
      state,
      [&] {
        return node.run(field_by_name_op(), {0, 0});
      },
      std::chrono::microseconds(700));
}
BENCHMARK(write_latency)
    ->Name("latency/rpdo beside refreshing writers of its node")
    ->Arg(0)
    ->Arg(2)
    ->Iterations(100)
    ->UseManualTime();

}  // namespace
}  // namespace velmora_can_bridge
