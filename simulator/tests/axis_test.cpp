#include "axis.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "support/chosen_seed.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;

constexpr std::int64_t scale = 2'000'000;
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t steepest = std::numeric_limits<std::uint32_t>::max();

struct VelocityCase {
  std::string name;
  std::int64_t from;  // in 1/1000 increment per second, as what is expected
  std::int32_t target;
  Ramps ramps;
  std::vector<std::int64_t> expected;
};

void PrintTo(const VelocityCase& row, std::ostream* out) { *out << row.name; }

class VelocityRampTest : public testing::TestWithParam<VelocityCase> {};

TEST_P(VelocityRampTest, is_exact_at_each_millisecond) {
  const VelocityCase& row = GetParam();
  Axis axis{0, row.from};
  std::vector<std::int64_t> velocities;

  for (std::size_t step = 0; step < row.expected.size(); ++step) {
    axis = step_to_velocity(axis, row.target, row.ramps);
    velocities.push_back(axis.velocity);
  }

  EXPECT_EQ(velocities, row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, VelocityRampTest,
    testing::Values(
        VelocityCase{"stands", 0, 0, {5, 5}, {0, 0}},
        VelocityCase{"speeds_up", 0, 1, {400, 9}, {400, 800, 1000, 1000}},
        VelocityCase{"speeds_up_backwards", 0, -1, {400, 9}, {-400, -800, -1000, -1000}},
        VelocityCase{"slows_down", 1000, 0, {9, 400}, {600, 200, 0, 0}},
        VelocityCase{"slows_down_backwards", -1000, 0, {9, 400}, {-600, -200, 0, 0}},
        VelocityCase{"slows_down_to_a_lower_speed", 5000, 4, {9, 700}, {4300, 4000, 4000}},
        VelocityCase{"slows_down_backwards_to_a_lower_speed", -5000, -4, {9, 700}, {-4300, -4000}},
        VelocityCase{"turns_round_at_zero", 500, -1, {300, 400}, {100, 0, -300, -600, -900, -1000}},
        VelocityCase{"turns_round_forwards", -500, 1, {300, 400}, {-100, 0, 300, 600, 900, 1000}},
        VelocityCase{"holds_its_velocity", 3000, 3, {1, 1}, {3000, 3000}},
        VelocityCase{"slowest_ramp", 0, 1, {1, 1}, {1, 2, 3}},
        VelocityCase{"steepest_ramp_to_the_highest_target",
                     0,
                     highest,
                     {steepest, 1},
                     {4294967295, 8589934590}},
        VelocityCase{"lowest_target_backwards",
                     -2147483647999,
                     lowest,
                     {steepest, 1},
                     {-2147483648000, -2147483648000}}),
    [](const testing::TestParamInfo<VelocityCase>& row) { return row.param.name; });

TEST(AxisTest, position_is_the_mean_velocity_times_the_time) {
  Axis axis;
  std::vector<std::int64_t> positions;
  for (int step = 0; step < 4; ++step) {
    axis = step_to_velocity(axis, 2, {1000, 1});
    positions.push_back(axis.position);
  }

  // Mean velocities 0.5, 1.5, 2, 2 increments/s, each for 1 ms.
  EXPECT_THAT(positions, ElementsAre(1000, 4000, 8000, 12000));
}

TEST(AxisTest, position_stays_within_32_bits) {
  Axis up{highest * scale - 1, 2147483647000};
  Axis down{lowest * scale + 1, -2147483648000};

  for (int step = 0; step < 3; ++step) {
    up = step_to_velocity(up, highest, {steepest, steepest});
    down = step_to_velocity(down, lowest, {steepest, steepest});
  }

  EXPECT_EQ(position_of(up), highest);
  EXPECT_EQ(position_of(down), lowest);
}

TEST(AxisTest, shown_numbers_are_rounded_towards_zero) {
  EXPECT_EQ(position_of({scale - 1, 0}), 0);
  EXPECT_EQ(position_of({1 - scale, 0}), 0);
  EXPECT_EQ(position_of({-scale, 0}), -1);
  EXPECT_EQ(velocity_of({0, 1999}), 1);
  EXPECT_EQ(velocity_of({0, -1999}), -1);
}

TEST(AxisTest, velocity_beyond_32_bits_shows_the_nearest_end) {
  EXPECT_EQ(velocity_of({0, 4294967295000}), highest);
  EXPECT_EQ(velocity_of({0, -4294967295000}), lowest);
}

TEST(AxisTest, rests_only_where_it_stands_exactly) {
  EXPECT_TRUE(rests_at({3 * scale, 0}, 3));
  EXPECT_FALSE(rests_at({3 * scale + 1, 0}, 3));
  EXPECT_FALSE(rests_at({3 * scale, 1}, 3));
  EXPECT_TRUE(runs_at({0, -3000}, -3));
  EXPECT_FALSE(runs_at({0, -3001}, -3));
}

/// The axis after some milliseconds on its way to a position.
Axis after(int milliseconds, Axis axis, std::int32_t target, const MotionLimits& limits) {
  for (int step = 0; step < milliseconds; ++step) {
    axis = step_to_position(axis, target, limits);
  }
  return axis;
}

struct PositionCase {
  std::string name;
  int milliseconds;
  std::int64_t position;  // in increments x 1000
  std::int64_t velocity;  // in increments per second
};

void PrintTo(const PositionCase& row, std::ostream* out) { *out << row.name; }

// 20 increments at 100 per second, with 1000 per second squared up and 500 down: 100 ms and
// 5 increments to speed up, 50 ms and 5 increments at full speed, 200 ms and 10 to slow down.
class PositionProfileTest : public testing::TestWithParam<PositionCase> {
 protected:
  const MotionLimits limits{100, {1000, 500}};
};

TEST_P(PositionProfileTest, is_exact) {
  const Axis axis = after(GetParam().milliseconds, {}, 20, limits);

  EXPECT_EQ(axis.position, GetParam().position * (scale / 1000));
  EXPECT_EQ(axis.velocity, GetParam().velocity * 1000);
}

TEST_P(PositionProfileTest, is_the_same_backwards) {
  const Axis axis = after(GetParam().milliseconds, {}, -20, limits);

  EXPECT_EQ(axis.position, -GetParam().position * (scale / 1000));
  EXPECT_EQ(axis.velocity, -GetParam().velocity * 1000);
}

INSTANTIATE_TEST_SUITE_P(all, PositionProfileTest,
                         testing::Values(PositionCase{"start", 0, 0, 0},
                                         PositionCase{"speeding_up", 50, 1250, 50},
                                         PositionCase{"full_speed", 100, 5000, 100},
                                         PositionCase{"cruising", 120, 7000, 100},
                                         PositionCase{"begins_to_slow_down", 150, 10000, 100},
                                         PositionCase{"slowing_down", 250, 17500, 50},
                                         PositionCase{"before_the_end", 348, 19999, 1},
                                         PositionCase{"at_the_target", 350, 20000, 0},
                                         PositionCase{"stays_there", 999, 20000, 0}),
                         [](const testing::TestParamInfo<PositionCase>& row) {
                           return row.param.name;
                         });

TEST(PositionTest, target_behind_a_moving_axis_is_reached_after_the_turn) {
  const MotionLimits limits{100, {1000, 1000}};
  const Axis moving{0, 100'000};

  EXPECT_EQ(after(50, moving, -1, limits).velocity, 50'000);
  EXPECT_EQ(after(100, moving, -1, limits).position, 5 * scale);
  EXPECT_TRUE(rests_at(after(2000, moving, -1, limits), -1));
}

TEST(PositionTest, target_too_near_to_stop_is_overshot) {
  const MotionLimits limits{100, {1000, 1000}};
  const Axis moving{0, 100'000};

  EXPECT_EQ(after(100, moving, 4, limits).position, 5 * scale);
  EXPECT_TRUE(rests_at(after(2000, moving, 4, limits), 4));
}

TEST(PositionTest, target_passed_at_speed_is_overshot) {
  const MotionLimits limits{100, {1000, 1000}};

  EXPECT_EQ(after(1, {4 * scale, 100'000}, 4, limits).velocity, 99'000);
}

TEST(PositionTest, lower_limit_is_reached_by_the_deceleration) {
  const MotionLimits limits{10, {1000, 1000}};

  EXPECT_EQ(after(1, {0, 100'000}, 1000, limits).velocity, 99'000);
  EXPECT_EQ(after(90, {0, 100'000}, 1000, limits).velocity, 10'000);
  EXPECT_EQ(after(91, {0, 100'000}, 1000, limits).velocity, 10'000);
}

TEST(PositionTest, way_below_the_slowest_motion_ends_at_once) {
  const MotionLimits limits{100, {1000, 1000}};

  EXPECT_TRUE(rests_at(step_to_position({scale - 1, 0}, 1, limits), 1));
  EXPECT_TRUE(rests_at(step_to_position({scale + 1, 0}, 1, limits), 1));
}

TEST(PositionTest, steepest_limits_cross_the_whole_range) {
  const MotionLimits limits{steepest, {steepest, steepest}};

  EXPECT_TRUE(rests_at(after(10'000, {lowest * scale, 0}, highest, limits), highest));
  EXPECT_TRUE(rests_at(after(10'000, {highest * scale, 0}, lowest, limits), lowest));
}

TEST(PositionTest, slowest_deceleration_from_the_highest_speed_takes_its_one_step) {
  const MotionLimits limits{steepest, {1, 1}};

  EXPECT_EQ(step_to_position({0, 4294967295000}, 1, limits).velocity, 4294967294999);
}

/// Random limits and targets from rest: bounds are kept, the target is neither missed nor passed.
TEST(PositionTest, random_motions_keep_their_limits_and_end_at_the_target) {
  const std::uint32_t seed = chosen_seed();
  SCOPED_TRACE(
      "repeat with: simulator_tests --gtest_filter=PositionTest.random* "
      "--gtest_random_seed=" +
      std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&](std::uint32_t low, std::uint32_t high) {
    return std::uniform_int_distribution<std::uint32_t>(low, high)(random);
  };
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    const MotionLimits limits{pick(1, 500), {pick(1, 4000), pick(1, 4000)}};
    const auto target = static_cast<std::int32_t>(pick(1, 300));
    Axis axis;
    for (int step = 0; step < 1'000'000 && !rests_at(axis, target); ++step) {
      const Axis next = step_to_position(axis, target, limits);
      ASSERT_LE(next.position, target * scale);
      ASSERT_GE(next.velocity, 0);
      ASSERT_LE(next.velocity, limits.velocity * 1000LL);
      ASSERT_LE(next.velocity - axis.velocity, limits.ramps.acceleration);
      ASSERT_LE(axis.velocity - next.velocity, limits.ramps.deceleration);
      axis = next;
    }
    ASSERT_TRUE(rests_at(axis, target));
  }
}

}  // namespace
}  // namespace velmora_can_bridge
