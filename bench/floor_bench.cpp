// What everything else is compared with, measured in the same run.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <mutex>

#include "measure.hpp"
#include "null_backend.hpp"

namespace velmora_can_bridge {
namespace {

using Image = std::array<std::uint8_t, 8>;

/// F: eight bytes are copied and handed to a bus by one virtual call.
void floor_copy(benchmark::State& state) {
  CanOpenBackend& backend = null_backend();
  Image source{1, 2, 3, 4, 5, 6, 7, 8};
  measure(state, [&] {
    benchmark::DoNotOptimize(source);
    const Image image = source;
    benchmark::DoNotOptimize(backend.send_rpdo(1, 1, image, 8));
  });
}
BENCHMARK(floor_copy)->Name("floor/copy and virtual call");

/// As above under a lock that nobody else wants: no write that several threads may make costs less.
void floor_lock(benchmark::State& state) {
  CanOpenBackend& backend = null_backend();
  std::mutex mutex;
  Image source{1, 2, 3, 4, 5, 6, 7, 8};
  Image image{};
  measure(state, [&] {
    benchmark::DoNotOptimize(source);
    const std::lock_guard<std::mutex> lock(mutex);
    image = source;
    benchmark::DoNotOptimize(backend.send_rpdo(1, 1, image, 8));
  });
}
BENCHMARK(floor_lock)->Name("floor/lock, store, virtual call, unlock");

}  // namespace
}  // namespace velmora_can_bridge
