#include "drive_condition.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

TEST(DriveConditions, are_the_target_and_all_states) {
  std::string names;
  for (const DriveCondition& condition : drive_conditions()) {
    names += condition.name + " ";
  }
  EXPECT_EQ(names,
            "target_reached not_ready_to_switch_on switch_on_disabled ready_to_switch_on "
            "switched_on operation_enabled quick_stop_active fault_reaction_active fault ");
  EXPECT_EQ(find_drive_condition("Fault"), nullptr);
}

struct ProgressRow {
  const char* name;
  const char* condition;
  std::uint16_t statusword;
  DriveProgress progress;
};

class Progress : public testing::TestWithParam<ProgressRow> {};

TEST_P(Progress, follows_the_statusword) {
  const ProgressRow& row = GetParam();
  EXPECT_EQ(progress(*find_drive_condition(row.condition), row.statusword), row.progress);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Progress,
    testing::Values(
        ProgressRow{"state_that_it_is", "operation_enabled", 0x0237, DriveProgress::reached},
        ProgressRow{"state_on_the_way", "operation_enabled", 0x0231, DriveProgress::under_way},
        ProgressRow{"state_behind_a_fault", "operation_enabled", 0x0218, DriveProgress::given_up},
        ProgressRow{"fault_itself", "fault", 0x0218, DriveProgress::reached},
        ProgressRow{"target_reached", "target_reached", 0x0637, DriveProgress::reached},
        ProgressRow{"target_ahead", "target_reached", 0x0237, DriveProgress::under_way},
        ProgressRow{"target_behind_a_fault", "target_reached", 0x0618, DriveProgress::given_up}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge
