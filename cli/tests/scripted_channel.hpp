// A channel on which a test says what happens when.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// What happens on a channel, and what was asked of it.
struct Script {
  struct News {
    std::chrono::milliseconds due;
    CanStatus status;
  };
  /// What receives answer when it is due, in order; `timed_out` until then.
  std::deque<News> news;
  /// How much longer a wait for nothing takes than was asked for.
  std::chrono::nanoseconds lateness{0};
  /// The waits of receives.
  std::vector<std::chrono::nanoseconds> waits;
  CanStatus sent = CanStatus::ok;
  CanStatus state = CanStatus::ok;
  std::function<void()> on_send = [] {};
  std::chrono::nanoseconds now{0};
};

class ScriptedEndpoint : public CanEndpoint {
 public:
  explicit ScriptedEndpoint(Script& script) : script_(&script) {}

  CanStatus send(const CanFrame& /*frame*/, std::chrono::nanoseconds /*patience*/) override {
    script_->on_send();
    return script_->sent;
  }
  CanStatus receive(CanFrame& frame, std::chrono::nanoseconds timeout) override {
    script_->waits.push_back(timeout);
    if (script_->news.empty() || script_->news.front().due > script_->now + timeout) {
      script_->now += timeout > std::chrono::nanoseconds(0) ? timeout + script_->lateness : timeout;
      return CanStatus::timed_out;
    }
    script_->now = std::max<std::chrono::nanoseconds>(script_->now, script_->news.front().due);
    const CanStatus status = script_->news.front().status;
    script_->news.pop_front();
    if (status == CanStatus::ok) {
      frame.id = 0x123;
    }
    return status;
  }
  bool has_frame() const override { return !script_->news.empty(); }
  std::chrono::steady_clock::time_point now() const override {
    return std::chrono::steady_clock::time_point(script_->now);
  }
  CanStatus state() const override { return script_->state; }
  std::string explain(CanStatus status) const override {
    return "state " + std::to_string(static_cast<int>(status));
  }

 private:
  Script* const script_;
};

/// All endpoints follow the same script.
class ScriptedChannel : public CanChannel {
 public:
  explicit ScriptedChannel(Script& script) : script_(&script) {}
  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    opened = filters.size();
    return std::make_unique<ScriptedEndpoint>(*script_);
  }

  std::size_t opened = 0;

 private:
  Script* const script_;
};

}  // namespace velmora_can_bridge
