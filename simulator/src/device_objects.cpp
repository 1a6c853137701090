#include "device_objects.hpp"

#include <cstdint>

#include "drive.hpp"

namespace velmora_can_bridge {
namespace {

std::int64_t start_value(DriveObject object) {
  switch (object) {
    case DriveObject::quick_stop_option_code:
      return static_cast<std::int64_t>(QuickStopOption::quick_stop_ramp);
    case DriveObject::homing_method:
      return default_homing_method;
    case DriveObject::supported_drive_modes:
      return known_drive_modes;
    default:
      return 0;
  }
}

}  // namespace

std::vector<DeviceObjectRow> device_objects(const DeviceOdEntry& device) {
  std::vector<DeviceObjectRow> objects;
  if (!is_drive(device)) {
    return objects;
  }
  for (const DriveObjectRow& row : drive_objects) {
    objects.push_back({row.object,
                       {drive_index(device, row.object), 0},
                       row.length,
                       row.is_writable ? ObjectAccess::read_write : ObjectAccess::read_only,
                       start_value(row.object)});
  }
  if (!is_claw(device)) {
    return objects;
  }
  for (const ClawObjectRow& row : claw_objects) {
    objects.push_back({row.object,
                       {device.homing_record, static_cast<std::uint8_t>(row.object)},
                       row.length,
                       row.is_writable ? ObjectAccess::write_only : ObjectAccess::read_only});
  }
  return objects;
}

}  // namespace velmora_can_bridge
