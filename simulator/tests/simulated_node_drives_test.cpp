#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ground/little_endian.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

constexpr std::uint16_t power_bits = 0x6F;

/// A left drive, a right drive and a claw, with an RPDO that carries all that makes the left go.
BoardConfig robot_board() {
  return {{{1,
            "RPDO",
            0,
            {{0x6060, 0, 8, "mode"}, {0x6040, 0, 16, "controlword"}, {0x60FF, 0, 32, "velocity"}}},
           {2, "RPDO", 0, {{0x6040, 0, 16, "enable"}, {0x6040, 0, 16, "enable_and_start"}}},
           {3, "RPDO", 0, {{0x2300, 9, 8, "extend"}}},
           {4, "RPDO", 0, {{0x2200, 1, 16, "duty"}}}},
          {{"left", {"ci402", 0x6040, 0}},
           {"right", {"ci402", 0x6840, 0}},
           {"claw", {"claw", 0x7040, 0x2300}},
           {"pumps", {"io", 0x2200, 0}}}};
}

class SimulatedNodeDrivesTest : public testing::Test {
 protected:
  std::uint64_t value(std::uint16_t index, std::uint8_t sub_index = 0) const {
    return little_endian_number(node.object_value(index, sub_index).value());
  }

  std::int32_t position(std::uint16_t base = 0x6040) const {
    return static_cast<std::int32_t>(value(static_cast<std::uint16_t>(base + 0x24)));
  }

  std::int32_t velocity(std::uint16_t base = 0x6040) const {
    return static_cast<std::int32_t>(value(static_cast<std::uint16_t>(base + 0x2C)));
  }

  std::uint64_t power(std::uint16_t base = 0x6040) const {
    return value(static_cast<std::uint16_t>(base + 0x01)) & power_bits;
  }

  void write(std::uint16_t index, std::int64_t number, std::size_t size) {
    EXPECT_TRUE(
        node.sdo_write(5, index, 0, little_endian_bytes(static_cast<std::uint64_t>(number), size)));
  }

  void enable(std::uint8_t mode, std::uint16_t base = 0x6040) {
    write(static_cast<std::uint16_t>(base + 0x20), mode, 1);
    write(base, 0x06, 2);
    write(base, 0x0F, 2);
  }

  void expect_claw(std::uint64_t action, std::uint64_t position_state) const {
    EXPECT_EQ(value(0x2300, 1), action);
    EXPECT_EQ(value(0x2300, 2), position_state);
  }

  SimulatedNode node{5, robot_board()};
};

TEST_F(SimulatedNodeDrivesTest, shows_switch_on_disabled_from_the_start) {
  for (const auto statusword : std::array<std::uint16_t, 3>{0x6041, 0x6841, 0x7041}) {
    EXPECT_EQ(value(statusword), 0x0250U);
  }
}

TEST_F(SimulatedNodeDrivesTest, command_acts_before_the_download_ends) {
  write(0x6040, 0x06, 2);

  EXPECT_EQ(value(0x6041), 0x0231U);
}

TEST_F(SimulatedNodeDrivesTest, each_drive_is_its_own) {
  enable(3);

  EXPECT_EQ(power(), 0x27U);
  EXPECT_EQ(power(0x6840), 0x40U);
  EXPECT_EQ(value(0x6861), 0U);
}

TEST_F(SimulatedNodeDrivesTest, refused_download_is_no_command) {
  // What the object holds would be a command if the refused write counted.
  node.set_object_value(0x6040, 0, {0x06, 0x00});

  EXPECT_FALSE(node.sdo_write(5, 0x6040, 0, {0x06}));
  EXPECT_FALSE(node.sdo_write(6, 0x6040, 0, {0x06, 0x00}));

  EXPECT_EQ(power(), 0x40U);
}

TEST_F(SimulatedNodeDrivesTest, objects_set_on_the_bench_are_no_command) {
  node.set_object_value(0x6040, 0, {0x06, 0x00});
  node.set_object_value(0x6060, 0, {3});
  node.tick(milliseconds(10));

  EXPECT_EQ(power(), 0x40U);
  EXPECT_EQ(value(0x6061), 0U);
}

