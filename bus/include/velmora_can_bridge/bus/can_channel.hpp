/// How frames reach a CAN bus and come from it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// How a send or a receive ended.
enum class CanStatus : std::uint8_t {
  ok,
  /// Nothing came in time.
  timed_out,
  /// The transmit queue stayed full.
  queue_full,
  /// The interface is there, but not up.
  interface_down,
  /// There is no such interface.
  interface_missing,
  /// The controller has left the bus after too many errors; a receive tells it once.
  bus_off,
  /// The controller is error-passive: the bus works badly. A receive tells it once; the endpoint
  /// works on.
  error_passive,
  /// Anything else that the system refused; `CanEndpoint::explain` has its words.
  failed,
};

/// When a frame has come to an endpoint, and what the endpoint has lost until then.
struct CanArrival {
  /// By the clock of `CanEndpoint::now`.
  std::chrono::steady_clock::time_point time{};
  /// Frames that found the endpoint's queue full, since it was opened.
  std::uint64_t lost = 0;
};

/// One user of a channel: sends to all others, receives what passes its filters.
///
/// What it sends itself it does not receive. `send` and `explain` may be called from any thread,
/// from several at once; `receive`, `has_frame`, `note_arrivals` and `arrival` from one thread at a
/// time. Endpoints do not outlive their channel.
class CanEndpoint {
 public:
  virtual ~CanEndpoint() = default;
  CanEndpoint(const CanEndpoint&) = delete;
  CanEndpoint(CanEndpoint&&) = delete;
  CanEndpoint& operator=(const CanEndpoint&) = delete;
  CanEndpoint& operator=(CanEndpoint&&) = delete;

  /// Hands one frame to the bus, exactly once or not at all.
  ///
  /// Waits at most `patience` for room in a full transmit queue. Everything but `ok` means that
  /// the frame was not sent. A frame longer than 8 bytes or with an identifier above 0x7FF is
  /// refused as `failed`.
  virtual CanStatus send(const CanFrame& frame, std::chrono::nanoseconds patience) = 0;

  /// Takes the next frame, waiting for it at most `timeout`; 0 takes only what is there already.
  ///
  /// On everything but `ok` `frame` is left as it was. An interface that went down is told once
  /// and waited for again by the next call.
  virtual CanStatus receive(CanFrame& frame, std::chrono::nanoseconds timeout) = 0;

  /// True when the next receive takes a frame at once. False says nothing: a kernel would have to
  /// be asked.
  virtual bool has_frame() const { return false; }

  /// From now on `arrival` tells of each frame that `receive` takes. Costs a little for each frame,
  /// which is why it has to be asked for.
  virtual void note_arrivals() {}

  /// When the frame that the last receive took had come, however long it waited to be taken, and
  /// how many were lost before it. After a receive that took none, `lost` counts up to that one,
  /// and `time` says nothing.
  ///
  /// Times never go back from one frame to the next, and are never later than now. An endpoint that
  /// does not know, or was not asked to note arrivals, answers now and no loss; then a `NodeWatch`
  /// may take a heartbeat for silence that waits behind other frames.
  virtual CanArrival arrival() const { return {now(), 0}; }

  /// The time by which this endpoint's time-outs run. Any thread.
  virtual std::chrono::steady_clock::time_point now() const = 0;

  /// What is known of the interface now: `ok`, `interface_down`, `interface_missing` or `bus_off`.
  /// `ok` where nothing is known. Any thread.
  virtual CanStatus state() const { return CanStatus::ok; }

  /// What `status` means on this endpoint, for people: it names the interface and, where there is
  /// one, the command that helps.
  virtual std::string explain(CanStatus status) const = 0;

 protected:
  CanEndpoint() = default;
};

/// A CAN bus, or this process's access to one. Every member may be called from any thread.
class CanChannel {
 public:
  virtual ~CanChannel() = default;
  CanChannel(const CanChannel&) = delete;
  CanChannel(CanChannel&&) = delete;
  CanChannel& operator=(const CanChannel&) = delete;
  CanChannel& operator=(CanChannel&&) = delete;

  /// A new endpoint that receives what any of `filters` lets through; with none it only sends.
  ///
  /// Never null, and never fails: an interface that is missing or down shows with each use of the
  /// endpoint, which works from the moment at which the interface does.
  virtual std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) = 0;

 protected:
  CanChannel() = default;
};

}  // namespace velmora_can_bridge
