// The two ways in which an operation ends, and the messages that several operations share.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {
namespace {

/// Builds the message in its place: every cycle of a control loop ends here.
template <typename Text>
OperationResult success(Text&& message, std::vector<std::uint8_t> data = {}) {
  return {true, std::move(data), std::string(std::forward<Text>(message))};
}

inline OperationResult failure(std::string message) { return {false, {}, std::move(message)}; }

inline std::string device_not_found(const std::string& device) {
  return "Device not found: " + device;
}

inline std::string rpdo_not_found(std::uint8_t rpdo) {
  return "RPDO " + std::to_string(rpdo) + " not found";
}

}  // namespace
}  // namespace velmora_can_bridge
