// A channel that notices in its waits that the user has interrupted the program.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// Passes everything on. A `receive` looks for the interruption every 20 ms and goes on to its end
/// all the same, so that who waits there has the answer or the time-out.
class StoppableChannel : public CanChannel {
 public:
  /// Both run on the thread of the endpoint.
  struct Hooks {
    /// A frame was handed to the bus.
    std::function<void()> sent;
    /// Runs once in each receive that ends after the interruption, as soon as it is seen. `left` is
    /// how much longer the receive waits at most; 0: it has ended.
    std::function<void(std::chrono::nanoseconds left)> interrupted;
  };

  /// `inner` outlives this object, this object and `interrupted` its endpoints. `interrupted` may
  /// be null: then its endpoints are those of `inner`, and no hook runs.
  StoppableChannel(CanChannel& inner, const std::atomic<bool>* interrupted, Hooks hooks);

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override;

 private:
  CanChannel* const inner_;
  const std::atomic<bool>* const interrupted_;
  const Hooks hooks_;
};

}  // namespace velmora_can_bridge
