// Sequences of SDO writes to a drive, as data.
#pragma once

#include <cstdint>
#include <vector>

#include "ci402/ci402_controlword.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

/// One SDO write of a sequence, and what follows when the node has accepted it.
struct CanOpenNodeController::DriveStep {
  enum class Then {
    /// Nothing.
    nothing,
    /// The RPDO images repeat the written bytes.
    mirror,
    /// The written byte is recorded as the device's mode, then mirrored.
    record_mode_then_mirror,
  };

  std::uint16_t index;
  std::uint8_t sub_index;
  std::vector<std::uint8_t> data;
  /// The operation's message when the node refuses.
  const char* refusal;
  Then then = Then::nothing;

  static DriveStep controlword(const DeviceOdEntry& drive, Ci402Controlword word,
                               const char* refusal, Then then = Then::nothing);
  static DriveStep mode(const DeviceOdEntry& drive, std::uint8_t mode, const char* refusal,
                        Then then);
};

}  // namespace velmora_can_bridge
