#include "dispatch/hex_u16.hpp"
#include "dispatch/payload.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_ci402_ramp(const OperationConfig& op,
                                                       const std::string& device,
                                                       const std::vector<std::uint8_t>& payload) {
  const DeviceOdEntry* const drive = find_device_od(device);
  if (drive == nullptr) {
    return failure(device_not_found(device));
  }
  if (payload.size() < 4) {
    return failure("payload too short for ci402_ramp (need 4 bytes)");
  }
  const std::uint32_t value = u32_at(payload, 0);
  const auto index = static_cast<std::uint16_t>(drive->base_index + op.index_offset);
  // Not mirrored into the RPDO images, unlike the mode.
  if (!backend_->sdo_write(*node_id_, index, 0, little_endian_bytes(value, 4))) {
    return failure("SDO write " + hex_u16(index) + " failed");
  }
  return success("Ramp set to " + std::to_string(value));
}

}  // namespace velmora_can_bridge
