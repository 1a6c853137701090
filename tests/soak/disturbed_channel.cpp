#include "disturbed_channel.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <utility>

#include "support/passing_endpoint.hpp"

namespace velmora_can_bridge::soak {
namespace {

using std::chrono::nanoseconds;

class DisturbedEndpoint : public PassingEndpoint {
 public:
  DisturbedEndpoint(std::unique_ptr<CanEndpoint> inner, Faults& faults)
      : PassingEndpoint(std::move(inner)), faults_(&faults), random_(faults.next_seed()) {}

  CanStatus receive(CanFrame& frame, nanoseconds timeout) override {
    const Time end = now() + timeout;
    for (;;) {
      const Time begun = now();
      if (take_held(frame, begun)) {
        return CanStatus::ok;
      }
      CanFrame next;
      const Time until = held_.empty() ? end : std::min(end, held_.begin()->first);
      const CanStatus status =
          PassingEndpoint::receive(next, std::max<nanoseconds>(until - begun, nanoseconds(0)));
      if (status == CanStatus::ok && passes(next)) {
        frame = next;
        came_ = std::max(came_, PassingEndpoint::arrival().time);
        return CanStatus::ok;
      }
      const bool is_over = until == end && (timeout <= nanoseconds(0) || now() >= end);
      if (status != CanStatus::ok && (status != CanStatus::timed_out || is_over)) {
        return status;
      }
    }
  }

  /// What is there may be lost or late.
  bool has_frame() const override { return false; }

  CanArrival arrival() const override { return {came_, PassingEndpoint::arrival().lost}; }

 private:
  bool take_held(CanFrame& frame, Time at) {
    if (held_.empty() || held_.begin()->first > at) {
      return false;
    }
    frame = held_.begin()->second;
    came_ = std::max(came_, held_.begin()->first);
    held_.erase(held_.begin());
    return true;
  }

  /// Whether the frame is received now.
  bool passes(const CanFrame& frame) {
    const FaultRates rates = faults_->rates(node_id_of(frame.id));
    if (happens(rates.lost)) {
      ++faults_->counts.lost;
      return false;
    }
    if (happens(rates.late)) {
      ++faults_->counts.late;
      held_.emplace(now() + delay(), frame);
      return false;
    }
    if (happens(rates.doubled)) {
      ++faults_->counts.doubled;
      held_.emplace(now(), frame);
    }
    return true;
  }

  bool happens(std::uint8_t percent) { return percent != 0 && random_() % 100 < percent; }
  milliseconds delay() {
    return milliseconds(1 +
                        random_() % static_cast<std::uint32_t>(faults_->longest_delay().count()));
  }

  Faults* const faults_;
  // Small: there are two endpoints for each node.
  std::minstd_rand random_;
  // By when they come.
  std::multimap<Time, CanFrame> held_;
  Time came_{};
};

}  // namespace

std::unique_ptr<CanEndpoint> DisturbedChannel::open(const std::vector<CanFilter>& filters) {
  return std::make_unique<DisturbedEndpoint>(inner_->open(filters), *faults_);
}

}  // namespace velmora_can_bridge::soak
