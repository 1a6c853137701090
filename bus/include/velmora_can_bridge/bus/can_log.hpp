/// Frames as the log files of can-utils write them.
#pragma once

#include <chrono>
#include <string>

#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

/// "(1700000000.123456) can0 601#4000100000000000", without a line end: the format of `candump -L`,
/// which canplayer replays and protocol analysers read. `time` counts from the epoch.
std::string can_log_line(std::chrono::microseconds time, const std::string& interface,
                         const CanFrame& frame);

}  // namespace velmora_can_bridge
