#include <variant>

#include "bit_patch/single_byte_field.hpp"
#include "dispatch/hex_u16.hpp"
#include "dispatch/results.hpp"
#include "shadow/update_rpdo.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

/// Which bit of which field, and its new value.
struct BitChange {
  std::size_t field_number;  ///< counted from 1
  std::uint8_t bit;
  std::uint8_t value;
};

/// Reads the payload by the operation's form; answers the change, or the message of a refusal.
std::variant<BitChange, const char*> parse_change(const OperationConfig& op,
                                                  const std::vector<std::uint8_t>& payload) {
  if (op.named != 0) {
    if (payload.size() != 1) {
      return "payload for named pdo_bit_patch must be [value]";
    }
    return BitChange{1, op.bit_index, payload[0]};
  }
  if (payload.size() < 3) {
    return "payload too short for pdo_bit_patch (need 3 bytes)";
  }
  if (payload[0] == 0 || payload[0] > op.fields.size()) {
    return "Invalid field_index for pdo_bit_patch";
  }
  return BitChange{payload[0], payload[1], payload[2]};
}

}  // namespace

OperationResult CanOpenNodeController::exec_pdo_bit_patch(
    const OperationConfig& op, const std::string& device,
    const std::vector<std::uint8_t>& payload) {
  if (op.fields.empty()) {
    return failure("pdo_bit_patch requires fields");
  }
  const auto parsed = parse_change(op, payload);
  if (const auto* const refusal = std::get_if<const char*>(&parsed)) {
    return failure(*refusal);
  }
  const auto [field_number, bit, value] = std::get<BitChange>(parsed);
  if (bit > 7 || value > 1) {
    return failure("Invalid bit_index or bit_value");
  }
  const std::uint8_t rpdo = resolve_rpdo(op);
  const PdoConfig* const pdo = find_pdo(*board_, rpdo, rpdo_direction);
  if (pdo == nullptr) {
    return failure(rpdo_not_found(rpdo));
  }
  const std::optional<SingleByteField> field =
      find_single_byte_field(*board_, *pdo, op.fields[field_number - 1]);
  if (!field) {
    return failure("pdo_bit_patch requires a single-byte RPDO field");
  }
  const auto mask = static_cast<std::uint8_t>(1U << bit);
  const std::uint8_t bits = value != 0 ? mask : std::uint8_t{0};

  const auto change_bit = [&] {
    std::uint8_t& byte = rpdo_shadow_[rpdo][field->offset];
    byte = merge_bits(byte, mask, bits);
    write_to_shadow(rpdo, *field->mapping, {byte});
    return std::string();
  };
  const auto deliver = [&] {
    if (op.transport != sdo_transport) {
      return deliver_rpdo_shadow(rpdo);
    }
    const PdoMapping& mapping = *field->mapping;
    if (!backend_->sdo_write(*node_id_, mapping.index, mapping.sub_index,
                             {rpdo_shadow_[rpdo][field->offset]})) {
      return failure("SDO write " + object_text(mapping.index, mapping.sub_index) + " failed");
    }
    return success("OK (SDO)");
  };
  return update_rpdo({rpdo, device, device, op.refresh_shadow != 0}, change_bit, deliver);
}

}  // namespace velmora_can_bridge
