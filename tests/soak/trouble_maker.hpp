// Disturbs nodes and bus.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "disturbed_channel.hpp"
#include "world.hpp"

namespace velmora_can_bridge::soak {

/// Takes the interface down, or up again.
using NetworkSwitch = std::function<void(bool up)>;

/// Begins troubles and ends them. One thread.
class TroubleMaker {
 public:
  /// `channel` is not disturbed: another master speaks there, and nodes that babble.
  TroubleMaker(World& world, CanChannel& channel, Faults& faults, NetworkSwitch network,
               std::uint32_t seed);

  /// Lets every node babble once, so that all queues of the process have had their largest size.
  void let_all_babble();

  void step();
  void end_all();

 private:
  struct Episode {
    Trouble kind = Trouble::silence;
    SoakNode* node = nullptr;
    Time end{};
  };

  void end_due(Time now);
  void end(const Episode& episode);
  void begin(Trouble kind, SoakNode& node);
  void take_network_down();
  void send_nmt(NmtCommand command, std::uint8_t node_id);
  void babble(std::uint8_t node_id);
  CanFrame babbled(std::uint8_t node_id);
  SoakNode* pick_sure_node();
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  milliseconds some_time();

  World* const world_;
  const std::unique_ptr<CanEndpoint> endpoint_;
  Faults* const faults_;
  const NetworkSwitch network_;
  std::mt19937 random_;
  std::vector<Episode> episodes_;
  Time next_;
  Time next_network_;
};

}  // namespace velmora_can_bridge::soak
