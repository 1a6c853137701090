// How a benchmark times an action and counts what it takes from the heap.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "support/allocations.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

/// Times `action`. Its first run, which may load images and open endpoints, counts for nothing; the
/// second one gives the counter "allocations".
template <typename Action>
void measure(benchmark::State& state, const Action& action) {
  action();
  const std::size_t before = allocations();
  action();
  const std::size_t taken = allocations() - before;
  while (state.KeepRunning()) {
    action();
  }
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(taken), benchmark::Counter::kAvgThreads);
}

/// Times an operation, its result record included. One that fails makes the benchmark fail.
inline void measure_operation(benchmark::State& state, CanOpenNodeController& controller,
                              const OperationConfig& op, const std::string& device,
                              const std::vector<std::uint8_t>& payload) {
  const OperationResult first = controller.execute_configured_operation(op, device, payload);
  if (!first.ok) {
    state.SkipWithError(first.message.c_str());
    return;
  }
  measure(state, [&] {
    benchmark::DoNotOptimize(controller.execute_configured_operation(op, device, payload));
  });
}

}  // namespace velmora_can_bridge
