// The states of a CiA 402 drive as its statusword shows them, and what a command wants to see.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velmora_can_bridge {

/// The states of the profile (CiA 402-2), named as it names them.
enum class DriveState : std::uint8_t {
  not_ready_to_switch_on,
  switch_on_disabled,
  ready_to_switch_on,
  switched_on,
  operation_enabled,
  quick_stop_active,
  fault_reaction_active,
  fault,
};

/// By which bits of the statusword a state is known.
struct DriveStateRow {
  DriveState state;
  std::uint16_t mask;
  std::uint16_t bits;
  /// As the profile writes it.
  std::string_view text;
};

inline constexpr DriveStateRow drive_states[] = {
    {DriveState::not_ready_to_switch_on, 0x4F, 0x00, "Not ready to switch on"},
    {DriveState::switch_on_disabled, 0x4F, 0x40, "Switch on disabled"},
    {DriveState::ready_to_switch_on, 0x6F, 0x21, "Ready to switch on"},
    {DriveState::switched_on, 0x6F, 0x23, "Switched on"},
    {DriveState::operation_enabled, 0x6F, 0x27, "Operation enabled"},
    {DriveState::quick_stop_active, 0x6F, 0x07, "Quick stop active"},
    {DriveState::fault_reaction_active, 0x4F, 0x0F, "Fault reaction active"},
    {DriveState::fault, 0x4F, 0x08, "Fault"},
};

/// Bits of the statusword beside those of the state.
inline constexpr std::uint16_t statusword_target_reached = 0x0400;
/// In the mode homing: the drive has found its home.
inline constexpr std::uint16_t statusword_homing_attained = 0x1000;
/// In the mode homing: it gave up looking for it.
inline constexpr std::uint16_t statusword_homing_error = 0x2000;

/// The state that the statusword shows; no value where its bits are those of none.
constexpr std::optional<DriveState> drive_state_of(std::uint16_t statusword) {
  for (const DriveStateRow& row : drive_states) {
    if ((statusword & row.mask) == row.bits) {
      return row.state;
    }
  }
  return std::nullopt;
}

/// The state in the words of the profile: "Operation enabled".
constexpr std::string_view drive_state_text(DriveState state) {
  for (const DriveStateRow& row : drive_states) {
    if (row.state == state) {
      return row.text;
    }
  }
  return "unknown";
}

/// What a command to a drive wants to see.
enum class DriveGoal : std::uint8_t {
  /// Operation enabled.
  enabled,
  /// No power on the motor, ready to be enabled or to be made ready.
  disabled,
  /// Halted by a quick stop.
  stopped,
  /// Operation enabled, and where the target wants it (bit 10).
  target_reached,
  /// Home found, at rest (bits 10 and 12).
  homed,
};

/// How far a drive has come.
enum class DriveProgress : std::uint8_t {
  reached,
  /// Not yet; it may still come.
  under_way,
  /// It will not come without another command.
  given_up,
};

/// How far a drive with this statusword has come towards `goal`.
constexpr DriveProgress drive_progress(DriveGoal goal, std::uint16_t statusword) {
  const auto has = [&](std::uint16_t bits) { return (statusword & bits) == bits; };
  const auto reached_if = [](bool is_reached) {
    return is_reached ? DriveProgress::reached : DriveProgress::under_way;
  };
  const std::optional<DriveState> state = drive_state_of(statusword);
  const bool is_enabled = state == DriveState::operation_enabled;
  if (state == DriveState::fault) {
    return DriveProgress::given_up;
  }
  switch (goal) {
    case DriveGoal::enabled:
      return reached_if(is_enabled);
    case DriveGoal::disabled:
      return reached_if(state == DriveState::ready_to_switch_on ||
                        state == DriveState::switch_on_disabled);
    case DriveGoal::stopped:
      // A drive that stays in Quick stop active tells its halt by bit 10 (CiA 402-2, 0x605A).
      return reached_if(state == DriveState::switch_on_disabled ||
                        (state == DriveState::quick_stop_active && has(statusword_target_reached)));
    case DriveGoal::target_reached:
      return reached_if(is_enabled && has(statusword_target_reached));
    case DriveGoal::homed:
      if (is_enabled && has(statusword_homing_error)) {
        return DriveProgress::given_up;
      }
      return reached_if(is_enabled && has(statusword_target_reached | statusword_homing_attained));
  }
  return DriveProgress::under_way;
}

}  // namespace velmora_can_bridge
