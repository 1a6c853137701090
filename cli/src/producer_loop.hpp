// Sending frames until the user has had enough.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/periodic_producer.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// How long a producer runs, and what is said of it.
struct ProducerLoopSettings {
  /// "the SYNC on can0 every 10 ms".
  std::string what;
  /// How many frames the bus takes; no value: until interrupted.
  std::optional<std::uint32_t> count;
  bool json = false;
};

/// Polls a producer. Trouble with the interface is a diagnostic each time that it changes, and so
/// is its end.
class ProducerLoop {
 public:
  /// `producer` sends on `channel`; all but the settings outlive this object.
  ProducerLoop(const CommandLineHost& host, CanChannel& channel, PeriodicProducer& producer,
               ProducerLoopSettings settings);

  /// Runs until `count` frames were taken: a success, or until it is interrupted. Ends at once when
  /// the interface is missing or down from the start, or refuses the first frame.
  ExitStatus run();

 private:
  std::optional<BusError> poll();
  void note(CanStatus status, const std::string& text);
  void wait() const;
  void print_start() const;
  ExitStatus finish(ExitStatus status) const;

  const CommandLineHost* const host_;
  PeriodicProducer* const producer_;
  const ProducerLoopSettings settings_;
  // For the clock, and for the words for an interface that works again.
  const std::unique_ptr<CanEndpoint> endpoint_;
  // What the interface told last.
  CanStatus state_ = CanStatus::ok;
  // Frames that the bus has taken, and those that it has not.
  std::uint64_t sent_ = 0;
  std::uint64_t not_sent_ = 0;
};

}  // namespace velmora_can_bridge
