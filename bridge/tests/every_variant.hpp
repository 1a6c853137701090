// Every kind of operation in every variant, on a board that has what they need.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/every_operation.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// An operation, and arguments that suit it.
struct OperationVariant {
  std::string name;
  OperationConfig op;
  std::string device;
  std::vector<std::uint8_t> payload;
};

/// From the controlword to the profile acceleration.
inline constexpr std::uint16_t acceleration_offset = 0x43;

/// The rows of `every_operation`: as they are, with a refresh, by SDO, and on an object that a
/// simulated node has; and the bit operations with their bits in the payload.
inline std::vector<OperationVariant> every_variant() {
  std::vector<OperationVariant> variants;
  for (const EveryOperation& row : every_operation()) {
    const std::string name = row.name;
    const std::string device = std::string(row.device).empty() ? "io" : row.device;
    OperationConfig op = row.op;
    variants.push_back({name, op, device, row.payload});
    op.refresh_shadow = 1;
    variants.push_back({name + ", refreshed", op, device, row.payload});
    op.transport = "sdo";
    variants.push_back({name + ", by sdo", op, device, row.payload});
    op.index = op.index == 0x3000 ? 0x2200 : op.index;
    op.index_offset = acceleration_offset;
    variants.push_back({name + ", of an object", op, device,
                        op.kind == "ci402_ramp" ? row.payload : std::vector<std::uint8_t>{1}});
    if (op.named != 0) {
      op = row.op;
      op.named = 0;
      variants.push_back({name + ", unnamed", op, device, {1, 3, 1}});
    }
  }
  return variants;
}

/// Node 0x10 has them all, by their names.
inline BoardFile every_variant_file() {
  BoardFile file;
  file.nodes.push_back({0x10, every_operation_board(), {}});
  for (const OperationVariant& variant : every_variant()) {
    file.nodes.front().operations[variant.name] = variant.op;
  }
  return file;
}

}  // namespace velmora_can_bridge
