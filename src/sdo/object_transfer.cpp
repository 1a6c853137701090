#include <utility>

#include "dispatch/hex_u16.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::read_object(std::uint16_t index, std::uint8_t sub_index) {
  std::vector<std::uint8_t> data;
  if (!backend_->sdo_read(*node_id_, index, sub_index, data)) {
    return failure("SDO read failed at " + object_text(index, sub_index));
  }
  return success("OK", std::move(data));
}

OperationResult CanOpenNodeController::write_object(std::uint16_t index, std::uint8_t sub_index,
                                                    const std::vector<std::uint8_t>& data) {
  if (!backend_->sdo_write(*node_id_, index, sub_index, data)) {
    return failure("SDO write failed at " + object_text(index, sub_index));
  }
  return success("OK");
}

}  // namespace velmora_can_bridge
