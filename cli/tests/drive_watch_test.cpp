#include "drive_watch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_line_fixture.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;

constexpr const char* drive_board = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      claw: {profile: claw, base_index: 0x6840, homing_record: 0x2800}
      lamp: {base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: level}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: colour}
    operations:
      enable: {kind: ci402_enable}
      disable: {kind: ci402_disable}
      stop: {kind: ci402_quick_stop}
      set_mode: {kind: ci402_set_mode}
      home: {kind: claw_action, action: home}
      query: {kind: claw_action, action: query}
      refresh_level: {kind: pdo_write, pdo_number: 1, field: level, refresh_shadow: true}
)";

/// A node whose statusword shows what a test wants.
class DriveOnBus : public CommandLine {
 protected:
  DriveOnBus() : path(write_file("drive.yaml", drive_board)) {
    plug_in();
    node.node.device().add_object(0x6040, 0, object_of({0, 0}));
    node.node.device().add_object(0x6060, 0, object_of({0}));
    NmtMaster(can0).send(NmtCommand::start, 0x10);
    shows(0x0250);
  }

  void shows(std::uint16_t statusword) {
    node.node.device().add_object(0x6041, 0,
                                  object_of({static_cast<std::uint8_t>(statusword & 0xFFU),
                                             static_cast<std::uint8_t>(statusword >> 8U)}));
  }

  /// The node shows `statusword` when it is asked for it for the `count`th time.
  void shows_at_look(int count, std::uint16_t statusword) {
    can0.set_fault_rule([this, count, statusword, seen = 0](const CanFrame& frame) mutable {
      const bool is_look = frame.id == 0x610 && frame.data[0] == 0x40 && frame.data[1] == 0x41;
      looks += is_look ? 1 : 0;
      if (is_look && ++seen == count) {
        shows(statusword);
      }
      return std::vector<CanDelivery>{{frame}};
    });
  }

  ExitStatus run_drive(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"run", "--bus", "can0", path, "wheel"});
    return run(arguments);
  }

  std::string path;
  NodeOnBus node{can0, 0x10};
  int looks = 0;
};

