#include "dispatch/payload.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_od_io_read(const OperationConfig& /*op*/,
                                                       const std::string& device,
                                                       const std::vector<std::uint8_t>& payload) {
  const DeviceOdEntry* const entry = find_device_od(device);
  if (entry == nullptr) {
    return failure(device_not_found(device));
  }
  const std::uint16_t offset = payload.size() >= 2 ? u16_at(payload, 0) : std::uint16_t{0};
  const std::uint8_t sub_index = payload.size() >= 3 ? payload[2] : std::uint8_t{0};
  const auto index = static_cast<std::uint16_t>(entry->base_index + offset);
  return read_object(index, sub_index);
}

}  // namespace velmora_can_bridge
