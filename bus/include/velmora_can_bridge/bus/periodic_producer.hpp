/// Sending one frame again and again.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Sends the same frame on a fixed grid of its period: what `SyncProducer` and `HeartbeatProducer`
/// share. One thread at a time.
///
/// Has no thread, and never waits for the time of a frame: somebody calls `poll`, again and again.
/// That sends at most one frame, so a thread of its own sleeps until `next`, and a control loop
/// calls `poll` once a cycle:
///
///     while (running) {
///       if (const std::optional<BusError> error = producer.poll()) {
///         std::cerr << bus_error_text(*error) << '\n';
///       }
///       std::this_thread::sleep_until(producer.next());
///     }
///
/// The first frame is due at once. A call that comes late by less than a period does not move the
/// frames behind it. After a longer pause (a stopped process, a slow caller) the frames that were
/// missed are not made up for: one goes out at once, and a new grid begins with it.
class PeriodicProducer {
 public:
  PeriodicProducer(const PeriodicProducer&) = delete;
  PeriodicProducer(PeriodicProducer&&) = delete;
  PeriodicProducer& operator=(const PeriodicProducer&) = delete;
  PeriodicProducer& operator=(PeriodicProducer&&) = delete;

  /// Sends the frame if it is due. No value: it was handed to the bus, or is not due yet.
  ///
  /// The error is a `bus_fault` with its `CanStatus` when the bus did not take the frame, or the
  /// controller is bus-off and the frame lost; `not_configured` when the producer was given
  /// something that cannot be sent. The frame is not sent out of turn then: the next one goes when
  /// it is due. For room in a full transmit queue it is waited 20 ms at most, and no longer than a
  /// period.
  std::optional<BusError> poll();

  /// When the next frame is due, by `CanEndpoint::now` of the channel's endpoints: on a
  /// `SocketCanChannel` the system's steady clock. In the past when it is due already.
  std::chrono::steady_clock::time_point next() const { return next_; }

  /// How many frames the bus has taken: its transmit queue, which nobody may be there to empty.
  std::uint64_t sent() const { return sent_; }

 protected:
  /// `channel` outlives the producer. A period below 1 ms cannot be kept: `poll` then fails once a
  /// millisecond and sends nothing. So it does, once a period, where `refusal` tells why the frame
  /// cannot be sent.
  PeriodicProducer(CanChannel& channel, const CanFrame& frame, std::chrono::milliseconds period,
                   std::optional<std::string> refusal = std::nullopt);
  ~PeriodicProducer();

 private:
  BusError bus_fault(CanStatus status) const;

  const std::unique_ptr<CanEndpoint> endpoint_;
  const CanFrame frame_;
  const std::optional<std::string> refusal_;
  const std::chrono::milliseconds period_;
  std::chrono::steady_clock::time_point next_;
  std::uint64_t sent_ = 0;
};

}  // namespace velmora_can_bridge
