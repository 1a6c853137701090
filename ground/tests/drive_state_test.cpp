#include "ground/drive_state.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

namespace velmora_can_bridge {
namespace {

/// As the tables of the profile draw it: "x" stands for any bit, the highest first.
bool matches(const std::string& pattern, unsigned low_bits) {
  for (std::size_t position = 0; position < pattern.size(); ++position) {
    const char bit = (low_bits >> (pattern.size() - 1 - position) & 1U) != 0 ? '1' : '0';
    if (pattern[position] != 'x' && pattern[position] != bit) {
      return false;
    }
  }
  return true;
}

std::string slow_state(unsigned statusword) {
  static const std::pair<const char*, const char*> patterns[] = {
      {"x0xx0000", "Not ready to switch on"}, {"x1xx0000", "Switch on disabled"},
      {"x01x0001", "Ready to switch on"},     {"x01x0011", "Switched on"},
      {"x01x0111", "Operation enabled"},      {"x00x0111", "Quick stop active"},
      {"x0xx1111", "Fault reaction active"},  {"x0xx1000", "Fault"},
  };
  for (const auto& [pattern, state] : patterns) {
    if (matches(pattern, statusword & 0xFFU)) {
      return state;
    }
  }
  return "none";
}

TEST(DriveStates, are_those_of_the_profile_for_every_statusword) {
  for (unsigned statusword = 0; statusword <= 0xFFFF; ++statusword) {
    const auto state = drive_state_of(static_cast<std::uint16_t>(statusword));
    ASSERT_EQ(state ? std::string(drive_state_text(*state)) : "none", slow_state(statusword))
        << statusword;
  }
}

TEST(DriveStates, have_no_text_beyond_the_profile) {
  EXPECT_EQ(drive_state_text(static_cast<DriveState>(99)), "unknown");
}

struct ProgressCase {
  std::string name;
  DriveGoal goal;
  std::uint16_t statusword;
  DriveProgress progress;
};

void PrintTo(const ProgressCase& row, std::ostream* out) { *out << row.name; }

class DriveProgresses : public testing::TestWithParam<ProgressCase> {};

TEST_P(DriveProgresses, follow_from_the_statusword) {
  EXPECT_EQ(drive_progress(GetParam().goal, GetParam().statusword), GetParam().progress);
}

constexpr auto reached = DriveProgress::reached;
constexpr auto under_way = DriveProgress::under_way;
constexpr auto given_up = DriveProgress::given_up;

INSTANTIATE_TEST_SUITE_P(
    of, DriveProgresses,
    testing::Values(
        ProgressCase{"enabled", DriveGoal::enabled, 0x0237, reached},
        ProgressCase{"enabled_while_off", DriveGoal::enabled, 0x0250, under_way},
        ProgressCase{"enabled_while_switched_on", DriveGoal::enabled, 0x0233, under_way},
        ProgressCase{"enabled_in_fault", DriveGoal::enabled, 0x0218, given_up},
        ProgressCase{"enabled_in_fault_reaction", DriveGoal::enabled, 0x021F, under_way},
        ProgressCase{"enabled_in_no_state", DriveGoal::enabled, 0x00FF, under_way},
        ProgressCase{"disabled", DriveGoal::disabled, 0x0231, reached},
        ProgressCase{"disabled_while_off", DriveGoal::disabled, 0x0250, reached},
        ProgressCase{"disabled_while_enabled", DriveGoal::disabled, 0x0637, under_way},
        ProgressCase{"disabled_in_fault", DriveGoal::disabled, 0x0218, given_up},
        ProgressCase{"stopped_and_off", DriveGoal::stopped, 0x0250, reached},
        ProgressCase{"stopping", DriveGoal::stopped, 0x0217, under_way},
        ProgressCase{"stopped_and_held", DriveGoal::stopped, 0x0617, reached},
        ProgressCase{"stopped_while_enabled", DriveGoal::stopped, 0x0637, under_way},
        ProgressCase{"at_the_target", DriveGoal::target_reached, 0x0637, reached},
        ProgressCase{"on_the_way", DriveGoal::target_reached, 0x0237, under_way},
        ProgressCase{"target_while_off", DriveGoal::target_reached, 0x0650, under_way},
        ProgressCase{"target_in_fault", DriveGoal::target_reached, 0x0618, given_up},
        ProgressCase{"homed", DriveGoal::homed, 0x1637, reached},
        ProgressCase{"homed_and_moving", DriveGoal::homed, 0x1237, under_way},
        ProgressCase{"homing", DriveGoal::homed, 0x0237, under_way},
        ProgressCase{"homed_while_off", DriveGoal::homed, 0x1650, under_way},
        ProgressCase{"homing_failed", DriveGoal::homed, 0x2237, given_up},
        ProgressCase{"nothing_at_all", static_cast<DriveGoal>(99), 0x0237, under_way}),
    [](const testing::TestParamInfo<ProgressCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge
