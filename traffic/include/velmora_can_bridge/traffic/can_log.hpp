/// Frames as the log files of can-utils write them.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// "(1700000000.123456) can0 601#4000100000000000", without a line end: the format of `candump -L`,
/// which canplayer replays and protocol analysers read. `time` counts from the epoch.
std::string can_log_line(std::chrono::microseconds time, const std::string& interface,
                         const CanFrame& frame);

/// Whether `line` is one that `can_log_line` may have written: a time, an interface, and a data
/// frame with an 11-bit identifier.
bool is_can_log_line(std::string_view line);

}  // namespace velmora_can_bridge
