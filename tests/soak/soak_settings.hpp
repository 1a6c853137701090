// What the parts of the soak agree on.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/bus/sdo_client.hpp"

namespace velmora_can_bridge::soak {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using std::chrono::milliseconds;

inline constexpr std::size_t threads = 8;
inline constexpr std::uint8_t nodes = 127;

/// How long everything waits: as a machine with a kernel of its own needs it, or an emulated one.
///
/// A request and its answer that are both late have come before the quarantine ends. What comes
/// later may be taken for another answer (docs/bus.md), and is not what is proved here.
struct Pace {
  explicit Pace(unsigned slowness)
      : frame_timeout(400 * slowness),
        quarantine(700 * slowness),
        longest_delay(500 * slowness),
        heartbeat(500 * slowness) {}

  SdoTimes times() const {
    SdoTimes times;
    times.frame_timeout = frame_timeout;
    times.transfer_timeout = frame_timeout * 3;
    times.quarantine = quarantine;
    return times;
  }

  milliseconds frame_timeout;
  milliseconds quarantine;
  milliseconds longest_delay;
  milliseconds heartbeat;
};

}  // namespace velmora_can_bridge::soak
