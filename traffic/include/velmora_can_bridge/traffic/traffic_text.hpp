// Decoded frames for people and for programs.
#pragma once

#include <chrono>
#include <string>

#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/traffic/traffic_decoder.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// "   1.250  node 0x10   SDO        read left_wheel 0x6041/0", on one line: seconds since the
/// start, node, kind, content, and in parentheses at the end what is odd about the frame.
std::string traffic_text(std::chrono::nanoseconds time, const DecodedFrame& decoded);

/// The same as a JSON object on one line. docs/command-line.md tells its members.
std::string traffic_json(std::chrono::nanoseconds time, const DecodedFrame& decoded);

}  // namespace velmora_can_bridge
