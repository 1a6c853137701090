// The objects of drives and claws: where they stand, and what they are for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

enum class DriveObject : std::uint8_t {
  controlword,
  statusword,
  mode,
  mode_display,
  actual_position,
  actual_velocity,
  target_torque,
  actual_torque,
  target_position,
  profile_velocity,
  profile_acceleration,
  profile_deceleration,
  quick_stop_deceleration,
  target_velocity,
  claw_action,
  claw_position,
  claw_command,
};

/// One object of one device.
struct DriveObjectRow {
  DriveObject object{};
  ObjectAddress at;
  std::size_t size = 0;
  ObjectAccess access = ObjectAccess::read_write;
};

/// Whether the device has a drive: its profile is "ci402" or "claw".
bool is_drive(const DeviceOdEntry& device);

/// Whether the device has a claw: its profile is "claw" and it has a homing record.
bool is_claw(const DeviceOdEntry& device);

/// The objects of the device: of its drive, then of its claw. Empty for any other profile.
std::vector<DriveObjectRow> drive_objects(const DeviceOdEntry& device);

}  // namespace velmora_can_bridge
