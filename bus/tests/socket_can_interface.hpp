// The CAN interfaces of the kernel that tests run on.
#pragma once

#include <cstdlib>
#include <string>

namespace velmora_can_bridge {

/// What VELMORA_CAN_INTERFACE names: one that is up, and that nobody else uses. tools/vcan/run sets
/// it.
inline std::string test_interface() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing sets variables meanwhile
  const char* const name = std::getenv("VELMORA_CAN_INTERFACE");
  return name == nullptr ? "" : name;
}

}  // namespace velmora_can_bridge
