// How a simulated axis moves: one millisecond at a time, in whole numbers, so that any two ways of
// cutting a time into ticks end at the same place.
#pragma once

#include <cstdint>

namespace velmora_can_bridge {

/// Where an axis is and how fast it goes, in units in which a millisecond of a ramp is exact.
struct Axis {
  /// In 1/2,000,000 increment; stays within what a 32-bit number of increments can say.
  std::int64_t position = 0;
  /// In 1/1000 increment per second.
  std::int64_t velocity = 0;
};

/// How fast the velocity may change, in increments per second squared.
struct Ramps {
  std::uint32_t acceleration = 1;
  /// Towards zero. Above 0, else a motion to a position finds no end.
  std::uint32_t deceleration = 1;
};

/// What bounds a motion to a position.
struct MotionLimits {
  /// In increments per second, above 0.
  std::uint32_t velocity = 1;
  Ramps ramps;
};

/// The axis that stands still at `position` increments.
Axis axis_at(std::int32_t position);

/// The axis one millisecond later, on its way to the velocity `target` in increments per second.
///
/// A change of direction halts at zero at the end of a millisecond before it accelerates.
Axis step_to_velocity(const Axis& axis, std::int32_t target, const Ramps& ramps);

/// The axis one millisecond later, on its way to a halt at `target` increments.
///
/// Goes as fast as the limits allow and still stops at the target exactly. An axis that cannot
/// stop in time decelerates, overshoots and comes back.
Axis step_to_position(const Axis& axis, std::int32_t target, const MotionLimits& limits);

/// Whether the axis stands still at exactly `position` increments.
bool rests_at(const Axis& axis, std::int32_t position);

/// Whether the axis has exactly that velocity, in increments per second.
bool runs_at(const Axis& axis, std::int32_t velocity);

/// The position in increments, rounded towards zero.
std::int32_t position_of(const Axis& axis);

/// The velocity in increments per second, rounded towards zero; the nearest end of the 32-bit range
/// when it lies beyond.
std::int32_t velocity_of(const Axis& axis);

}  // namespace velmora_can_bridge
