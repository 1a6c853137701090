/// A channel that logs its frames.
#pragma once

#include <memory>
#include <vector>

#include "velmora_can_bridge/bridge/frame_log.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Logs every frame that its endpoints send, once it is sent, and receive.
class TracingChannel : public CanChannel {
 public:
  /// Both outlive this object and its endpoints.
  TracingChannel(CanChannel& inner, FrameLog& log) : inner_(&inner), log_(&log) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override;

 private:
  CanChannel* const inner_;
  FrameLog* const log_;
};

}  // namespace velmora_can_bridge
