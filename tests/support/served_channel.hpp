// A bus on which time passes for simulated nodes while somebody waits for a frame.
#pragma once

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "support/passing_endpoint.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

namespace velmora_can_bridge {

/// Polls the server of the nodes on the thread that waits, a millisecond at a time: on a bus of
/// simulated time all is repeatable. For one thread.
class ServedChannel : public CanChannel {
 public:
  ServedChannel(CanChannel& channel, SimulatedNodeServer& server)
      : channel_(&channel), server_(&server) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(channel_->open(filters), *server_);
  }

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(std::unique_ptr<CanEndpoint> inner, SimulatedNodeServer& server)
        : PassingEndpoint(std::move(inner)), server_(&server) {}

    CanStatus receive(CanFrame& frame, std::chrono::nanoseconds timeout) override {
      const auto end = now() + timeout;
      while (true) {
        server_->poll(std::chrono::milliseconds(0));
        const CanStatus status = PassingEndpoint::receive(frame, std::chrono::nanoseconds(0));
        if (status != CanStatus::timed_out || now() >= end) {
          return status;
        }
        server_->poll(SimulatedNodeServer::tick_interval);
      }
    }

   private:
    SimulatedNodeServer* const server_;
  };

  CanChannel* const channel_;
  SimulatedNodeServer* const server_;
};

}  // namespace velmora_can_bridge
