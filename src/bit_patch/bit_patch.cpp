#include "bit_patch/single_byte_field.hpp"
#include "dispatch/hex_u16.hpp"
#include "dispatch/results.hpp"
#include "shadow/update_rpdo.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

constexpr const char* not_single_byte = "bit_patch requires a single-byte RPDO field";

}  // namespace

OperationResult CanOpenNodeController::exec_bit_patch(const OperationConfig& op,
                                                      const std::string& device,
                                                      const std::vector<std::uint8_t>& payload) {
  if (payload.size() < 2) {
    return failure("payload too short for bit_patch (mask+values)");
  }
  const std::uint8_t rpdo = resolve_rpdo(op);
  const PdoConfig* const pdo = find_pdo(*board_, rpdo, rpdo_direction);
  if (pdo == nullptr) {
    return failure(rpdo_not_found(rpdo));
  }
  const std::string& name = op.fields.empty() ? op.field : op.fields.front();
  const std::uint8_t mask = payload[0];
  const std::uint8_t value = payload[1];
  if (op.transport == sdo_transport) {
    // An object has its byte wherever the field stands in the frame, or behind it.
    const PdoMapping* const mapping = find_single_byte_mapping(*pdo, name);
    return mapping != nullptr ? patch_object(*mapping, mask, value) : failure(not_single_byte);
  }
  const std::optional<SingleByteField> field = find_single_byte_field(*board_, *pdo, name);
  if (!field) {
    return failure(not_single_byte);
  }
  return update_rpdo(
      {rpdo, device, device},
      [&] {
        const std::uint8_t current = rpdo_shadow_[rpdo][field->offset];
        write_to_shadow(rpdo, *field->mapping, {merge_bits(current, mask, value)});
        return std::string();
      },
      [&] { return deliver_rpdo_shadow(rpdo); });
}

OperationResult CanOpenNodeController::patch_object(const PdoMapping& mapping, std::uint8_t mask,
                                                    std::uint8_t value) {
  const std::string object = object_text(mapping.index, mapping.sub_index);
  std::vector<std::uint8_t> bytes;
  if (!backend_->sdo_read(*node_id_, mapping.index, mapping.sub_index, bytes)) {
    return failure("SDO read " + object + " failed");
  }
  const std::uint8_t current = bytes.empty() ? std::uint8_t{0} : bytes.front();
  if (!backend_->sdo_write(*node_id_, mapping.index, mapping.sub_index,
                           {merge_bits(current, mask, value)})) {
    return failure("SDO write " + object + " failed");
  }
  return success("OK (SDO)");
}

}  // namespace velmora_can_bridge