TEST_F(SimulatedNodeDrivesTest, targets_set_on_the_bench_count) {
  enable(3);
  node.set_object_value(0x60FF, 0, {5, 0, 0, 0});
  node.tick(milliseconds(10));

  EXPECT_EQ(velocity(), 5);
}

TEST_F(SimulatedNodeDrivesTest, mode_is_displayed_only_if_known) {
  write(0x6060, 6, 1);
  EXPECT_EQ(value(0x6061), 6U);

  write(0x6060, 8, 1);
  EXPECT_EQ(value(0x6060), 8U);
  EXPECT_EQ(value(0x6061), 6U);

  write(0x6060, -1, 1);
  EXPECT_EQ(value(0x6061), 6U);
}

TEST_F(SimulatedNodeDrivesTest, velocity_follows_the_ramp_objects) {
  write(0x6083, 2000, 4);
  write(0x6084, 500, 4);
  enable(3);
  write(0x60FF, -100, 4);

  node.tick(milliseconds(25));
  EXPECT_EQ(velocity(), -50);

  node.tick(milliseconds(25));
  EXPECT_EQ(velocity(), -100);
  EXPECT_EQ(position(), -2);  // 2.5 towards zero

  write(0x60FF, 0, 4);
  node.tick(milliseconds(100));
  EXPECT_EQ(velocity(), -50);
}

TEST_F(SimulatedNodeDrivesTest, written_target_position_is_a_set_point) {
  write(0x6081, 100, 4);
  write(0x6083, 1000, 4);
  write(0x6084, 1000, 4);
  enable(1);
  write(0x607A, -20, 4);

  node.tick(milliseconds(200));
  EXPECT_EQ(position(), -15);

  node.tick(milliseconds(100));
  EXPECT_EQ(position(), -20);
  EXPECT_EQ(value(0x6041) & 0x0400U, 0x0400U);
}

TEST_F(SimulatedNodeDrivesTest, torque_follows_without_a_tick) {
  enable(4);
  write(0x6071, -7, 2);

  EXPECT_EQ(node.object_value(0x6077, 0), (Bytes{0xF9, 0xFF}));
}

TEST_F(SimulatedNodeDrivesTest, homing_ends_at_position_0_after_a_second) {
  enable(3);
  write(0x60FF, 100, 4);
  node.tick(milliseconds(500));
  write(0x6060, 6, 1);
  write(0x6040, 0x1F, 2);

  node.tick(milliseconds(999));
  EXPECT_EQ(value(0x6041) & 0x3400U, 0U);
  EXPECT_GT(position(), 0);

  node.tick(milliseconds(1));
  EXPECT_EQ(value(0x6041) & 0x3400U, 0x1400U);
  EXPECT_EQ(position(), 0);
}

TEST_F(SimulatedNodeDrivesTest, quick_stop_uses_its_own_ramp) {
  write(0x6085, 2000, 4);
  enable(3);
  write(0x60FF, 100, 4);
  node.tick(milliseconds(100));

  write(0x6040, 0x02, 2);
  node.tick(milliseconds(49));
  EXPECT_EQ(velocity(), 2);
  EXPECT_EQ(power(), 0x07U);

  node.tick(milliseconds(1));
  EXPECT_EQ(power(), 0x40U);
}

TEST_F(SimulatedNodeDrivesTest, quick_stop_option_decides_where_a_quick_stop_ends) {
  EXPECT_EQ(value(0x605A), 2U);
  write(0x605A, 6, 2);
  enable(3);

  write(0x6040, 0x02, 2);
  node.tick(milliseconds(1000));
  EXPECT_EQ(power(), 0x07U);

  write(0x6040, 0x0F, 2);
  EXPECT_EQ(power(), 0x27U);
}

TEST_F(SimulatedNodeDrivesTest, modes_that_a_master_may_choose_are_told) {
  EXPECT_EQ(value(0x6502), 0x2DU);
  EXPECT_FALSE(node.sdo_write(5, 0x6502, 0, {0, 0, 0, 0}));
}

