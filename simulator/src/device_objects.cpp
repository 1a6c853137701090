#include "device_objects.hpp"

#include <cstdint>

namespace velmora_can_bridge {

std::vector<DeviceObjectRow> device_objects(const DeviceOdEntry& device) {
  std::vector<DeviceObjectRow> objects;
  if (!is_drive(device)) {
    return objects;
  }
  for (const DriveObjectRow& row : drive_objects) {
    objects.push_back({row.object,
                       {drive_index(device, row.object), 0},
                       row.length,
                       row.is_writable ? ObjectAccess::read_write : ObjectAccess::read_only});
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
