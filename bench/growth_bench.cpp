// How the cost of an operation grows with the board, and with the threads that use it.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "measure.hpp"
#include "null_backend.hpp"
#include "support/every_operation.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t node_id = 5;

/// A 16-bit field and fillers.
PdoConfig rpdo(std::uint8_t number) {
  return {number, "RPDO", 0, {{0x2000, number, 16, "right"}, {0x2001, number, 32, "rest"}}};
}

BoardConfig board_with_rpdos(std::int64_t count) {
  BoardConfig board;
  for (std::int64_t number = 1; number <= count; ++number) {
    board.pdos.push_back(rpdo(static_cast<std::uint8_t>(number)));
  }
  return board;
}

OperationConfig field_of(std::uint8_t number) {
  OperationConfig op = field_by_name_op();
  op.pdo_number = number;
  return op;
}

/// Writes a field of the last of many RPDOs.
void rpdos(benchmark::State& state) {
  const BoardConfig board = board_with_rpdos(state.range(0));
  CanOpenNodeController controller(node_id, null_backend(), board);
  const OperationConfig op = field_of(static_cast<std::uint8_t>(state.range(0)));
  measure_operation(state, controller, op, "", {1, 2});
}
BENCHMARK(rpdos)->Name("growth/rpdos")->Arg(1)->Arg(4)->Arg(16)->Arg(64)->Arg(255);

/// Writes the last of many fields of one RPDO, 1 bit each but the last.
void mappings(benchmark::State& state) {
  BoardConfig board;
  board.pdos = {{1, "RPDO", 0, {}}};
  for (std::int64_t bit = 1; bit < state.range(0); ++bit) {
    const auto sub_index = static_cast<std::uint8_t>(bit);
    board.pdos.front().mappings.push_back({0x2001, sub_index, 1, "flag " + std::to_string(bit)});
  }
  board.pdos.front().mappings.push_back({0x2000, 1, 8, "right"});
  CanOpenNodeController controller(node_id, null_backend(), board);
  measure_operation(state, controller, field_of(1), "", {1});
}
BENCHMARK(mappings)->Name("growth/mappings")->Arg(1)->Arg(4)->Arg(16)->Arg(32)->Arg(57);

/// Addresses one of many devices.
void devices(benchmark::State& state) {
  BoardConfig board;
  for (std::int64_t device = 0; device < state.range(0); ++device) {
    board.device_od_map["device " + std::to_string(device)] = {"io", 0x2000, 0};
  }
  CanOpenNodeController controller(node_id, null_backend(), board);
  measure_operation(state, controller, every_op("od_io_read"), "device 0", {});
}
BENCHMARK(devices)->Name("growth/devices")->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

/// Sets the mode of one of many drives whose modes are recorded.
void drives(benchmark::State& state) {
  BoardConfig board;
  CanOpenNodeController controller(node_id, null_backend(), board);
  const OperationConfig op = every_op("ci402_set_mode");
  for (std::int64_t drive = 0; drive < state.range(0); ++drive) {
    const std::string name = "drive " + std::to_string(drive);
    board.device_od_map[name] = {"ci402", 0x6040, 0};
    controller.execute_configured_operation(op, name, {1});
  }
  measure_operation(state, controller, op, "drive 0", {3});
}
BENCHMARK(drives)->Name("growth/drives")->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

constexpr int most_threads = 8;

/// One controller that all threads use, each of them an RPDO of its own.
void threads_on_one_controller(benchmark::State& state) {
  static const BoardConfig board = board_with_rpdos(most_threads);
  static CanOpenNodeController controller(node_id, null_backend(), board);
  const auto number = static_cast<std::uint8_t>(state.thread_index() + 1);
  measure_operation(state, controller, field_of(number), "", {1, 2});
}
BENCHMARK(threads_on_one_controller)
    ->Name("growth/threads on one controller")
    ->ThreadRange(1, most_threads)
    ->UseRealTime();

/// Each thread with a controller of its own, as with one thread a node.
void threads_on_own_controllers(benchmark::State& state) {
  const BoardConfig board = board_with_rpdos(1);
  const auto controller = std::make_unique<CanOpenNodeController>(node_id, null_backend(), board);
  measure_operation(state, *controller, field_of(1), "", {1, 2});
}
BENCHMARK(threads_on_own_controllers)
    ->Name("growth/threads on controllers of their own")
    ->ThreadRange(1, most_threads)
    ->UseRealTime();

}  // namespace
}  // namespace velmora_can_bridge
