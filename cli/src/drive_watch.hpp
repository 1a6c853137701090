// Whether a drive has done what an operation has told it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "ground/drive_state.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// A drive, and what an operation wants of it.
struct WatchedDrive {
  std::uint8_t node_id = 0;
  /// The index of its statusword.
  std::uint16_t statusword = 0;
  DriveGoal goal = DriveGoal::enabled;
};

/// What the operation is to bring about; no value where it is no command to a drive.
std::optional<DriveGoal> drive_goal(const OperationConfig& op);

/// No value where the operation commands no drive, or the file does not hold it.
std::optional<WatchedDrive> watched_drive(const BoardFile& file, const std::string& device,
                                          const std::string& operation);

/// What the drive shows.
struct DriveView {
  std::uint16_t statusword = 0;
  DriveProgress progress = DriveProgress::under_way;
  /// Why its statusword could not be read; no value when it was.
  std::optional<BusError> error;
};

/// "Operation enabled", or "statusword 0x00FF" where that is no state of the profile.
std::string drive_view_text(const DriveView& view);

/// Reads the statusword once.
DriveView look_at_drive(Bridge& bridge, const WatchedDrive& drive);

/// Whether the drive has not taken the command, as far as one look can tell: targets and homes take
/// their time while operation is enabled, and a drive that stops does, too.
bool has_not_followed(const WatchedDrive& drive, const DriveView& view);

/// Looks again and again until the drive is there, gives up or cannot be read, or until `is_over`,
/// which is asked between two looks with the time that lies between them and waits that time.
DriveView await_drive(Bridge& bridge, const WatchedDrive& drive,
                      const std::function<bool(std::chrono::milliseconds)>& is_over);

}  // namespace velmora_can_bridge
