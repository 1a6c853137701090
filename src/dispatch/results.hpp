// The two ways in which an operation ends.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {
namespace {

inline OperationResult success(std::string message, std::vector<std::uint8_t> data = {}) {
  return {true, std::move(data), std::move(message)};
}

inline OperationResult failure(std::string message) { return {false, {}, std::move(message)}; }

}  // namespace
}  // namespace velmora_can_bridge