TEST_F(DriveOnBus, message_tells_what_the_drive_shows) {
  shows(0x0237);
  EXPECT_EQ(run_drive({"enable"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: Motor enabled (sent; the drive shows Operation enabled)\n");
  EXPECT_EQ(err, "");
}

TEST_F(DriveOnBus, drive_that_has_not_followed_is_a_remark) {
  shows(0x0218);
  EXPECT_EQ(run_drive({"enable"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: Motor enabled (sent; the drive shows Fault)\n");
  EXPECT_EQ(err, "velmora-can-bridge: wheel has not followed (yet): it shows Fault\n");
}

TEST_F(DriveOnBus, statusword_of_no_state_is_shown_as_it_is) {
  shows(0x00FF);
  run_drive({"enable"});
  EXPECT_THAT(out, HasSubstr("the drive shows statusword 0x00FF)"));
}

TEST_F(DriveOnBus, state_that_cannot_be_read_is_said_not_to_be_read) {
  node.node.device().add_object(0x6041, 0, {ObjectAccess::write_only, {0, 0}, false, 0});
  EXPECT_EQ(run_drive({"enable"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: Motor enabled (sent; the drive's state was not read)\n");
  EXPECT_EQ(err, "");
}

TEST_F(DriveOnBus, message_in_json_is_that_of_the_operation) {
  shows(0x0237);
  run_drive({"enable", "--json"});
  EXPECT_THAT(out, HasSubstr(R"("message":"Motor enabled","drive_state":"Operation enabled")"));
}

TEST_F(DriveOnBus, operation_that_commands_no_drive_looks_at_none) {
  EXPECT_EQ(run_drive({"set_mode", "3", "--transfers"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: Mode set to 3\n");
  EXPECT_THAT(err, testing::Not(HasSubstr("0x6041")));
}

TEST_F(DriveOnBus, wait_ends_when_the_drive_is_there) {
  shows_at_look(3, 0x0237);
  EXPECT_EQ(run_drive({"enable", "--wait"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: Motor enabled (the drive has followed: Operation enabled)\n");
  EXPECT_EQ(looks, 3);
}

TEST_F(DriveOnBus, wait_ends_with_its_seconds) {
  shows_at_look(0, 0);
  EXPECT_EQ(run_drive({"enable", "--wait=2"}), ExitStatus::operation_failed);
  EXPECT_EQ(err,
            "failed: Motor enabled (the drive has not followed within 2 s: it shows Switch on "
            "disabled)\n");
  EXPECT_GE(looks, 10);
  EXPECT_LE(looks, 41);
}

TEST_F(DriveOnBus, wait_ends_when_the_drive_gives_up) {
  shows_at_look(2, 0x0218);
  EXPECT_EQ(run_drive({"enable", "--wait", "--json"}), ExitStatus::operation_failed);
  EXPECT_EQ(looks, 2);
  EXPECT_THAT(out, HasSubstr(R"("ok":false,"code":"failed","data":[],"message":"Motor enabled",)"
                             R"("reason":"the drive has not followed: it shows Fault",)"
                             R"("drive_state":"Fault")"));
}

TEST_F(DriveOnBus, wait_for_a_statusword_that_cannot_be_read_fails) {
  node.node.device().add_object(0x6041, 0, {ObjectAccess::write_only, {0, 0}, false, 0});
  EXPECT_EQ(run_drive({"stop", "--wait"}), ExitStatus::operation_failed);
  EXPECT_THAT(err, HasSubstr("failed: Quick stop sent (the drive's state cannot be read: abort "));
}

TEST_F(DriveOnBus, wait_looks_for_the_first_time_50_ms_after_the_command) {
  shows(0x0237);
  const auto clock = can0.open({});
  const auto start = clock->now();
  EXPECT_EQ(run_drive({"enable", "--wait"}), ExitStatus::success);
  EXPECT_EQ(clock->now() - start, std::chrono::milliseconds(50));
}

TEST_F(DriveOnBus, wait_ends_with_the_first_read_that_fails) {
  node.node.device().add_object(0x6041, 0, {ObjectAccess::write_only, {0, 0}, false, 0});
  shows_at_look(0, 0);
  EXPECT_EQ(run_drive({"enable", "--wait"}), ExitStatus::operation_failed);
  EXPECT_EQ(looks, 1);
}

TEST_F(DriveOnBus, wait_can_be_interrupted) {
  can0.set_fault_rule([this](const CanFrame& frame) {
    interrupted = interrupted || (frame.id == 0x590 && frame.data[1] == 0x41);
    return std::vector<CanDelivery>{{frame}};
  });
  EXPECT_EQ(run_drive({"enable", "--wait=3600"}), ExitStatus::interrupted);
}

TEST_F(DriveOnBus, wait_without_a_drive_is_a_remark) {
  EXPECT_EQ(run_drive({"set_mode", "3", "--wait"}), ExitStatus::success);
  EXPECT_THAT(err, HasSubstr("velmora-can-bridge: --wait has nothing to wait for: the operation "
                             "commands no drive\n"));
}

TEST_F(DriveOnBus, wait_takes_seconds) {
  EXPECT_EQ(run_drive({"enable", "--wait=0"}), ExitStatus::bad_input);
  EXPECT_EQ(run_drive({"enable", "--wait=soon"}), ExitStatus::bad_input);
}

TEST_F(DriveOnBus, simulated_claw_comes_home) {
  EXPECT_EQ(run({"run", path, "claw", "home", "--wait"}), ExitStatus::operation_failed)
      << "it was never enabled";
  EXPECT_THAT(err, HasSubstr("it shows Switch on disabled"));
}

TEST_F(DriveOnBus, simulated_wheel_follows) {
  EXPECT_EQ(run({"run", path, "wheel", "enable", "--wait"}), ExitStatus::success);
}

// --- silence ---

TEST_F(DriveOnBus, silent_bus_is_no_success) {
  can0.set_fault_rule([](const CanFrame& frame) {
    return frame.id == 0x590 ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
  });
  EXPECT_EQ(run_drive({"refresh_level", "7"}), ExitStatus::no_answer);
  EXPECT_EQ(err,
            "velmora-can-bridge: failed on the way: node 0x10, object 0x2000/1: no answer within "
            "500 ms\n"
            "velmora-can-bridge: failed on the way: node 0x10, object 0x2000/2: no answer within "
            "500 ms\n"
            "failed: RPDO send failed (the node's value of colour is not known (no answer within "
            "500 ms))\n");
}

TEST_F(DriveOnBus, refusal_is_a_failure_that_json_lists) {
  EXPECT_EQ(run_drive({"refresh_level", "7", "--json"}), ExitStatus::operation_failed);
  EXPECT_THAT(out, HasSubstr(R"("tolerated":[{"index":8192,"sub_index":1,"reason":"abort )"));
  EXPECT_THAT(out, HasSubstr(R"({"index":8192,"sub_index":2,"reason":"abort )"));
}

TEST_F(DriveOnBus, force_sends_to_a_silent_bus) {
  can0.set_fault_rule([](const CanFrame& frame) {
    return frame.id == 0x590 ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
  });
  EXPECT_EQ(run_drive({"refresh_level", "7", "--force"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: OK\n");
  EXPECT_EQ(run({"explain", "--bus", "can0", path, "wheel", "refresh_level", "7"}),
            ExitStatus::no_answer);
  EXPECT_EQ(run({"explain", "--bus", "can0", path, "wheel", "refresh_level", "7", "--force"}),
            ExitStatus::success);
}

// --- goals ---

struct FollowCase {
  std::string name;
  DriveGoal goal;
  std::uint16_t statusword;
  bool has_not_followed;
};

void PrintTo(const FollowCase& row, std::ostream* out) { *out << row.name; }

class DriveFollows : public testing::TestWithParam<FollowCase> {};

TEST_P(DriveFollows, as_far_as_one_look_tells) {
  const FollowCase& row = GetParam();
  const DriveView view{row.statusword, drive_progress(row.goal, row.statusword), std::nullopt};
  EXPECT_EQ(has_not_followed({0x10, 0x6041, row.goal}, view), row.has_not_followed);
}

INSTANTIATE_TEST_SUITE_P(
    of, DriveFollows,
    testing::Values(FollowCase{"enabled", DriveGoal::enabled, 0x0237, false},
                    FollowCase{"not_enabled", DriveGoal::enabled, 0x0231, true},
                    FollowCase{"still_enabled", DriveGoal::disabled, 0x0237, true},
                    FollowCase{"stopping", DriveGoal::stopped, 0x0217, false},
                    FollowCase{"not_stopping", DriveGoal::stopped, 0x0237, true},
                    FollowCase{"on_the_way", DriveGoal::target_reached, 0x0237, false},
                    FollowCase{"target_for_a_drive_that_is_off", DriveGoal::target_reached, 0x0250,
                               true},
                    FollowCase{"homing", DriveGoal::homed, 0x0237, false},
                    FollowCase{"homing_failed", DriveGoal::homed, 0x2237, true}),
    [](const testing::TestParamInfo<FollowCase>& row) { return row.param.name; });

TEST(DriveGoals, are_those_of_commands_to_drives) {
  const auto goal_of = [](const std::string& kind, const std::string& action = "") {
    OperationConfig op;
    op.kind = kind;
    op.action = action;
    return drive_goal(op);
  };
  EXPECT_EQ(goal_of("ci402_set_target"), DriveGoal::target_reached);
  EXPECT_EQ(goal_of("claw_action", "extend"), DriveGoal::enabled);
  EXPECT_EQ(goal_of("claw_action", "query"), std::nullopt);
  EXPECT_EQ(goal_of("sdo_write"), std::nullopt);
}

}  // namespace
}  // namespace velmora_can_bridge
