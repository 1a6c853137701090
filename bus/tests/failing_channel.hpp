// A channel that fails at a chosen moment.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// Passes everything on to another channel, but for the one call that a test picks. For one
/// endpoint and one thread.
class FailingChannel : public CanChannel {
 public:
  explicit FailingChannel(CanChannel& channel) : channel_(&channel) {}

  /// The send of this number, counted from 1, is refused with `status`.
  void fail_send(int number, CanStatus status) { send_ = {number, status}; }

  /// The receive of this number, counted from 1 over those that wait, ends with `status` at once.
  void fail_wait(int number, CanStatus status) { wait_ = {number, status}; }

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(*this, channel_->open(filters));
  }

 private:
  struct Failure {
    int countdown = 0;
    CanStatus status = CanStatus::ok;
  };

  class Endpoint : public CanEndpoint {
   public:
    Endpoint(FailingChannel& channel, std::unique_ptr<CanEndpoint> endpoint)
        : channel_(&channel), endpoint_(std::move(endpoint)) {}

    CanStatus send(const CanFrame& frame, std::chrono::nanoseconds patience) override {
      return is_due(channel_->send_) ? channel_->send_.status : endpoint_->send(frame, patience);
    }
    CanStatus receive(CanFrame& frame, std::chrono::nanoseconds timeout) override {
      const bool waits = timeout > std::chrono::nanoseconds(0);
      return waits && is_due(channel_->wait_) ? channel_->wait_.status
                                              : endpoint_->receive(frame, timeout);
    }
    bool has_frame() const override {
      const bool wait_will_fail = channel_->wait_.countdown > 0;
      return !wait_will_fail && endpoint_->has_frame();
    }
    std::chrono::steady_clock::time_point now() const override { return endpoint_->now(); }
    std::string explain(CanStatus status) const override { return endpoint_->explain(status); }

   private:
    static bool is_due(Failure& failure) { return --failure.countdown == 0; }

    FailingChannel* const channel_;
    const std::unique_ptr<CanEndpoint> endpoint_;
  };

  CanChannel* const channel_;
  Failure send_;
  Failure wait_;
};

}  // namespace velmora_can_bridge
