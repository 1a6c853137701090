#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_sdo_read(const OperationConfig& op,
                                                     const std::string& /*device*/,
                                                     const std::vector<std::uint8_t>& /*payload*/) {
  return read_object(op.index, op.sub_index);
}

}  // namespace velmora_can_bridge
