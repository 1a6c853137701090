#include <optional>

#include "dispatch/lookups.hpp"
#include "dispatch/results.hpp"
#include "sdo/encode_payload.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_auto_write(const OperationConfig& op,
                                                       const std::string& device,
                                                       const std::vector<std::uint8_t>& payload) {
  const std::uint8_t rpdo = resolve_rpdo(op);
  const bool via_rpdo = rpdo != 0 && op.transport != sdo_transport;
  const std::optional<std::vector<std::uint8_t>> encoded = encode_payload(op.data_type, payload);
  // One text a path for every refusal, an unknown data type included: callers match on them.
  if (!encoded) {
    return failure(via_rpdo ? "payload too short for auto_write"
                            : "payload too short for auto_write (SDO)");
  }
  if (!via_rpdo) {
    return write_object(op.index, op.sub_index, *encoded);
  }
  OperationConfig derived = op;
  derived.kind = "pdo_write";
  derived.pdo_number = rpdo;
  return execute_configured_operation(derived, device, *encoded);
}

}  // namespace velmora_can_bridge
