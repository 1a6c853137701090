// Transfers with a simulated node on the in-process bus, beside the same frames sent by hand.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "measure.hpp"
#include "support/every_operation.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/bus/sdo_frames.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t node_id = 5;
constexpr std::uint16_t index = 0x2000;
constexpr std::uint8_t sub_index = 1;

/// A bus with a simulated node on it that has one object of four bytes.
struct SimulatedBus {
  SimulatedBus() {
    node.device().add_object(index, sub_index, {ObjectAccess::read_write, {1, 2, 3, 4}});
    on_bus.boot();
  }

  InProcessBus bus;
  SimulatedBusNode node{node_id};
  InProcessNode on_bus{bus, node};
};

/// The frames of an expedited upload, answered by a handler that does nothing else.
void ping_pong(benchmark::State& state) {
  InProcessBus bus;
  const CanFrame answer{0x585, 8, {0x43, 0x00, 0x20, sub_index, 1, 2, 3, 4}};
  const auto node = bus.open(
      {{0x605}}, [&](const CanFrame& /*frame*/, auto& answers) { answers.push_back(answer); });
  const auto client = bus.open({{0x585}});
  const CanFrame request = sdo_frame(0x605, sdo_upload_request, index, sub_index);
  CanFrame received;
  measure(state, [&] {
    client->send(request, std::chrono::milliseconds(20));
    client->receive(received, std::chrono::milliseconds(500));
    benchmark::DoNotOptimize(received);
  });
}
BENCHMARK(ping_pong)->Name("in-process/ping-pong of the frames");

/// Reads into a vector that is there already.
void upload(benchmark::State& state) {
  SimulatedBus simulated;
  SdoClient client(simulated.bus, node_id, {}, {});
  std::vector<std::uint8_t> data;
  measure(state, [&] {
    data.clear();
    benchmark::DoNotOptimize(client.upload(index, sub_index, data));
  });
  if (data != std::vector<std::uint8_t>{1, 2, 3, 4}) {
    state.SkipWithError("the upload failed");
  }
}
BENCHMARK(upload)->Name("in-process/SDO upload, client");

void download(benchmark::State& state) {
  SimulatedBus simulated;
  SdoClient client(simulated.bus, node_id, {}, {});
  const std::vector<std::uint8_t> data{5, 6, 7, 8};
  measure(state, [&] { benchmark::DoNotOptimize(client.download(index, sub_index, data)); });
  if (simulated.node.device().object_value(index, sub_index) != data) {
    state.SkipWithError("the download failed");
  }
}
BENCHMARK(download)->Name("in-process/SDO download, client");

void run_on_bus(benchmark::State& state, const OperationConfig& op,
                const std::vector<std::uint8_t>& payload) {
  SimulatedBus simulated;
  CanBusBackend backend(simulated.bus);
  const BoardConfig board;
  const std::uint8_t node = node_id;
  CanOpenNodeController controller(node, backend, board);
  measure_operation(state, controller, op, "", payload);
}

void read_operation(benchmark::State& state) {
  run_on_bus(state, every_object_op("sdo_read", index), {});
}
BENCHMARK(read_operation)->Name("in-process/operation sdo_read");

void write_operation(benchmark::State& state) {
  run_on_bus(state, every_object_op("sdo_write", index), {5, 6, 7, 8});
}
BENCHMARK(write_operation)->Name("in-process/operation sdo_write");

}  // namespace
}  // namespace velmora_can_bridge
