// The objects of drives (CiA 402-2) and of claws: where they stand, what they hold, who writes
// them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {

/// Objects of a drive by their distance from its controlword, which is 0x6040 for the first drive
/// of a node.
enum class DriveObject : std::uint16_t {
  // One below the controlword: sums wrap at 16 bits.
  error_code = 0xFFFF,
  controlword = 0x00,
  statusword = 0x01,
  quick_stop_option_code = 0x1A,
  modes_of_operation = 0x20,
  modes_of_operation_display = 0x21,
  position_actual_value = 0x24,
  velocity_actual_value = 0x2C,
  target_torque = 0x31,
  torque_actual_value = 0x37,
  target_position = 0x3A,
  home_offset = 0x3C,
  profile_velocity = 0x41,
  profile_acceleration = 0x43,
  profile_deceleration = 0x44,
  quick_stop_deceleration = 0x45,
  homing_method = 0x58,
  target_velocity = 0xBF,
  supported_drive_modes = 0x4C2,
};

struct DriveObjectRow {
  DriveObject object;
  /// In bytes.
  std::uint8_t length;
  bool is_signed;
  /// All of them can be read.
  bool is_writable;
  std::string_view name;
};

inline constexpr DriveObjectRow drive_objects[] = {
    {DriveObject::error_code, 2, false, false, "error code"},
    {DriveObject::controlword, 2, false, true, "controlword"},
    {DriveObject::statusword, 2, false, false, "statusword"},
    {DriveObject::quick_stop_option_code, 2, true, true, "quick stop option code"},
    {DriveObject::modes_of_operation, 1, true, true, "modes of operation"},
    {DriveObject::modes_of_operation_display, 1, true, false, "modes of operation display"},
    {DriveObject::position_actual_value, 4, true, false, "position actual value"},
    {DriveObject::velocity_actual_value, 4, true, false, "velocity actual value"},
    {DriveObject::target_torque, 2, true, true, "target torque"},
    {DriveObject::torque_actual_value, 2, true, false, "torque actual value"},
    {DriveObject::target_position, 4, true, true, "target position"},
    {DriveObject::home_offset, 4, true, true, "home offset"},
    {DriveObject::profile_velocity, 4, false, true, "profile velocity"},
    {DriveObject::profile_acceleration, 4, false, true, "profile acceleration"},
    {DriveObject::profile_deceleration, 4, false, true, "profile deceleration"},
    {DriveObject::quick_stop_deceleration, 4, false, true, "quick stop deceleration"},
    {DriveObject::homing_method, 1, true, true, "homing method"},
    {DriveObject::target_velocity, 4, true, true, "target velocity"},
    {DriveObject::supported_drive_modes, 4, false, false, "supported drive modes"},
};

/// What `DriveObject::modes_of_operation` takes.
enum class DriveMode : std::int8_t {
  none = 0,
  profile_position = 1,
  profile_velocity = 3,
  profile_torque = 4,
  homing = 6,
};

struct DriveModeRow {
  /// As `DriveObject::modes_of_operation` has it.
  std::int8_t mode;
  std::string_view name;
};

/// The modes of CiA 402-2. The short names are those of the modes that this system's operations
/// tell apart.
inline constexpr DriveModeRow drive_modes[] = {
    {0, "none"},
    {1, "position"},
    {2, "frequency_converter"},
    {3, "velocity"},
    {4, "torque"},
    {6, "homing"},
    {7, "interpolated_position"},
    {8, "cyclic_synchronous_position"},
    {9, "cyclic_synchronous_velocity"},
    {10, "cyclic_synchronous_torque"},
};

/// The name of the mode; empty for one that has none.
inline std::string_view drive_mode_name(std::uint8_t mode) {
  for (const DriveModeRow& row : drive_modes) {
    if (static_cast<std::uint8_t>(row.mode) == mode) {
      return row.name;
    }
  }
  return {};
}

/// The target that operations write in that mode of operation: velocity in every mode but position
/// and torque.
constexpr DriveObject target_object(std::uint8_t mode) {
  switch (static_cast<DriveMode>(mode)) {
    case DriveMode::profile_position:
      return DriveObject::target_position;
    case DriveMode::profile_torque:
      return DriveObject::target_torque;
    default:
      return DriveObject::target_velocity;
  }
}

/// Objects of a claw by their sub-index of its homing record.
enum class ClawObject : std::uint8_t {
  action_state = 1,
  position_state = 2,
  extend_command = 9,
};

struct ClawObjectRow {
  ClawObject object;
  /// In bytes.
  std::uint8_t length;
  /// What can be written cannot be read.
  bool is_writable;
  std::string_view name;
};

inline constexpr ClawObjectRow claw_objects[] = {
    {ClawObject::action_state, 1, false, "action state"},
    {ClawObject::position_state, 1, false, "position state"},
    {ClawObject::extend_command, 1, true, "extend command"},
};

/// What `ClawObject::action_state` holds.
enum class ClawAction : std::uint8_t {
  /// Nothing was asked of the claw since it started.
  idle = 0,
  moving = 1,
  done = 2,
  /// The latest movement was refused, or did not come to its end.
  error = 3,
};

/// What `ClawObject::position_state` holds.
enum class ClawPosition : std::uint8_t { unknown = 0, home = 1, extended = 2, between = 3 };

/// The names of `ClawAction`, by its numbers.
inline constexpr std::string_view claw_actions[] = {"idle", "moving", "done", "error"};

/// The names of `ClawPosition`, by its numbers.
inline constexpr std::string_view claw_positions[] = {"unknown", "home", "extended", "between"};

/// The extend command that extends; a claw ignores every other.
inline constexpr std::uint8_t extend_now = 1;

/// Whether the device has a drive: its profile is "ci402" or "claw".
inline bool is_drive(const DeviceOdEntry& device) {
  return device.profile == "ci402" || device.profile == "claw";
}

/// Whether the device has a claw: its profile is "claw" and it has a homing record.
inline bool is_claw(const DeviceOdEntry& device) {
  return device.profile == "claw" && device.homing_record != 0;
}

/// The index of one of the drive's objects; the sum wraps at 16 bits.
inline std::uint16_t drive_index(const DeviceOdEntry& drive, DriveObject object) {
  return static_cast<std::uint16_t>(drive.base_index + static_cast<std::uint16_t>(object));
}

/// The row of the drive's object at `index`; null when none stands there, or the device is no
/// drive.
inline const DriveObjectRow* find_drive_object(const DeviceOdEntry& device, std::uint16_t index) {
  for (const DriveObjectRow& row : drive_objects) {
    if (is_drive(device) && drive_index(device, row.object) == index) {
      return &row;
    }
  }
  return nullptr;
}

/// Whether `index` is one of the 0x800 objects of the drive's axis, of which the controlword is
/// number 0x40: 0x6000 to 0x67FF for 0x6040 (CiA 402-2). Of no device that is no drive.
inline bool is_in_axis(const DeviceOdEntry& device, std::uint16_t index) {
  constexpr unsigned controlword_offset = 0x40;
  constexpr unsigned axis_size = 0x800;
  const unsigned base = device.base_index;
  const unsigned first = base - std::min(base, controlword_offset);
  return is_drive(device) && index >= first && index < first + axis_size;
}

}  // namespace velmora_can_bridge
