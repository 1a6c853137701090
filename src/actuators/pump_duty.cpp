#include "dispatch/results.hpp"
#include "shadow/rpdo_layout.hpp"
#include "shadow/update_rpdo.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_pump_duty(const OperationConfig& op,
                                                      const std::string& device,
                                                      const std::vector<std::uint8_t>& payload) {
  if (find_device_od(device) == nullptr) {
    return failure(device_not_found(device));
  }
  if (payload.size() < 3) {
    return failure("payload too short for pump_duty");
  }
  const std::uint8_t channel = payload[0];
  const std::vector<std::uint8_t> duty{payload[1], payload[2]};
  if (op.transport == sdo_transport) {
    return set_pump_duty_by_sdo(op, channel, duty);
  }
  if (contains(op.rpdo_channels, channel)) {
    return set_pump_duty_by_rpdo(op, device, channel, duty);
  }
  if (contains(op.sdo_channels, channel)) {
    return set_pump_duty_by_sdo(op, channel, duty);
  }
  return failure("Invalid pump channel: " + std::to_string(channel));
}

OperationResult CanOpenNodeController::set_pump_duty_by_sdo(const OperationConfig& op,
                                                            std::uint8_t channel,
                                                            const std::vector<std::uint8_t>& duty) {
  if (!backend_->sdo_write(*node_id_, op.index, channel, duty)) {
    return failure("SDO write pump ch" + std::to_string(channel) + " failed");
  }
  return success("Pump duty set");
}

OperationResult CanOpenNodeController::set_pump_duty_by_rpdo(
    const OperationConfig& op, const std::string& device, std::uint8_t channel,
    const std::vector<std::uint8_t>& duty) {
  const std::uint8_t rpdo = op.pump_pdo_number;
  const PdoConfig* const pdo = find_pdo(*board_, rpdo, rpdo_direction);
  if (pdo == nullptr) {
    return failure(rpdo_not_found(rpdo));
  }
  const PdoMapping* const mapping = find_mapping_by_object(*pdo, op.index, channel);
  if (mapping == nullptr) {
    return failure("pump ch" + std::to_string(channel) + " not in RPDO mappings");
  }
  return update_rpdo(
      {rpdo, device, device},
      [&] {
        write_to_shadow(rpdo, *mapping, duty);
        return std::string();
      },
      [&] { return deliver_rpdo_shadow(rpdo, "Pump duty set"); });
}

}  // namespace velmora_can_bridge