TEST_F(SimulatedNodeDrivesTest, homing_ends_at_the_home_offset_by_any_method) {
  EXPECT_EQ(value(0x6098), 37U);
  write(0x6098, 1, 1);
  write(0x607C, -250, 4);
  enable(6);
  write(0x6040, 0x1F, 2);
  node.tick(milliseconds(1000));

  EXPECT_EQ(position(), -250);
}

struct UnknownValueCase {
  std::string name;
  std::uint16_t index;
  Bytes value;
};

void PrintTo(const UnknownValueCase& row, std::ostream* out) { *out << row.name; }

class UnknownValueTest : public testing::TestWithParam<UnknownValueCase> {
 protected:
  SimulatedNode node{
      5, {{{1, "RPDO", 0, {{GetParam().index, 0, 16, ""}}}}, {{"drive", {"ci402", 0x6040, 0}}}}};
  const Bytes before = node.object_value(GetParam().index, 0).value();
};

TEST_P(UnknownValueTest, is_refused_in_a_download) {
  EXPECT_EQ(node.sdo_download(GetParam().index, 0, GetParam().value), SdoAbort::invalid_value);
  EXPECT_EQ(node.object_value(GetParam().index, 0), before);
}

TEST_P(UnknownValueTest, is_passed_over_in_a_frame) {
  std::array<std::uint8_t, 8> frame{};
  std::copy(GetParam().value.begin(), GetParam().value.end(), frame.begin());
  node.receive_rpdo(1, frame, 2);

  EXPECT_EQ(node.object_value(GetParam().index, 0), before);
}

INSTANTIATE_TEST_SUITE_P(
    of, UnknownValueTest,
    testing::Values(UnknownValueCase{"quick_stop_option", 0x605A, {3, 0}},
                    UnknownValueCase{"quick_stop_option_of_the_maker", 0x605A, {0xFF, 0xFF}},
                    UnknownValueCase{"homing_method", 0x6098, {15}},
                    UnknownValueCase{"homing_method_of_the_maker", 0x6098, {0xFF}}),
    [](const testing::TestParamInfo<UnknownValueCase>& row) { return row.param.name; });

TEST_F(SimulatedNodeDrivesTest, object_that_is_no_longer_the_drives_takes_any_value) {
  node.add_object(0x605A, 0, {ObjectAccess::read_write, {0}});

  EXPECT_EQ(node.sdo_download(0x605A, 0, {3}), std::nullopt);
}

// Ticks

TEST_F(SimulatedNodeDrivesTest, however_time_is_cut_it_ends_the_same) {
  SimulatedNode other(5, robot_board());
  for (SimulatedNode* each : {&node, &other}) {
    each->sdo_write(5, 0x6060, 0, {1});
    each->sdo_write(5, 0x6040, 0, {0x06, 0});
    each->sdo_write(5, 0x6040, 0, {0x0F, 0});
    each->sdo_write(5, 0x607A, 0, {0x39, 0x05, 0, 0});
  }

  node.tick(milliseconds(777));
  for (int step = 0; step < 111; ++step) {
    other.tick(milliseconds(7));
  }

  EXPECT_GT(position(), 0);
  EXPECT_EQ(node.object_value(0x6064, 0), other.object_value(0x6064, 0));
  EXPECT_EQ(node.object_value(0x606C, 0), other.object_value(0x606C, 0));
}

TEST_F(SimulatedNodeDrivesTest, no_time_changes_nothing) {
  enable(3);
  write(0x60FF, 100, 4);
  node.inject_fault("right");

  node.tick(milliseconds(0));
  node.tick(milliseconds(-1));
  node.tick(milliseconds::min());

  EXPECT_EQ(velocity(), 0);
  EXPECT_EQ(power(0x6840), 0x0FU);
}

