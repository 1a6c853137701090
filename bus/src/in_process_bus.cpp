#include "velmora_can_bridge/bus/in_process_bus.hpp"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <utility>

#include "can_frame_checks.hpp"
#include "ground/longest_wait.hpp"
#include "status_text.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

bool is_told(CanStatus state) { return state != CanStatus::ok && state != CanStatus::queue_full; }

bool refuses_sends(CanStatus state) {
  return state == CanStatus::queue_full || state == CanStatus::interface_down ||
         state == CanStatus::interface_missing || state == CanStatus::failed;
}

}  // namespace

class InProcessBus::Endpoint : public CanEndpoint {
 public:
  Endpoint(InProcessBus& bus, std::vector<CanFilter> filters, FrameHandler handler)
      : bus_(&bus), filters_(std::move(filters)), handler_(std::move(handler)) {}
  ~Endpoint() override { bus_->close(this); }
  Endpoint(const Endpoint&) = delete;
  Endpoint(Endpoint&&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;
  Endpoint& operator=(Endpoint&&) = delete;

  CanStatus send(const CanFrame& frame, nanoseconds patience) override;
  CanStatus receive(CanFrame& frame, nanoseconds timeout) override;
  bool has_frame() const override { return waiting_frames_ != 0; }
  void note_arrivals() override;
  CanArrival arrival() const override {
    return notes_arrivals_ ? arrival_ : CanEndpoint::arrival();
  }
  Time now() const override;
  CanStatus state() const override;
  std::string explain(CanStatus status) const override;

  // The following run with the bus locked.

  bool wants(const CanFrame& frame) const {
    return std::any_of(filters_.begin(), filters_.end(),
                       [&](const CanFilter& filter) { return passes(filter, frame); });
  }
  void take(const CanFrame& frame);
  void notify(CanStatus status);
  void wake() { news_.notify_one(); }

 private:
  bool has_news() const { return has_frame() || notice_ != CanStatus::ok; }
  void pop(CanFrame& frame);
  template <typename Queue>
  void drop_taken(Queue& queue) const;
  void count_waiting_frames() {
    waiting_frames_.store(queue_.size() - next_, std::memory_order_relaxed);
  }

  InProcessBus* const bus_;
  const std::vector<CanFilter> filters_;
  const FrameHandler handler_;
  // Frames from next_ on wait to be received. Emptied when the last one was taken, so that a steady
  // exchange allocates nothing.
  std::vector<CanFrame> queue_;
  std::size_t next_ = 0;
  // How many those are. Changed with the bus locked, as notice_, which orders the frames; read
  // without the lock by who only looks.
  std::atomic<std::size_t> waiting_frames_{0};
  // Told by the next receive that finds no frame.
  std::atomic<CanStatus> notice_{CanStatus::ok};
  std::condition_variable news_;
  // How each frame of queue_ came. Empty until somebody asks for arrivals, as each costs a look at
  // the clock.
  std::vector<CanArrival> arrivals_;
  // Frames that found the queue full.
  std::uint64_t lost_ = 0;
  // Changed with the bus locked by the receiving thread, which reads them without.
  bool notes_arrivals_ = false;
  CanArrival arrival_;
};

CanStatus InProcessBus::Endpoint::send(const CanFrame& frame, nanoseconds patience) {
  if (!is_can_frame(frame)) {
    return CanStatus::failed;
  }
  std::unique_lock<std::mutex> lock(bus_->mutex_);
  if (bus_->state_ == CanStatus::queue_full) {
    const Time end = bus_->current_time() + std::min<nanoseconds>(patience, longest_wait);
    while (bus_->state_ == CanStatus::queue_full &&
           bus_->pass_time(end, bus_->state_changed_, lock)) {
    }
  }
  if (refuses_sends(bus_->state_)) {
    return bus_->state_;
  }
  bus_->transmit({frame, this});
  return CanStatus::ok;
}

CanStatus InProcessBus::Endpoint::receive(CanFrame& frame, nanoseconds timeout) {
  if (timeout <= nanoseconds(0) && !notes_arrivals_ && !has_news()) {
    // Before every SDO transfer a client looks for late answers: that takes no lock.
    return CanStatus::timed_out;
  }
  std::unique_lock<std::mutex> lock(bus_->mutex_);
  if (!has_news() && timeout > nanoseconds(0)) {
    const Time end = bus_->current_time() + std::min<nanoseconds>(timeout, longest_wait);
    while (!has_news() && bus_->pass_time(end, news_, lock)) {
    }
  }
  if (has_frame()) {
    pop(frame);
    return CanStatus::ok;
  }
  arrival_.lost = lost_;
  const CanStatus notice = notice_.exchange(CanStatus::ok);
  return notice == CanStatus::ok ? CanStatus::timed_out : notice;
}

void InProcessBus::Endpoint::note_arrivals() {
  const std::lock_guard<std::mutex> lock(bus_->mutex_);
  arrivals_.assign(queue_.size(), {bus_->current_time(), lost_});
  notes_arrivals_ = true;
}

InProcessBus::Time InProcessBus::Endpoint::now() const {
  if (bus_->time_ == BusTime::real) {
    return std::chrono::steady_clock::now();
  }
  const std::lock_guard<std::mutex> lock(bus_->mutex_);
  return bus_->current_time();
}

CanStatus InProcessBus::Endpoint::state() const {
  const std::lock_guard<std::mutex> lock(bus_->mutex_);
  return bus_->state_;
}

std::string InProcessBus::Endpoint::explain(CanStatus status) const {
  return status == CanStatus::failed ? bus_->name_ + " refuses the frame"
                                     : status_text(status, bus_->name_, 0);
}

void InProcessBus::Endpoint::take(const CanFrame& frame) {
  if (handler_) {
    bus_->answers_.clear();
    handler_(frame, bus_->answers_);
    for (const CanFrame& answer : bus_->answers_) {
      bus_->in_flight_.push_back({answer, this});
    }
    return;
  }
  if (waiting_frames_ == queue_limit) {
    ++bus_->lost_frames_;
    ++lost_;
    return;
  }
  queue_.push_back(frame);
  if (notes_arrivals_) {
    arrivals_.push_back({bus_->current_time(), lost_});
  }
  count_waiting_frames();
  news_.notify_one();
}

void InProcessBus::Endpoint::notify(CanStatus status) {
  notice_ = status;
  news_.notify_one();
}

void InProcessBus::Endpoint::pop(CanFrame& frame) {
  frame = queue_[next_];
  if (notes_arrivals_) {
    arrival_ = arrivals_[next_];
  }
  ++next_;
  if (next_ == queue_.size()) {
    queue_.clear();
    arrivals_.clear();
    next_ = 0;
  } else if (next_ == queue_limit) {
    // Never empty: what was taken must not pile up.
    drop_taken(queue_);
    drop_taken(arrivals_);
    next_ = 0;
  }
  count_waiting_frames();
}

template <typename Queue>
void InProcessBus::Endpoint::drop_taken(Queue& queue) const {
  const std::size_t taken = std::min(next_, queue.size());
  queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(taken));
}

