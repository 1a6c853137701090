/// A CAN bus inside one process.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// By which time an in-process bus waits.
enum class BusTime : std::uint8_t {
  /// By the system's steady clock.
  real,
  /// By a clock of its own, which moves only when somebody waits: a wait in which nothing comes
  /// ends at once, its whole length later by that clock.
  simulated,
};

/// What becomes of a frame on its way.
struct CanDelivery {
  CanFrame frame{};
  /// How much later than it was sent.
  std::chrono::nanoseconds delay{0};
};

/// Any number of endpoints, every frame seen by all others, in one order for all.
///
/// A frame has reached every other endpoint when `send` returns: no thread, no hand-over. Endpoints
/// that are opened with a handler, simulated nodes above all, run it on the sending thread.
///
/// Faults for tests: a rule decides for each frame what is delivered in its place, and the
/// interface can fail as a real one does. Safe to call from any thread.
///
/// An exception of a handler or of the rule passes through the `send` or `receive` that has run it.
/// The frame that it was about, and what was to follow from that frame, do not come any more, but
/// for endpoints that have them already; frames that are delayed come at their times. The bus works
/// on.
class InProcessBus : public CanChannel {
 public:
  /// Is given a frame that passed the endpoint's filters, and appends the frames that it sends in
  /// answer; they follow on the bus in that order. Runs with the bus locked: it calls neither the
  /// bus nor an endpoint of it.
  using FrameHandler = std::function<void(const CanFrame& frame, std::vector<CanFrame>& answers)>;

  /// Says what is delivered instead of a frame: `{{frame}}` as it is, `{}` lost, twice the same
  /// doubled, another content corrupted, a delay late, or overtaken by those sent meanwhile. Runs
  /// with the bus locked, as a handler does.
  using FaultRule = std::function<std::vector<CanDelivery>(const CanFrame& frame)>;

  /// Frames that an endpoint keeps until they are received; further ones are lost to it.
  static constexpr std::size_t queue_limit = 65536;

  /// `name` stands for the interface in texts.
  explicit InProcessBus(BusTime time = BusTime::real, std::string name = "in-process bus");
  ~InProcessBus() override;
  InProcessBus(const InProcessBus&) = delete;
  InProcessBus(InProcessBus&&) = delete;
  InProcessBus& operator=(const InProcessBus&) = delete;
  InProcessBus& operator=(InProcessBus&&) = delete;

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override;

  /// An endpoint whose frames go to `handler` instead of `receive`, which answers `timed_out`.
  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters, FrameHandler handler);

  /// The rule for every frame from now on; an empty one delivers all as they are.
  void set_fault_rule(FaultRule rule);

  /// From now on the interface is in this state. `ok` is healthy.
  ///
  /// `queue_full`, `interface_down`, `interface_missing` and `failed` refuse sends, `bus_off` loses
  /// what is sent. Every state but `ok` and `queue_full` is told once by each endpoint's next
  /// receive, the first one of an endpoint opened later included.
  void set_state(CanStatus state);

  /// Frames that endpoints lost because their queue was full.
  std::uint64_t lost_frames() const;

 private:
  class Endpoint;
  using Time = std::chrono::steady_clock::time_point;

  struct Sent {
    CanFrame frame;
    const Endpoint* from = nullptr;
  };

  // All of these run with `mutex_` held, but for waits inside.
  Time current_time() const;
  bool pass_time(Time end, std::condition_variable& news, std::unique_lock<std::mutex>& lock);
  void transmit(const Sent& sent);
  void route_in_flight();
  void route(const Sent& sent);
  void deliver(const Sent& sent);
  void deliver_due();
  void wake_all();
  void close(const Endpoint* endpoint);

  const BusTime time_;
  const std::string name_;

  // Guards everything below and the queues of the endpoints. Handlers and the fault rule run under
  // it, so that all endpoints see one order.
  mutable std::mutex mutex_;
  std::vector<Endpoint*> endpoints_;
  // Answers of handlers on their way, in bus order; theirs are appended while it is drained.
  std::vector<Sent> in_flight_;
  std::vector<CanFrame> answers_;
  // Frames that a rule has delayed, by the time at which they arrive.
  std::multimap<Time, Sent> delayed_;
  FaultRule rule_;
  CanStatus state_ = CanStatus::ok;
  Time simulated_now_{};
  std::uint64_t lost_frames_ = 0;
  // Told when a sender may find room again.
  std::condition_variable state_changed_;
};

}  // namespace velmora_can_bridge