TEST_F(SimulatedNodeDrivesTest, longest_time_counts_as_an_hour) {
  enable(3);
  write(0x6083, 100'000, 4);
  write(0x60FF, 100, 4);
  node.tick(milliseconds(1));

  node.tick(milliseconds::max());

  EXPECT_EQ(position(), 360'000);
}

// Faults

TEST_F(SimulatedNodeDrivesTest, injected_fault_stops_one_drive) {
  enable(3);
  enable(3, 0x6840);
  write(0x60FF, 100, 4);
  write(0x68FF, 100, 4);
  node.tick(milliseconds(100));

  EXPECT_TRUE(node.inject_fault("left"));
  EXPECT_EQ(power(), 0x0FU);
  EXPECT_EQ(velocity(), 0);
  EXPECT_EQ(velocity(0x6840), 100);

  node.tick(milliseconds(1));
  EXPECT_EQ(power(), 0x08U);
  EXPECT_EQ(power(0x6840), 0x27U);
}

TEST_F(SimulatedNodeDrivesTest, fault_needs_a_drive_of_that_name) {
  for (const char* const device : {"pumps", "Left", "", "nobody"}) {
    EXPECT_FALSE(node.inject_fault(device)) << device;
  }
  EXPECT_EQ(power(), 0x40U);
  EXPECT_FALSE(SimulatedNode(5).inject_fault("left"));
}

TEST_F(SimulatedNodeDrivesTest, fault_without_a_code_has_the_generic_one) {
  EXPECT_TRUE(node.inject_fault("left", 0));
  EXPECT_EQ(node.object_value(0x603F, 0), (Bytes{0x00, 0x10}));
  ASSERT_EQ(node.emergencies().size(), 1U);
  EXPECT_EQ(node.emergencies().front().error_code, emergency_generic_error);
}

TEST_F(SimulatedNodeDrivesTest, error_code_tells_the_latest_fault) {
  EXPECT_EQ(value(0x603F), 0U);

  node.inject_fault("left");

  EXPECT_EQ(value(0x603F), 0x1000U);
  EXPECT_EQ(value(0x683F), 0U);
}

TEST_F(SimulatedNodeDrivesTest, fault_may_be_of_any_kind) {
  node.inject_fault("left", 0x2310);

  EXPECT_EQ(value(0x603F), 0x2310U);
  ASSERT_FALSE(node.emergencies().empty());
  EXPECT_EQ(node.emergencies().back().error_code, 0x2310);
}

TEST_F(SimulatedNodeDrivesTest, held_position_stands_while_the_drive_moves) {
  enable(3);
  node.hold_object(0x6064, 0);
  write(0x60FF, 100, 4);
  node.tick(milliseconds(2000));
  EXPECT_EQ(position(), 0);
  EXPECT_EQ(velocity(), 100);

  node.release_object(0x6064, 0);
  node.tick(milliseconds(1));

  EXPECT_GT(position(), 100);
}

TEST_F(SimulatedNodeDrivesTest, held_controlword_commands_nothing) {
  node.hold_object(0x6040, 0);

  EXPECT_TRUE(node.sdo_write(5, 0x6040, 0, {0x06, 0x00}));

  EXPECT_EQ(power(), 0x40U);
  EXPECT_EQ(value(0x6040), 0U);
}

TEST_F(SimulatedNodeDrivesTest, drives_are_told_by_name) {
  EXPECT_EQ(node.drives(), (std::vector<std::string>{"claw", "left", "right"}));
}

TEST_F(SimulatedNodeDrivesTest, fault_is_reset_by_the_edge) {
  node.inject_fault("left");
  node.tick(milliseconds(1));

  write(0x6040, 0x0F, 2);
  EXPECT_EQ(power(), 0x08U);

  write(0x6040, 0x80, 2);
  EXPECT_EQ(power(), 0x40U);
}

struct NotedFault {
  std::uint16_t error_code;
  std::uint8_t error_register;
  std::uint16_t base_index;
};

/// What the node noted, by the constants of a drive's emergencies.
std::vector<NotedFault> noted_faults(const SimulatedNode& node) {
  std::vector<NotedFault> noted;
  for (const Emergency& each : node.emergencies()) {
    EXPECT_THAT(Bytes(each.device_data.begin() + 2, each.device_data.end()),
                testing::Each(testing::Eq(0)));
    const auto base = static_cast<std::uint16_t>(each.device_data[0] | each.device_data[1] << 8);
    noted.push_back({each.error_code, each.error_register, base});
  }
  return noted;
}

void PrintTo(const NotedFault& fault, std::ostream* out) {
  *out << std::hex << fault.error_code << " register " << int{fault.error_register} << " drive "
       << fault.base_index;
}

bool operator==(const NotedFault& left, const NotedFault& right) {
  return left.error_code == right.error_code && left.error_register == right.error_register &&
         left.base_index == right.base_index;
}

TEST_F(SimulatedNodeDrivesTest, fault_is_an_emergency_until_it_is_reset) {
  node.inject_fault("right");
  EXPECT_EQ(value(0x1001), 0x01U);
  node.tick(milliseconds(1));
  write(0x6840, 0x80, 2);
  EXPECT_EQ(value(0x1001), 0x00U);

  EXPECT_THAT(noted_faults(node), testing::ElementsAre(NotedFault{0x1000, 0x01, 0x6840},
                                                       NotedFault{0x0000, 0x00, 0x6840}));
}

TEST_F(SimulatedNodeDrivesTest, fault_reset_by_frame_is_an_emergency_too) {
  node.inject_fault("left");
  node.tick(milliseconds(1));

  node.send_rpdo(5, 1, {0, 0x80, 0, 0, 0, 0, 0}, 7);

  EXPECT_EQ(noted_faults(node).back(), (NotedFault{0x0000, 0x00, 0x6040}));
}

TEST_F(SimulatedNodeDrivesTest, fault_of_a_faulty_drive_is_none) {
  node.inject_fault("left");
  node.inject_fault("left");
  node.tick(milliseconds(1));
  node.inject_fault("left");

  EXPECT_EQ(node.emergencies().size(), 1U);
}

TEST_F(SimulatedNodeDrivesTest, generic_bit_stays_for_another_faulty_drive) {
  node.inject_fault("left");
  node.inject_fault("right");
  node.tick(milliseconds(1));
  write(0x6040, 0x80, 2);
  write(0x6840, 0x80, 2);

  EXPECT_THAT(
      noted_faults(node),
      testing::ElementsAre(NotedFault{0x1000, 0x01, 0x6040}, NotedFault{0x1000, 0x01, 0x6840},
                           NotedFault{0x0000, 0x01, 0x6040}, NotedFault{0x0000, 0x00, 0x6840}));
}

TEST_F(SimulatedNodeDrivesTest, generic_bit_stays_for_other_errors) {
  node.set_object_value(0x1001, 0, {0x10});
  node.inject_fault("left");
  node.tick(milliseconds(1));
  write(0x6040, 0x80, 2);

  EXPECT_THAT(noted_faults(node), testing::ElementsAre(NotedFault{0x1000, 0x11, 0x6040},
                                                       NotedFault{0x0000, 0x11, 0x6040}));
  EXPECT_EQ(value(0x1001), 0x11U);
}

TEST_F(SimulatedNodeDrivesTest, error_register_without_bytes_keeps_no_bit_for_another_drive) {
  node.add_object(0x1001, 0, {ObjectAccess::read_only, {}});
  node.inject_fault("left");
  node.inject_fault("right");
  node.tick(milliseconds(1));
  write(0x6040, 0x80, 2);

  EXPECT_EQ(noted_faults(node).back(), (NotedFault{0x0000, 0x00, 0x6040}));
}

TEST_F(SimulatedNodeDrivesTest, fault_that_is_no_more_sets_no_cleared_bit) {
  node.inject_fault("left");
  node.inject_fault("right");
  node.clear_emergencies();
  node.tick(milliseconds(1));
  write(0x6040, 0x80, 2);

  EXPECT_THAT(noted_faults(node), testing::ElementsAre(NotedFault{0x0000, 0x00, 0x6040}));
}

// RPDOs

TEST_F(SimulatedNodeDrivesTest, frame_commands_as_a_download_does) {
  node.send_rpdo(5, 1, {3, 0x06, 0, 100, 0, 0, 0}, 7);
  node.send_rpdo(5, 1, {3, 0x0F, 0, 100, 0, 0, 0}, 7);
  node.tick(milliseconds(100));

  EXPECT_EQ(value(0x6061), 3U);
  EXPECT_EQ(power(), 0x27U);
  EXPECT_EQ(velocity(), 100);
}

TEST_F(SimulatedNodeDrivesTest, frame_of_the_wrong_length_commands_nothing) {
  node.send_rpdo(5, 1, {3, 0x06, 0, 100, 0, 0, 0}, 6);

  EXPECT_EQ(power(), 0x40U);
  EXPECT_EQ(value(0x6061), 0U);
}

TEST_F(SimulatedNodeDrivesTest, mapped_objects_command_in_mapping_order) {
  write(0x6060, 6, 1);
  write(0x6040, 0x06, 2);
  node.send_rpdo(5, 2, {0x0F, 0, 0x1F, 0}, 4);
  node.tick(milliseconds(1000));

  EXPECT_EQ(value(0x6041), 0x1637U) << "enabled by the first word, homed by the second";
}

TEST_F(SimulatedNodeDrivesTest, pump_channels_hold_their_duty) {
  node.send_rpdo(5, 4, {0x34, 0x12}, 2);
  node.sdo_write(5, 0x2200, 3, {0x78, 0x56});
  node.tick(milliseconds(1000));

  EXPECT_EQ(value(0x2200, 1), 0x1234U);
  EXPECT_EQ(value(0x2200, 3), 0x5678U);
}

// The claw

TEST_F(SimulatedNodeDrivesTest, claw_extends) {
  expect_claw(0, 0);
  enable(3, 0x7040);
  node.sdo_write(5, 0x2300, 9, {1});
  expect_claw(1, 3);

  node.tick(milliseconds(1499));
  expect_claw(1, 3);

  node.tick(milliseconds(1));
  expect_claw(2, 2);
}

TEST_F(SimulatedNodeDrivesTest, claw_extends_by_frame) {
  enable(3, 0x7040);
  node.send_rpdo(5, 3, {1}, 1);

  expect_claw(1, 3);
}

TEST_F(SimulatedNodeDrivesTest, claw_homes) {
  enable(6, 0x7040);
  write(0x7040, 0x1F, 2);
  expect_claw(1, 3);

  node.tick(milliseconds(1000));
  expect_claw(2, 1);
}

TEST_F(SimulatedNodeDrivesTest, disabled_claw_does_not_extend) {
  node.sdo_write(5, 0x2300, 9, {1});

  expect_claw(3, 0);
}

TEST_F(SimulatedNodeDrivesTest, fault_breaks_the_claws_movement_off) {
  enable(3, 0x7040);
  node.sdo_write(5, 0x2300, 9, {1});

  EXPECT_TRUE(node.inject_fault("claw"));

  expect_claw(3, 3);
}

TEST(ClawWithoutRecordTest, is_a_drive) {
  SimulatedNode node(5, {{}, {{"claw", {"claw", 0x6040, 0}}}});

  node.sdo_write(5, 0x6040, 0, {0x06, 0});
  node.tick(milliseconds(1));

  EXPECT_TRUE(node.inject_fault("claw"));
  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{0x1F, 0x02}));
}

