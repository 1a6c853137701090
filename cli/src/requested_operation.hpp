// The operation that a command is asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "commands.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// What the arguments stand for. Their device and operation are in the file.
struct RequestedOperation {
  BoardFile file;
  std::vector<std::uint8_t> payload;
};

/// No value when the file cannot be loaded, or does not hold what the arguments name, or the
/// payload is none; that is printed then.
std::optional<RequestedOperation> read_operation(const CommandLineHost& host,
                                                 const OperationArguments& arguments);

}  // namespace velmora_can_bridge
