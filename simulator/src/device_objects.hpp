// The objects that a device with a drive offers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

#include "ground/drive_objects.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

using DeviceObject = std::variant<DriveObject, ClawObject>;

/// One object of one device.
struct DeviceObjectRow {
  DeviceObject object;
  ObjectAddress at;
  std::size_t size = 0;
  ObjectAccess access = ObjectAccess::read_write;
  /// What it holds at the start.
  std::int64_t start_value = 0;
};

/// The objects of the device: of its drive, then of its claw. Empty for any other profile.
std::vector<DeviceObjectRow> device_objects(const DeviceOdEntry& device);

}  // namespace velmora_can_bridge
