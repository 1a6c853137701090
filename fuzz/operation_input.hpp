// Boards and operations out of an input.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_bus.hpp"
#include "fuzz_input.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// One call of `execute_configured_operation`, and what the bus answers.
struct OperationStep {
  std::uint8_t node_id = 1;
  /// Let the controller forget its images before.
  bool forget = false;
  OperationConfig op;
  std::string device;
  std::vector<std::uint8_t> payload;
  BusScript bus;
};

/// Names, numbers and objects come from small tables that boards and operations share, so that they
/// meet often. Everything that a board may hold is possible: numbers and names that stand twice,
/// fields of any width, PDOs longer than a frame, padding.
BoardConfig take_board(FuzzInput& input);

/// Every member of the operation is set.
OperationStep take_step(FuzzInput& input);

}  // namespace velmora_can_bridge
