#include "velmora_can_bridge/bridge/tracing_channel.hpp"

#include <utility>

namespace velmora_can_bridge {
namespace {

class TracingEndpoint : public CanEndpoint {
 public:
  TracingEndpoint(std::unique_ptr<CanEndpoint> inner, FrameLog& log)
      : inner_(std::move(inner)), log_(&log) {}

  CanStatus send(const CanFrame& frame, std::chrono::nanoseconds patience) override {
    return logged(inner_->send(frame, patience), frame);
  }

  CanStatus receive(CanFrame& frame, std::chrono::nanoseconds timeout) override {
    return logged(inner_->receive(frame, timeout), frame);
  }

  void note_arrivals() override { inner_->note_arrivals(); }

  CanArrival arrival() const override { return inner_->arrival(); }

  std::chrono::steady_clock::time_point now() const override { return inner_->now(); }

  CanStatus state() const override { return inner_->state(); }

  std::string explain(CanStatus status) const override { return inner_->explain(status); }

 private:
  CanStatus logged(CanStatus status, const CanFrame& frame) {
    if (status == CanStatus::ok) {
      log_->write(frame, now());
    }
    return status;
  }

  const std::unique_ptr<CanEndpoint> inner_;
  FrameLog* const log_;
};

}  // namespace

std::unique_ptr<CanEndpoint> TracingChannel::open(const std::vector<CanFilter>& filters) {
  return std::make_unique<TracingEndpoint>(inner_->open(filters), *log_);
}

}  // namespace velmora_can_bridge