// Objects that are not, or no longer, a drive's own

TEST_F(SimulatedNodeDrivesTest, object_of_another_size_loses_its_drive) {
  node.add_object(0x6041, 0, {ObjectAccess::read_only, {1, 2, 3}});
  node.add_object(0x60FF, 0, {ObjectAccess::read_write, {100}});
  enable(3);
  node.tick(milliseconds(100));

  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{1, 2, 3}));
  EXPECT_EQ(velocity(), 0);
}

TEST_F(SimulatedNodeDrivesTest, object_of_the_same_size_keeps_its_drive) {
  node.add_object(0x60FF, 0, {ObjectAccess::read_only, {100, 0, 0, 0}});
  enable(3);
  node.tick(milliseconds(100));

  EXPECT_EQ(velocity(), 100);
}

TEST(SharedObjectsTest, belong_to_the_first_drive_by_name) {
  // Target position of "a" and position actual value of "b" are one object, 0x607A.
  SimulatedNode node(5, {{}, {{"b", {"ci402", 0x6056, 0}}, {"a", {"ci402", 0x6040, 0}}}});
  const Bytes target = {20, 0, 0, 0};

  EXPECT_TRUE(node.sdo_write(5, 0x607A, 0, target));
  node.sdo_write(5, 0x6056, 0, {0x06, 0});
  node.tick(milliseconds(1));

  EXPECT_EQ(node.object_value(0x607A, 0), target);
  EXPECT_EQ(node.object_value(0x6057, 0), (Bytes{0x31, 0x02}));
}

