/// A thread that polls a bridge.
#pragma once

#include <atomic>
#include <thread>

#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Polls a bridge on a thread of its own, from its construction to its end. An exception of an
/// observer ends the process, as one that leaves any thread does.
class BridgeRunner {
 public:
  /// `bridge` outlives the runner.
  explicit BridgeRunner(Bridge& bridge);

  /// Waits for the poll under way, and for the observers in it. Not from an observer.
  ~BridgeRunner();
  BridgeRunner(const BridgeRunner&) = delete;
  BridgeRunner(BridgeRunner&&) = delete;
  BridgeRunner& operator=(const BridgeRunner&) = delete;
  BridgeRunner& operator=(BridgeRunner&&) = delete;

 private:
  std::atomic<bool> is_ending_{false};
  std::thread thread_;
};

}  // namespace velmora_can_bridge
