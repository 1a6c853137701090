#include "stoppable_channel.hpp"

#include <algorithm>
#include <utility>

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

// How long an interruption may go unnoticed.
constexpr std::chrono::milliseconds longest_slice{20};

class StoppableEndpoint : public CanEndpoint {
 public:
  StoppableEndpoint(std::unique_ptr<CanEndpoint> inner, const std::atomic<bool>& interrupted,
                    const StoppableChannel::Hooks& hooks)
      : inner_(std::move(inner)), interrupted_(&interrupted), hooks_(&hooks) {}

  CanStatus send(const CanFrame& frame, nanoseconds patience) override {
    const CanStatus status = inner_->send(frame, patience);
    if (status == CanStatus::ok) {
      hooks_->sent();
    }
    return status;
  }

  CanStatus receive(CanFrame& frame, nanoseconds timeout) override {
    nanoseconds left = timeout;
    CanStatus status = receive_slice(frame, left);
    while (left > nanoseconds(0) && !*interrupted_) {
      status = receive_slice(frame, left);
    }
    if (*interrupted_) {
      hooks_->interrupted(left);
    }
    return left > nanoseconds(0) ? inner_->receive(frame, left) : status;
  }

  void note_arrivals() override { inner_->note_arrivals(); }

  CanArrival arrival() const override { return inner_->arrival(); }

  bool has_frame() const override { return inner_->has_frame(); }

  std::chrono::steady_clock::time_point now() const override { return inner_->now(); }

  CanStatus state() const override { return inner_->state(); }

  std::string explain(CanStatus status) const override { return inner_->explain(status); }

 private:
  /// Takes what it has waited from `left`, all of it when the wait is over.
  CanStatus receive_slice(CanFrame& frame, nanoseconds& left) {
    if (left <= longest_slice) {
      return inner_->receive(frame, std::exchange(left, nanoseconds(0)));
    }
    const auto start = now();
    const CanStatus status = inner_->receive(frame, longest_slice);
    left = status == CanStatus::timed_out
               ? std::max<nanoseconds>(left - (now() - start), nanoseconds(0))
               : nanoseconds(0);
    return status;
  }

  const std::unique_ptr<CanEndpoint> inner_;
  const std::atomic<bool>* const interrupted_;
  const StoppableChannel::Hooks* const hooks_;
};

}  // namespace

StoppableChannel::StoppableChannel(CanChannel& inner, const std::atomic<bool>* interrupted,
                                   Hooks hooks)
    : inner_(&inner), interrupted_(interrupted), hooks_(std::move(hooks)) {}

std::unique_ptr<CanEndpoint> StoppableChannel::open(const std::vector<CanFilter>& filters) {
  std::unique_ptr<CanEndpoint> endpoint = inner_->open(filters);
  if (interrupted_ == nullptr) {
    return endpoint;
  }
  return std::make_unique<StoppableEndpoint>(std::move(endpoint), *interrupted_, hooks_);
}

}  // namespace velmora_can_bridge
