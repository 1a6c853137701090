// A channel on which chosen nodes are heard badly.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "soak_settings.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge::soak {

/// How often which fault strikes a frame of a node, in percent. Aligned to be
/// exchanged at once.
struct alignas(4) FaultRates {
  std::uint8_t lost = 0;
  std::uint8_t late = 0;
  std::uint8_t doubled = 0;
};

/// The faults of all nodes, and how often they have struck. Any thread.
class Faults {
 public:
  Faults(std::uint32_t seed, milliseconds longest_delay)
      : longest_delay_(longest_delay), next_seed_(seed) {}

  void set(std::uint8_t node_id, FaultRates rates) { rates_.at(node_id) = rates; }
  FaultRates rates(std::uint8_t node_id) const { return rates_.at(node_id); }
  milliseconds longest_delay() const { return longest_delay_; }

  /// For the choices of one more endpoint.
  std::uint32_t next_seed() { return next_seed_ += 7919; }

  struct Counts {
    std::atomic<std::uint64_t> lost{0};
    std::atomic<std::uint64_t> late{0};
    std::atomic<std::uint64_t> doubled{0};
  };
  Counts counts;

 private:
  const milliseconds longest_delay_;
  std::atomic<std::uint32_t> next_seed_;
  std::array<std::atomic<FaultRates>, highest_node_id + 1> rates_{};
};

/// Endpoints lose, delay and double what they receive from another channel, as the faults say.
///
/// Both the bridge and the nodes have their endpoints here, so that requests and answers suffer. A
/// frame that comes twice comes at once: one that came after the next request would be its answer
/// as far as SDO can tell.
class DisturbedChannel : public CanChannel {
 public:
  /// Both outlive the channel.
  DisturbedChannel(CanChannel& inner, Faults& faults) : inner_(&inner), faults_(&faults) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override;

 private:
  CanChannel* const inner_;
  Faults* const faults_;
};

}  // namespace velmora_can_bridge::soak
