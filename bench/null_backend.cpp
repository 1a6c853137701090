#include "null_backend.hpp"

#include <benchmark/benchmark.h>

namespace velmora_can_bridge {
namespace {

class NullBackend : public CanOpenBackend {
 public:
  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                std::vector<std::uint8_t>& data) override {
    data.assign({1, 2, 3, 4});
    return true;
  }
  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const std::vector<std::uint8_t>& data) override {
    benchmark::DoNotOptimize(data.data());
    return true;
  }
  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/,
                 const std::array<std::uint8_t, 8>& data, std::uint8_t /*length*/) override {
    benchmark::DoNotOptimize(data.data());
    return true;
  }
};

}  // namespace

CanOpenBackend& null_backend() {
  static NullBackend backend;
  return backend;
}

}  // namespace velmora_can_bridge
