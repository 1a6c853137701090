#include <utility>

#include "dispatch/hex_u16.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_read_multi(
    const OperationConfig& op, const std::string& /*device*/,
    const std::vector<std::uint8_t>& /*payload*/) {
  std::vector<std::uint8_t> joined;
  for (const std::uint8_t sub_index : op.sub_indices) {
    std::vector<std::uint8_t> piece;
    if (!backend_->sdo_read(*node_id_, op.index, sub_index, piece)) {
      return failure("SDO read failed at " + object_text(op.index, sub_index));
    }
    joined.insert(joined.end(), piece.begin(), piece.end());
  }
  return success("OK", std::move(joined));
}

}  // namespace velmora_can_bridge
