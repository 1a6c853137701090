// How long the send of an RPDO takes while other threads wait for nodes that do not answer.
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

/// Threads that read from nodes 2, 3 … of a bus on which there are none, until they are destroyed.
class SilentTransfers {
 public:
  SilentTransfers(CanBusBackend& backend, std::int64_t count) {
    for (std::int64_t silent = 0; silent < count; ++silent) {
      const auto node = static_cast<std::uint8_t>(2 + silent);
      threads_.emplace_back([this, &backend, node] {
        std::vector<std::uint8_t> data;
        while (!is_over_) {
          backend.sdo_read(node, 0x1000, 0, data);
        }
      });
    }
  }
  ~SilentTransfers() {
    is_over_ = true;
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }
  SilentTransfers(const SilentTransfers&) = delete;
  SilentTransfers(SilentTransfers&&) = delete;
  SilentTransfers& operator=(const SilentTransfers&) = delete;
  SilentTransfers& operator=(SilentTransfers&&) = delete;

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

/// Each send is timed alone, the reading of the clock included.
void rpdo_latency(benchmark::State& state) {
  InProcessBus bus;
  const BoardConfig board = one_rpdo();
  SimulatedBusNode node(node_id, board);
  InProcessNode on_bus(bus, node);
  on_bus.boot();
  CanBusBackend backend(bus, {frame_timeout, frame_timeout, std::chrono::milliseconds(0)});
  CanOpenNodeController controller(node_id, backend, board);
  const SilentTransfers silent(backend, state.range(0));
  const OperationConfig op = field_by_name_op();
  const std::string device;
  const std::vector<std::uint8_t> payload{1, 2};
  std::vector<double> samples;
  while (state.KeepRunning()) {
    const auto begin = steady_clock::now();
    const bool is_sent = controller.execute_configured_operation(op, device, payload).ok;
    const Nanoseconds taken = steady_clock::now() - begin;
    samples.push_back(taken.count());
    state.SetIterationTime(taken.count() * 1e-9);
    if (!is_sent) {
      state.SkipWithError("an RPDO was not sent");
    }
  }
  note_latencies(state, std::move(samples));
}
BENCHMARK(rpdo_latency)->Name("latency/rpdo beside silent nodes")->Arg(0)->Arg(4)->UseManualTime();

}  // namespace
}  // namespace velmora_can_bridge