TEST(SharedObjectsTest, tell_nothing_to_the_second_drive) {
  // Velocity actual value of "a" and target velocity of "b" are one object, 0x606C.
  SimulatedNode node(5, {{}, {{"b", {"ci402", 0x5FAD, 0}}, {"a", {"ci402", 0x6040, 0}}}});
  for (const auto base : std::array<std::uint16_t, 2>{0x5FAD, 0x6040}) {
    node.sdo_write(5, static_cast<std::uint16_t>(base + 0x20), 0, {3});
    node.sdo_write(5, base, 0, {0x06, 0});
    node.sdo_write(5, base, 0, {0x0F, 0});
  }

  node.sdo_write(5, 0x60FF, 0, {100, 0, 0, 0});
  node.tick(milliseconds(200));

  EXPECT_EQ(node.object_value(0x606C, 0), (Bytes{100, 0, 0, 0}));
  EXPECT_EQ(node.object_value(0x5FD9, 0), (Bytes{0, 0, 0, 0})) << "velocity of the second drive";
}

TEST(SharedObjectsTest, communication_objects_belong_to_no_drive) {
  // The mode display would be the error register.
  SimulatedNode node(5, {{}, {{"low", {"ci402", 0x0FE0, 0}}}});
  node.set_object_value(0x1001, 0, {0x20});

  node.sdo_write(5, 0x0FE0, 0, {0x06, 0});
  node.tick(milliseconds(1));

  EXPECT_EQ(node.object_value(0x1001, 0), Bytes{0x20});
  EXPECT_EQ(node.object_value(0x0FE1, 0), (Bytes{0x31, 0x02}));
}