InProcessBus::InProcessBus(BusTime time, std::string name) : time_(time), name_(std::move(name)) {}

InProcessBus::~InProcessBus() = default;

std::unique_ptr<CanEndpoint> InProcessBus::open(const std::vector<CanFilter>& filters) {
  return open(filters, FrameHandler());
}

std::unique_ptr<CanEndpoint> InProcessBus::open(const std::vector<CanFilter>& filters,
                                                FrameHandler handler) {
  auto endpoint = std::make_unique<Endpoint>(*this, filters, std::move(handler));
  const std::lock_guard<std::mutex> lock(mutex_);
  endpoints_.push_back(endpoint.get());
  if (is_told(state_)) {
    endpoint->notify(state_);
  }
  return endpoint;
}

void InProcessBus::set_fault_rule(FaultRule rule) {
  const std::lock_guard<std::mutex> lock(mutex_);
  rule_ = std::move(rule);
}

void InProcessBus::set_state(CanStatus state) {
  const std::lock_guard<std::mutex> lock(mutex_);
  state_ = state;
  state_changed_.notify_all();
  if (!is_told(state)) {
    return;
  }
  for (Endpoint* const endpoint : endpoints_) {
    endpoint->notify(state);
  }
}

std::uint64_t InProcessBus::lost_frames() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return lost_frames_;
}

