#include "axis.hpp"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace velmora_can_bridge {
namespace {

constexpr std::int64_t position_scale = 2'000'000;
constexpr std::int64_t velocity_scale = 1'000;
constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();

/// The velocity a millisecond later. A ramp of 1 increment/s^2 is 1/1000 increment/s per ms, so
/// ramps count in the unit of the velocity.
std::int64_t ramped(std::int64_t from, std::int64_t to, const Ramps& ramps) {
  const std::int64_t sign = to < from ? -1 : 1;
  const std::int64_t rising_from = sign * from;
  const std::int64_t rising_to = sign * to;
  if (rising_from < 0) {
    const std::int64_t slowest = std::min<std::int64_t>(rising_to, 0);
    return sign * std::min(rising_from + ramps.deceleration, slowest);
  }
  return sign * std::min(rising_from + ramps.acceleration, rising_to);
}

/// The axis a millisecond later, its velocity having changed evenly to `velocity`.
Axis moved(const Axis& axis, std::int64_t velocity) {
  // The mean of both velocities, in 1/1000 increment/s, over 1 ms: their sum, in 1/2,000,000.
  const std::int64_t position = axis.position + axis.velocity + velocity;
  return {std::clamp(position, lowest * position_scale, highest * position_scale), velocity};
}

/// How far an axis of that speed still goes when it decelerates; the highest number when that is
/// beyond all positions.
std::int64_t stopping_distance(std::int64_t speed, std::int64_t deceleration) {
  constexpr std::int64_t beyond = std::numeric_limits<std::int64_t>::max();
  const std::int64_t whole_steps = speed / deceleration;
  if (speed > 0 && whole_steps > beyond / (2 * speed)) {
    return beyond;
  }
  // The whole steps of deceleration, each with the sum of its two speeds, then the rest to zero.
  return 2 * speed * whole_steps - whole_steps * whole_steps * deceleration + speed % deceleration;
}

/// The highest speed after this millisecond from which the axis still stops within `distance`; the
/// lowest that the deceleration reaches when none does.
std::int64_t best_speed(std::int64_t speed, std::int64_t distance, const MotionLimits& limits) {
  const std::int64_t deceleration = limits.ramps.deceleration;
  const auto stops_in_time = [&](std::int64_t next) {
    return stopping_distance(next, deceleration) <= distance - speed - next;
  };
  std::int64_t low = std::max<std::int64_t>(speed - deceleration, 0);
  std::int64_t high = std::min(speed + std::int64_t{limits.ramps.acceleration},
                               std::max(limits.velocity * velocity_scale, low));
  if (stops_in_time(high)) {
    return high;
  }
  while (low < high) {
    const std::int64_t middle = low + (high - low + 1) / 2;
    if (stops_in_time(middle)) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

}  // namespace

Axis step_to_velocity(const Axis& axis, std::int32_t target, const Ramps& ramps) {
  return moved(axis, ramped(axis.velocity, target * velocity_scale, ramps));
}

Axis step_to_position(const Axis& axis, std::int32_t target, const MotionLimits& limits) {
  const std::int64_t goal = target * position_scale;
  const std::int64_t way = goal - axis.position;
  const std::int64_t sign = way < 0 ? -1 : 1;
  const std::int64_t speed = sign * axis.velocity;
  const bool goes_away = speed < 0 || way == 0;
  if (goes_away) {
    return step_to_velocity(axis, 0, limits.ramps);
  }
  const std::int64_t next = best_speed(speed, std::abs(way), limits);
  if (speed == 0 && next == 0) {
    return {goal, 0};  // the way that is left is shorter than the slowest motion
  }
  return moved(axis, sign * next);
}

Axis axis_at(std::int32_t position) { return {position * position_scale, 0}; }

bool rests_at(const Axis& axis, std::int32_t position) {
  return axis.velocity == 0 && axis.position == position * position_scale;
}

bool runs_at(const Axis& axis, std::int32_t velocity) {
  return axis.velocity == velocity * velocity_scale;
}

std::int32_t position_of(const Axis& axis) {
  return static_cast<std::int32_t>(axis.position / position_scale);
}

std::int32_t velocity_of(const Axis& axis) {
  return static_cast<std::int32_t>(std::clamp(axis.velocity / velocity_scale, lowest, highest));
}

}  // namespace velmora_can_bridge