TEST(SharedObjectsTest, pdo_parameters_belong_to_no_drive) {
  // The controlword would be the number of parameters of RPDO 1, the statusword is the drive's.
  SimulatedNode node(5, {{{1, "RPDO", 0, {}}}, {{"low", {"ci402", 0x1400, 0}}}});
  node.tick(milliseconds(1));

  EXPECT_EQ(node.object_value(0x1400, 0), Bytes{2});
  EXPECT_FALSE(node.sdo_write(5, 0x1400, 0, {6, 0}));
  EXPECT_EQ(node.object_value(0x1401, 0), (Bytes{0x50, 0x02}));
}

TEST(SharedObjectsTest, drive_does_not_show_itself_in_pdo_parameters) {
  // The mode display, of one byte, would be the number of parameters of RPDO 1.
  SimulatedNode node(5, {{{1, "RPDO", 0, {}}}, {{"low", {"ci402", 0x13DF, 0}}}});
  node.sdo_write(5, 0x13FF, 0, {3});

  EXPECT_EQ(node.object_value(0x1400, 0), Bytes{2});
}

TEST(WrappedDriveTest, comes_alive_around_the_highest_index) {
  SimulatedNode node(5, {{}, {{"drive", {"ci402", 0xFFDF, 0}}}});

  node.sdo_write(5, 0xFFFF, 0, {3});
  node.sdo_write(5, 0xFFDF, 0, {0x06, 0});

  EXPECT_EQ(node.object_value(0x0000, 0), Bytes{3});
  EXPECT_EQ(node.object_value(0xFFE0, 0), (Bytes{0x31, 0x02}));
}

}  // namespace
}  // namespace velmora_can_bridge
