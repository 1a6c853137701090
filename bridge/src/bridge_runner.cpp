#include "velmora_can_bridge/bridge/bridge_runner.hpp"

#include <chrono>

namespace velmora_can_bridge {
namespace {

// How long the end of a runner takes at most, observers aside.
constexpr std::chrono::milliseconds slice{100};

}  // namespace

BridgeRunner::BridgeRunner(Bridge& bridge)
    : thread_([this, &bridge] {
        while (!is_ending_) {
          bridge.poll(slice);
        }
      }) {}

BridgeRunner::~BridgeRunner() {
  is_ending_ = true;
  thread_.join();
}

}  // namespace velmora_can_bridge
