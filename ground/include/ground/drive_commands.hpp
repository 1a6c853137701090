// The commands that a controlword gives (CiA 402-2).
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace velmora_can_bridge {

enum class DriveCommand : std::uint8_t {
  shutdown,
  /// Also Disable operation: the profile gives both one bit pattern.
  switch_on,
  enable_operation,
  disable_voltage,
  quick_stop,
  /// Takes effect where bit 7 rises.
  fault_reset,
};

struct DriveCommandRow {
  std::uint16_t mask;
  std::uint16_t bits;
  DriveCommand command;
  std::string_view name;
};

/// The profile's command table. Every word matches exactly one row.
inline constexpr DriveCommandRow drive_commands[] = {
    {0x87, 0x06, DriveCommand::shutdown, "shutdown"},
    {0x8F, 0x07, DriveCommand::switch_on, "switch on"},
    {0x8F, 0x0F, DriveCommand::enable_operation, "enable operation"},
    {0x82, 0x00, DriveCommand::disable_voltage, "disable voltage"},
    {0x86, 0x02, DriveCommand::quick_stop, "quick stop"},
    {0x80, 0x80, DriveCommand::fault_reset, "fault reset"},
};

/// The command in bits 0 to 3 and 7 of the controlword.
inline const DriveCommandRow& drive_command(std::uint16_t controlword) {
  return *std::find_if(
      std::begin(drive_commands), std::end(drive_commands),
      [=](const DriveCommandRow& row) { return (controlword & row.mask) == row.bits; });
}

}  // namespace velmora_can_bridge
