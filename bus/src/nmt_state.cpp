#include "velmora_can_bridge/bus/nmt_state.hpp"

namespace velmora_can_bridge {

std::string_view nmt_state_text(NmtState state) {
  switch (state) {
    case NmtState::boot_up:
      return "boot-up";
    case NmtState::stopped:
      return "stopped";
    case NmtState::operational:
      return "operational";
    case NmtState::pre_operational:
      return "pre-operational";
  }
  return "unknown state";
}

}  // namespace velmora_can_bridge
