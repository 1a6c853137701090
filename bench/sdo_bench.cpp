// What one operation costs on a bus that answers at once, beside a floor of the same run: copying
// eight bytes and making one virtual call.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <vector>

#include "null_backend.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

void floor_copy_and_virtual_call(benchmark::State& state) {
  CanOpenBackend& backend = null_backend();
  std::array<std::uint8_t, 8> source{1, 2, 3, 4, 5, 6, 7, 8};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(source);
    const std::array<std::uint8_t, 8> image = source;
    benchmark::DoNotOptimize(backend.send_rpdo(1, 1, image, 8));
  }
}
BENCHMARK(floor_copy_and_virtual_call);

void run_operation(benchmark::State& state, const OperationConfig& op,
                   const std::vector<std::uint8_t>& payload) {
  const std::uint8_t node_id = 1;
  const BoardConfig board;
  CanOpenNodeController controller(node_id, null_backend(), board);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(controller.execute_configured_operation(op, "device", payload));
  }
}

void sdo_read(benchmark::State& state) {
  OperationConfig op;
  op.kind = "sdo_read";
  run_operation(state, op, {});
}
BENCHMARK(sdo_read);

void sdo_write_u16(benchmark::State& state) {
  OperationConfig op;
  op.kind = "sdo_write";
  op.data_type = "u16";
  run_operation(state, op, {1, 2});
}
BENCHMARK(sdo_write_u16);

void read_multi_of_four(benchmark::State& state) {
  OperationConfig op;
  op.kind = "read_multi";
  op.sub_indices = {1, 2, 3, 4};
  run_operation(state, op, {});
}
BENCHMARK(read_multi_of_four);

}  // namespace
}  // namespace velmora_can_bridge
