// The operation that a command is asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "commands.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// An operation of a board, and the node that runs it.
struct FoundOperation {
  const NodeConfig* node = nullptr;
  const OperationConfig* operation = nullptr;
};

/// The node of the device, or that with the id that stands for one; null when there is neither.
const NodeConfig* node_of(const BoardFile& file, const std::string& device);

/// The operation of the device's node; where an operation needs no device, a node id stands for
/// one. Or what is wrong with the names. `path` is that of the board file, for the message.
Expected<FoundOperation> find_operation(const BoardFile& file, const std::string& path,
                                        const std::string& device, const std::string& operation);

/// The bytes that the words of `arguments` write for the operation, which is run on their device
/// while `motor_mode` is recorded for it. Or what is wrong with them.
Expected<std::vector<std::uint8_t>> requested_payload(const FoundOperation& found,
                                                      const OperationArguments& arguments,
                                                      std::uint8_t motor_mode = 0);

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
