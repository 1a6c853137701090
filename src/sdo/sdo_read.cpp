#include <utility>

#include "dispatch/hex_u16.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_sdo_read(const OperationConfig& op,
                                                     const std::string& /*device*/,
                                                     const std::vector<std::uint8_t>& /*payload*/) {
  std::vector<std::uint8_t> data;
  if (!backend_->sdo_read(*node_id_, op.index, op.sub_index, data)) {
    return failure("SDO read failed at " + object_text(op.index, op.sub_index));
  }
  return success("OK", std::move(data));
}

}  // namespace velmora_can_bridge
