// An endpoint between a test and another one.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// Passes everything on; what a test wants otherwise it overrides.
class PassingEndpoint : public CanEndpoint {
 public:
  explicit PassingEndpoint(std::unique_ptr<CanEndpoint> inner) : inner_(std::move(inner)) {}

  CanStatus send(const CanFrame& frame, std::chrono::nanoseconds timeout) override {
    return inner_->send(frame, timeout);
  }
  CanStatus receive(CanFrame& frame, std::chrono::nanoseconds timeout) override {
    return inner_->receive(frame, timeout);
  }
  bool has_frame() const override { return inner_->has_frame(); }
  void note_arrivals() override { inner_->note_arrivals(); }
  CanArrival arrival() const override { return inner_->arrival(); }
  std::chrono::steady_clock::time_point now() const override { return inner_->now(); }
  CanStatus state() const override { return inner_->state(); }
  std::string explain(CanStatus status) const override { return inner_->explain(status); }

 private:
  const std::unique_ptr<CanEndpoint> inner_;
};

}  // namespace velmora_can_bridge
