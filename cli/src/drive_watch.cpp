#include "drive_watch.hpp"

#include <string_view>

#include "ground/drive_objects.hpp"
#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::chrono::milliseconds between_looks{50};

struct GoalRow {
  std::string_view kind;
  /// Of a "claw_action".
  std::string_view action;
  DriveGoal goal;
};

constexpr GoalRow goals[] = {
    {"ci402_enable", "", DriveGoal::enabled},
    {"ci402_disable", "", DriveGoal::disabled},
    {"ci402_quick_stop", "", DriveGoal::stopped},
    {"ci402_set_target", "", DriveGoal::target_reached},
    {"claw_action", "home", DriveGoal::homed},
    {"claw_action", "extend", DriveGoal::enabled},
};

}  // namespace

std::optional<DriveGoal> drive_goal(const OperationConfig& op) {
  for (const GoalRow& row : goals) {
    if (row.kind == op.kind && (row.action.empty() || row.action == op.action)) {
      return row.goal;
    }
  }
  return std::nullopt;
}

std::optional<WatchedDrive> watched_drive(const BoardFile& file, const std::string& device,
                                          const std::string& operation) {
  for (const NodeConfig& node : file.nodes) {
    const auto entry = node.board.device_od_map.find(device);
    const auto op = node.operations.find(operation);
    if (entry == node.board.device_od_map.end() || op == node.operations.end()) {
      continue;
    }
    const std::optional<DriveGoal> goal = drive_goal(op->second);
    if (goal && is_drive(entry->second)) {
      return WatchedDrive{node.node_id, drive_index(entry->second, DriveObject::statusword), *goal};
    }
  }
  return std::nullopt;
}

std::string drive_view_text(const DriveView& view) {
  const std::optional<DriveState> state = drive_state_of(view.statusword);
  return state ? std::string(drive_state_text(*state)) : "statusword " + hex<4>(view.statusword);
}

DriveView look_at_drive(Bridge& bridge, const WatchedDrive& drive) {
  const auto read = bridge.read_object(drive.node_id, drive.statusword, 0);
  if (!read) {
    return {0, DriveProgress::under_way, read.error()};
  }
  const auto statusword = static_cast<std::uint16_t>(little_endian_number(*read));
  return {statusword, drive_progress(drive.goal, statusword), std::nullopt};
}

bool has_not_followed(const WatchedDrive& drive, const DriveView& view) {
  if (view.error || view.progress == DriveProgress::reached) {
    return false;
  }
  const std::optional<DriveState> state = drive_state_of(view.statusword);
  const bool takes_its_time =
      (drive.goal == DriveGoal::stopped && state == DriveState::quick_stop_active) ||
      ((drive.goal == DriveGoal::target_reached || drive.goal == DriveGoal::homed) &&
       state == DriveState::operation_enabled);
  return view.progress == DriveProgress::given_up || !takes_its_time;
}

DriveView await_drive(Bridge& bridge, const WatchedDrive& drive,
                      const std::function<bool(std::chrono::milliseconds)>& is_over) {
  // What a drive shows at once may be of the command before.
  bool ends = is_over(between_looks);
  DriveView view = look_at_drive(bridge, drive);
  while (!view.error && view.progress == DriveProgress::under_way && !ends) {
    ends = is_over(between_looks);
    view = look_at_drive(bridge, drive);
  }
  return view;
}

}  // namespace velmora_can_bridge
