#include "drive_condition.hpp"

#include <algorithm>
#include <cctype>

namespace velmora_can_bridge {
namespace {

/// "ready_to_switch_on" for "Ready to switch on".
std::string name_of(const DriveStateRow& row) {
  std::string name(row.text);
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char character) {
    return character == ' ' ? '_' : static_cast<char>(std::tolower(character));
  });
  return name;
}

std::vector<DriveCondition> all_conditions() {
  std::vector<DriveCondition> conditions{{"target_reached", std::nullopt}};
  for (const DriveStateRow& row : drive_states) {
    conditions.push_back({name_of(row), row.state});
  }
  return conditions;
}

}  // namespace

const std::vector<DriveCondition>& drive_conditions() {
  static const std::vector<DriveCondition> conditions = all_conditions();
  return conditions;
}

const DriveCondition* find_drive_condition(const std::string& name) {
  const std::vector<DriveCondition>& all = drive_conditions();
  const auto found = std::find_if(all.begin(), all.end(), [&](const DriveCondition& condition) {
    return condition.name == name;
  });
  return found == all.end() ? nullptr : &*found;
}

DriveProgress progress(const DriveCondition& condition, std::uint16_t statusword) {
  if (!condition.state) {
    return drive_progress(DriveGoal::target_reached, statusword);
  }
  const std::optional<DriveState> state = drive_state_of(statusword);
  if (state == condition.state) {
    return DriveProgress::reached;
  }
  return state == DriveState::fault ? DriveProgress::given_up : DriveProgress::under_way;
}

}  // namespace velmora_can_bridge
