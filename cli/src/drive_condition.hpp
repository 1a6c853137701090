// What a script may wait for at a drive.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ground/drive_state.hpp"

namespace velmora_can_bridge {

/// A state of the drive, or that it has reached its target.
struct DriveCondition {
  /// "operation_enabled", "target_reached".
  std::string name;
  /// No value: the target.
  std::optional<DriveState> state;
};

/// All of them.
const std::vector<DriveCondition>& drive_conditions();

/// The condition of that name; null when there is none.
const DriveCondition* find_drive_condition(const std::string& name);

/// How far a drive with this statusword is from the condition. One in Fault has given up whatever
/// is not the way there.
DriveProgress progress(const DriveCondition& condition, std::uint16_t statusword);

}  // namespace velmora_can_bridge
