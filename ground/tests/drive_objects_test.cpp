#include "ground/drive_objects.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;

using ObjectRow = std::tuple<std::uint16_t, std::size_t, bool, bool, std::string>;

const DeviceOdEntry wheel{"ci402", 0x6840, 0};
const DeviceOdEntry claw{"claw", 0x6040, 0x2100};

TEST(DriveObjects, have_the_index_length_sign_and_access_of_the_profile) {
  constexpr bool is_signed = true;
  constexpr bool is_writable = true;
  const DeviceOdEntry first{"ci402", 0x6040, 0};
  std::vector<ObjectRow> rows;
  for (const DriveObjectRow& row : drive_objects) {
    rows.emplace_back(drive_index(first, row.object), row.length, row.is_signed, row.is_writable,
                      row.name);
  }
  EXPECT_THAT(
      rows, ElementsAre(ObjectRow(0x603F, 2, !is_signed, !is_writable, "error code"),
                        ObjectRow(0x6040, 2, !is_signed, is_writable, "controlword"),
                        ObjectRow(0x6041, 2, !is_signed, !is_writable, "statusword"),
                        ObjectRow(0x605A, 2, is_signed, is_writable, "quick stop option code"),
                        ObjectRow(0x6060, 1, is_signed, is_writable, "modes of operation"),
                        ObjectRow(0x6061, 1, is_signed, !is_writable, "modes of operation display"),
                        ObjectRow(0x6064, 4, is_signed, !is_writable, "position actual value"),
                        ObjectRow(0x606C, 4, is_signed, !is_writable, "velocity actual value"),
                        ObjectRow(0x6071, 2, is_signed, is_writable, "target torque"),
                        ObjectRow(0x6077, 2, is_signed, !is_writable, "torque actual value"),
                        ObjectRow(0x607A, 4, is_signed, is_writable, "target position"),
                        ObjectRow(0x607C, 4, is_signed, is_writable, "home offset"),
                        ObjectRow(0x6081, 4, !is_signed, is_writable, "profile velocity"),
                        ObjectRow(0x6083, 4, !is_signed, is_writable, "profile acceleration"),
                        ObjectRow(0x6084, 4, !is_signed, is_writable, "profile deceleration"),
                        ObjectRow(0x6085, 4, !is_signed, is_writable, "quick stop deceleration"),
                        ObjectRow(0x6098, 1, is_signed, is_writable, "homing method"),
                        ObjectRow(0x60FF, 4, is_signed, is_writable, "target velocity"),
                        ObjectRow(0x6502, 4, !is_signed, !is_writable, "supported drive modes")));
}

TEST(ClawObjects, have_a_byte_at_sub_indices_of_the_homing_record) {
  using ClawRow = std::tuple<int, std::size_t, bool, std::string>;
  std::vector<ClawRow> rows;
  for (const ClawObjectRow& row : claw_objects) {
    rows.emplace_back(static_cast<int>(row.object), row.length, row.is_writable, row.name);
  }
  EXPECT_THAT(rows, ElementsAre(ClawRow(1, 1, false, "action state"),
                                ClawRow(2, 1, false, "position state"),
                                ClawRow(9, 1, true, "extend command")));
}

TEST(DriveModes, have_names) {
  EXPECT_EQ(drive_mode_name(3), "velocity");
  EXPECT_EQ(drive_mode_name(0), "none");
  EXPECT_EQ(drive_mode_name(5), "");
  EXPECT_EQ(drive_mode_name(0xFF), "");
}

TEST(ClawObjects, have_names_for_their_states) {
  EXPECT_EQ(claw_actions[static_cast<std::size_t>(ClawAction::error)], "error");
  EXPECT_EQ(claw_actions[static_cast<std::size_t>(ClawAction::done)], "done");
  EXPECT_EQ(claw_positions[static_cast<std::size_t>(ClawPosition::extended)], "extended");
  EXPECT_EQ(claw_positions[static_cast<std::size_t>(ClawPosition::between)], "between");
}

TEST(DriveObjects, are_those_of_the_profiles_ci402_and_claw) {
  EXPECT_TRUE(is_drive(wheel));
  EXPECT_TRUE(is_drive(claw));
  for (const char* const profile : {"", "io", "CI402", "ci402 "}) {
    EXPECT_FALSE(is_drive({profile, 0x6040, 0x2100})) << profile;
  }
}

TEST(ClawObjects, are_those_of_a_claw_with_a_homing_record) {
  EXPECT_TRUE(is_claw(claw));
  EXPECT_FALSE(is_claw({"claw", 0x6040, 0}));
  EXPECT_FALSE(is_claw({"ci402", 0x6040, 0x2100}));
}

TEST(DriveObjects, index_wraps_at_16_bits) {
  EXPECT_EQ(drive_index({"ci402", 0xFFF0, 0}, DriveObject::modes_of_operation), 0x0010);
}

TEST(DriveObjects, are_found_by_their_index) {
  for (const DriveObjectRow& row : drive_objects) {
    EXPECT_EQ(find_drive_object(wheel, drive_index(wheel, row.object)), &row) << row.name;
  }
  EXPECT_EQ(find_drive_object(wheel, 0x683E), nullptr);
  EXPECT_EQ(find_drive_object(wheel, 0x6842), nullptr);
  EXPECT_EQ(find_drive_object({"io", 0x6840, 0}, 0x6840), nullptr);
}

TEST(DriveObjects, lie_in_an_axis_that_begins_0x40_below_the_controlword) {
  EXPECT_FALSE(is_in_axis(wheel, 0x67FF));
  EXPECT_TRUE(is_in_axis(wheel, 0x6800));
  EXPECT_TRUE(is_in_axis(wheel, 0x6FFF));
  EXPECT_FALSE(is_in_axis(wheel, 0x7000));
  EXPECT_FALSE(is_in_axis({"io", 0x6840, 0}, 0x6840));
}

TEST(DriveObjects, axis_begins_at_0_where_there_is_no_room_below_the_controlword) {
  const DeviceOdEntry low{"ci402", 0x0010, 0};
  EXPECT_TRUE(is_in_axis(low, 0x0000));
  EXPECT_TRUE(is_in_axis(low, 0x07FF));
  EXPECT_FALSE(is_in_axis(low, 0x0800));
}

TEST(DriveObjects, target_follows_the_mode) {
  EXPECT_EQ(target_object(1), DriveObject::target_position);
  EXPECT_EQ(target_object(4), DriveObject::target_torque);
  EXPECT_EQ(target_object(0), DriveObject::target_velocity);
  EXPECT_EQ(target_object(3), DriveObject::target_velocity);
  EXPECT_EQ(target_object(8), DriveObject::target_velocity);
}

}  // namespace
}  // namespace velmora_can_bridge
