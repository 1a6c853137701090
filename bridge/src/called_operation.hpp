// An operation of a board, as it is called.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// Device, operation and payload of a call, by references.
struct CalledOperation {
  const NodeConfig& node;
  const std::string& device;
  const std::string& name;
  const OperationConfig& config;
  const std::vector<std::uint8_t>& payload;
};

}  // namespace velmora_can_bridge
