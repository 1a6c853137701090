// What an operation of each kind costs on a bus that answers at once.
#include <benchmark/benchmark.h>

#include <string>

#include "measure.hpp"
#include "null_backend.hpp"
#include "support/every_operation.hpp"

namespace velmora_can_bridge {
namespace {

void run_kind(benchmark::State& state, const EveryOperation& row) {
  const std::uint8_t node_id = 5;
  const BoardConfig board = every_operation_board();
  CanOpenNodeController controller(node_id, null_backend(), board);
  measure_operation(state, controller, row.op, row.device, row.payload);
}

bool register_kinds() {
  for (const EveryOperation& row : every_operation()) {
    benchmark::RegisterBenchmark(("kind/" + std::string(row.name)).c_str(), run_kind, row);
  }
  return true;
}

[[maybe_unused]] const bool registered = register_kinds();

}  // namespace
}  // namespace velmora_can_bridge
