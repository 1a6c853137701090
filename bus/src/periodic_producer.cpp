#include "velmora_can_bridge/bus/periodic_producer.hpp"

#include <algorithm>
#include <utility>

#include "ground/longest_wait.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds shortest_period{1};
constexpr milliseconds longest_patience{20};

std::optional<std::string> refusal_or_period(std::optional<std::string> refusal,
                                             milliseconds period) {
  if (refusal || period >= shortest_period) {
    return refusal;
  }
  return "a period of " + std::to_string(period.count()) + " ms is less than 1 ms";
}

}  // namespace

PeriodicProducer::PeriodicProducer(CanChannel& channel, const CanFrame& frame, milliseconds period,
                                   std::optional<std::string> refusal)
    : endpoint_(channel.open({})),
      frame_(frame),
      refusal_(refusal_or_period(std::move(refusal), period)),
      period_(std::max(bounded(period), shortest_period)),
      next_(endpoint_->now()) {}

PeriodicProducer::~PeriodicProducer() = default;

std::optional<BusError> PeriodicProducer::poll() {
  const auto now = endpoint_->now();
  if (now < next_) {
    return {};
  }
  const bool has_missed_some = now - next_ >= period_;
  next_ = (has_missed_some ? now : next_) + period_;
  if (refusal_) {
    BusError error;
    error.kind = BusErrorKind::not_configured;
    error.text = *refusal_;
    return error;
  }
  const CanStatus status = endpoint_->send(frame_, std::min(period_, longest_patience));
  if (status != CanStatus::ok) {
    return bus_fault(status);
  }
  // The system takes frames all the same, and drops them.
  if (endpoint_->state() == CanStatus::bus_off) {
    return bus_fault(CanStatus::bus_off);
  }
  ++sent_;
  return {};
}

BusError PeriodicProducer::bus_fault(CanStatus status) const {
  BusError error;
  error.kind = BusErrorKind::bus_fault;
  error.status = status;
  error.text = endpoint_->explain(status);
  return error;
}

}  // namespace velmora_can_bridge
