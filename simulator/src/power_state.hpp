// The power state machine of a CiA 402 drive (CiA 402-2, IEC 61800-7-201): which state follows
// which, and nothing else.
#pragma once

#include <cstdint>
#include <optional>

#include "ground/drive_state.hpp"

namespace velmora_can_bridge {

/// What makes a drive leave a state: first the commands of the controlword, then what happens in
/// the drive.
enum class PowerEvent : std::uint8_t {
  shutdown,
  /// Also the command Disable operation: the profile gives both one bit pattern.
  switch_on,
  enable_operation,
  disable_voltage,
  quick_stop,
  fault_reset,
  self_test_passed,
  standstill,
  fault_detected,
  fault_reaction_ended,
};

/// The command in a controlword that was written after the word `previous`.
///
/// Bits 0 to 3 and 7 make the command. With bit 7 set there is Fault reset on its rising edge and
/// no command otherwise, whatever the other bits say.
std::optional<PowerEvent> power_command(std::uint16_t controlword, std::uint16_t previous);

/// The state in which a drive rests after the event; `state` when the profile draws no transition.
///
/// An event takes as many transitions as it can: Enable operation in Ready to switch on passes
/// through Switched on. Whether Quick stop active is left by standstill (transition 12) or by
/// Enable operation (16) is the quick stop option code's to say; here both lead out.
DriveState next_power_state(DriveState state, PowerEvent event);

/// Bits 0 to 3, 5 and 6 of the statusword: those by which the profile tells the states apart.
std::uint16_t power_state_bits(DriveState state);

}  // namespace velmora_can_bridge
