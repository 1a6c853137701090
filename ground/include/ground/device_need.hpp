// Which operations address a device.
#pragma once

#include <cstdint>
#include <string_view>

#include "ground/drive_objects.hpp"
#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {

/// What an operation must find in its node's `device_od_map`.
enum class DeviceNeed : std::uint8_t {
  /// Nothing: the device only tells which node is meant.
  none,
  any,
  /// One with a controlword at its base.
  drive,
  /// A drive with a homing record.
  claw,
};

/// That of an operation kind; `none` for what is no kind.
constexpr DeviceNeed device_need(std::string_view kind) {
  if (kind == "claw_action") {
    return DeviceNeed::claw;
  }
  if (kind.substr(0, 6) == "ci402_") {
    return DeviceNeed::drive;
  }
  const bool needs_any = kind == "od_io_read" || kind == "od_io_write" || kind == "pump_duty";
  return needs_any ? DeviceNeed::any : DeviceNeed::none;
}

/// Whether an operation that needs that can be run on the device. One without a profile may be
/// anything.
inline bool suits(const DeviceOdEntry& device, DeviceNeed need) {
  switch (need) {
    case DeviceNeed::claw:
      return device.homing_record != 0;
    case DeviceNeed::drive:
      return is_drive(device) || device.profile.empty();
    case DeviceNeed::none:
    case DeviceNeed::any:
      break;
  }
  return true;
}

}  // namespace velmora_can_bridge
