// What the parts of the soak work on.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "node_model.hpp"
#include "soak_report.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"

namespace velmora_can_bridge::soak {

/// Whether the simulated nodes had the processor when they needed it.
class Pulse {
 public:
  explicit Pulse(milliseconds limit) : limit_(limit), last_(Clock::now()) {}

  /// They have.
  void beat() {
    const Time now = Clock::now();
    if (now - last_.load() > limit_) {
      stalled_ = now;
    }
    last_ = now;
  }

  /// They had not, for long, at some time since then.
  bool has_stalled_since(Time time) const {
    return stalled_.load() >= time || Clock::now() - last_.load() > limit_;
  }

 private:
  const milliseconds limit_;
  std::atomic<Time> last_;
  std::atomic<Time> stalled_{Time{}};
};

enum class Phase : std::uint8_t {
  /// Mixed operations.
  run,
  /// Every node's model is made sure of once, in each round; then all threads wait.
  settle,
  end,
};

struct World {
  Pace pace;
  Bridge& bridge;
  std::vector<std::unique_ptr<SoakNode>>& nodes;
  Report& report;
  Pulse& pulse;

  std::atomic<Phase> phase{Phase::run};
  /// Of settling, and the threads that are through with it.
  std::atomic<unsigned> round{0};
  std::atomic<unsigned> waiting_threads{0};
  /// Where most operations go, so that threads meet; changes now and again.
  std::atomic<std::uint8_t> crowded_node{1};
};

}  // namespace velmora_can_bridge::soak
