#include "drive_objects.hpp"

namespace velmora_can_bridge {
namespace {

struct DriveRow {
  DriveObject object;
  std::uint16_t offset;
  std::uint8_t size;
  ObjectAccess access;
};

struct ClawRow {
  DriveObject object;
  std::uint8_t sub_index;
  ObjectAccess access;
};

constexpr auto read_only = ObjectAccess::read_only;
constexpr auto read_write = ObjectAccess::read_write;

// By the distance from the controlword (CiA 402-2, 0x6040 and on).
constexpr DriveRow drive_rows[] = {
    {DriveObject::controlword, 0x00, 2, read_write},
    {DriveObject::statusword, 0x01, 2, read_only},
    {DriveObject::mode, 0x20, 1, read_write},
    {DriveObject::mode_display, 0x21, 1, read_only},
    {DriveObject::actual_position, 0x24, 4, read_only},
    {DriveObject::actual_velocity, 0x2C, 4, read_only},
    {DriveObject::target_torque, 0x31, 2, read_write},
    {DriveObject::actual_torque, 0x37, 2, read_only},
    {DriveObject::target_position, 0x3A, 4, read_write},
    {DriveObject::profile_velocity, 0x41, 4, read_write},
    {DriveObject::profile_acceleration, 0x43, 4, read_write},
    {DriveObject::profile_deceleration, 0x44, 4, read_write},
    {DriveObject::quick_stop_deceleration, 0x45, 4, read_write},
    {DriveObject::target_velocity, 0xBF, 4, read_write},
};

// By the sub-index of the homing record; one byte each.
constexpr ClawRow claw_rows[] = {
    {DriveObject::claw_action, 1, read_only},
    {DriveObject::claw_position, 2, read_only},
    {DriveObject::claw_command, 9, ObjectAccess::write_only},
};

}  // namespace

bool is_drive(const DeviceOdEntry& device) {
  return device.profile == "ci402" || device.profile == "claw";
}

bool is_claw(const DeviceOdEntry& device) {
  return device.profile == "claw" && device.homing_record != 0;
}

std::vector<DriveObjectRow> drive_objects(const DeviceOdEntry& device) {
  std::vector<DriveObjectRow> objects;
  if (!is_drive(device)) {
    return objects;
  }
  for (const DriveRow& row : drive_rows) {
    const auto index = static_cast<std::uint16_t>(device.base_index + row.offset);
    objects.push_back({row.object, {index, 0}, row.size, row.access});
  }
  if (!is_claw(device)) {
    return objects;
  }
  for (const ClawRow& row : claw_rows) {
    objects.push_back({row.object, {device.homing_record, row.sub_index}, 1, row.access});
  }
  return objects;
}

}  // namespace velmora_can_bridge
