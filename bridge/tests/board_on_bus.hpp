// A board file with its bridge on simulated nodes, and what the bridge sends.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "support/passing_endpoint.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/bridge/simulated_board.hpp"

namespace velmora_can_bridge {

/// Keeps the frames that its endpoints have sent, in order. One thread.
class SentFrames : public CanChannel {
 public:
  explicit SentFrames(CanChannel& inner) : inner_(&inner) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(inner_->open(filters), frames_);
  }

  /// Those since the last call.
  std::vector<CanFrame> take() { return std::exchange(frames_, {}); }

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(std::unique_ptr<CanEndpoint> inner, std::vector<CanFrame>& sent)
        : PassingEndpoint(std::move(inner)), sent_(&sent) {}

    CanStatus send(const CanFrame& frame, std::chrono::nanoseconds patience) override {
      const CanStatus status = PassingEndpoint::send(frame, patience);
      if (status == CanStatus::ok) {
        sent_->push_back(frame);
      }
      return status;
    }

   private:
    std::vector<CanFrame>* const sent_;
  };

  CanChannel* const inner_;
  std::vector<CanFrame> frames_;
};

/// Nodes, bridge, and the frames between. One thread; the same calls have the same outcome.
struct BoardOnBus {
  explicit BoardOnBus(const BoardFile& file) : nodes(file), bridge(channel, file) {}

  SimulatedBoard nodes;
  SentFrames channel{nodes};
  Bridge bridge;
};

}  // namespace velmora_can_bridge
