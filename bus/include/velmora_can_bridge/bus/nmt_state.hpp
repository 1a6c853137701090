/// States and commands of network management (CiA 301, 7.2.8 and 7.3.2).
#pragma once

#include <cstdint>
#include <string_view>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// The state of a node, valued as heartbeats carry it.
enum class NmtState : std::uint8_t {
  /// The node has just started; carried by its boot-up message alone.
  boot_up = 0,
  stopped = 4,
  operational = 5,
  pre_operational = 127,
};

/// The state that the byte of a heartbeat carries, without its bit 7: node guarding alternates it.
inline constexpr NmtState heartbeat_state(std::uint8_t byte) {
  return NmtState{static_cast<std::uint8_t>(byte & 0x7FU)};
}

/// What the NMT master tells nodes, valued as its frames carry it.
enum class NmtCommand : std::uint8_t {
  start = 1,
  stop = 2,
  enter_pre_operational = 128,
  reset_node = 129,
  reset_communication = 130,
};

/// "operational", "pre-operational", "stopped", "boot-up"; "unknown state" for any other value.
std::string_view nmt_state_text(NmtState state);

}  // namespace velmora_can_bridge