InProcessBus::Time InProcessBus::current_time() const {
  return time_ == BusTime::simulated ? simulated_now_ : std::chrono::steady_clock::now();
}

/// Waits for news, for the next delayed frame or for `end`, whichever is first, and delivers what
/// is due by then. False when `end` has come.
bool InProcessBus::pass_time(Time end, std::condition_variable& news,
                             std::unique_lock<std::mutex>& lock) {
  const Time next = delayed_.empty() ? end : std::min(end, delayed_.begin()->first);
  if (time_ == BusTime::simulated) {
    simulated_now_ = std::max(simulated_now_, next);
  } else {
    news.wait_until(lock, next);
  }
  deliver_due();
  return current_time() < end;
}

void InProcessBus::transmit(const Sent& sent) {
  deliver_due();
  if (state_ == CanStatus::bus_off) {
    return;
  }
  in_flight_.clear();
  route(sent);
  route_in_flight();
}

/// Whoever calls it has emptied `in_flight_` before what has filled it: an exception of a handler
/// or of the rule leaves frames there, which never come.
void InProcessBus::route_in_flight() {
  // Grows while it is walked, by the answers of handlers.
  // NOLINTNEXTLINE(modernize-loop-convert): a range would not see it grow
  for (std::size_t position = 0; position < in_flight_.size(); ++position) {
    const Sent sent = in_flight_[position];
    route(sent);
  }
}

void InProcessBus::route(const Sent& sent) {
  if (!rule_) {
    deliver(sent);
    return;
  }
  for (const CanDelivery& delivery : rule_(sent.frame)) {
    if (delivery.delay > nanoseconds(0)) {
      delayed_.emplace(current_time() + std::min<nanoseconds>(delivery.delay, longest_wait),
                       Sent{delivery.frame, sent.from});
      // Whoever waits did not know yet that this one is coming.
      wake_all();
    } else {
      deliver({delivery.frame, sent.from});
    }
  }
}

void InProcessBus::deliver(const Sent& sent) {
  if (!is_can_frame(sent.frame)) {
    return;
  }
  CanFrame frame = sent.frame;
  std::fill(frame.data.begin() + frame.length, frame.data.end(), std::uint8_t{0});
  for (Endpoint* const endpoint : endpoints_) {
    if (endpoint != sent.from && endpoint->wants(frame)) {
      endpoint->take(frame);
    }
  }
}

void InProcessBus::deliver_due() {
  while (!delayed_.empty() && delayed_.begin()->first <= current_time()) {
    const Sent sent = delayed_.begin()->second;
    delayed_.erase(delayed_.begin());
    in_flight_.clear();
    deliver(sent);
    route_in_flight();
  }
}

void InProcessBus::wake_all() {
  for (Endpoint* const endpoint : endpoints_) {
    endpoint->wake();
  }
  state_changed_.notify_all();
}

void InProcessBus::close(const Endpoint* endpoint) {
  const std::lock_guard<std::mutex> lock(mutex_);
  endpoints_.erase(std::remove(endpoints_.begin(), endpoints_.end(), endpoint), endpoints_.end());
  for (auto& [time, sent] : delayed_) {
    // Another endpoint may get the same address.
    sent.from = sent.from == endpoint ? nullptr : sent.from;
  }
}

}  // namespace velmora_can_bridge
