#include <cstddef>

#include "dispatch/hex_u16.hpp"
#include "dispatch/results.hpp"
#include "shadow/rpdo_layout.hpp"
#include "shadow/update_rpdo.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

/// What the steps of one write share.
struct FieldWrite {
  const BoardConfig& board;
  const OperationConfig& op;
  const std::string& device;
  const std::vector<std::uint8_t>& payload;
  std::uint8_t rpdo;
};

const PdoMapping* find_single_mapping(const FieldWrite& write) {
  if (write.op.field.empty()) {
    return find_mapping_by_object(write.board, write.rpdo, write.op.index, write.op.sub_index);
  }
  const PdoConfig* const pdo = find_pdo(write.board, write.rpdo, rpdo_direction);
  return pdo == nullptr ? nullptr : find_mapping_by_field(*pdo, write.op.field);
}

/// The whole payload is the value of one field.
template <typename Store>
std::string write_single_field(const FieldWrite& write, const Store& store) {
  const PdoMapping* const mapping = find_single_mapping(write);
  if (mapping == nullptr) {
    return "RPDO mapping not found for " + write.device;
  }
  if (!store(*mapping, write.payload)) {
    // Names no sub-index, unlike the message for several fields: callers match on both.
    return "SDO write " + hex_u16(mapping->index) + " failed";
  }
  return {};
}

/// The payload holds the fields' values back to back.
template <typename Store>
std::string write_several_fields(const FieldWrite& write, const Store& store) {
  const PdoConfig* const pdo = find_pdo(write.board, write.rpdo, rpdo_direction);
  if (pdo == nullptr) {
    return rpdo_not_found(write.rpdo);
  }
  const bool patch = write.op.kind == "pdo_patch";
  auto rest = write.payload.begin();
  for (const std::string& name : write.op.fields) {
    const PdoMapping* const mapping = find_mapping_by_field(*pdo, name);
    if (mapping == nullptr) {
      return "RPDO field not found: " + name;
    }
    const auto length = static_cast<std::ptrdiff_t>(byte_length(*mapping));
    if (length > write.payload.end() - rest) {
      return patch ? std::string() : "payload too short for field " + name;
    }
    if (!store(*mapping, std::vector<std::uint8_t>(rest, rest + length))) {
      return "SDO write " + object_text(mapping->index, mapping->sub_index) + " failed";
    }
    rest += length;
  }
  return {};
}

/// Cuts the payload into fields and hands each to `store`, in order. Returns the message of the
/// first failure, or an empty text. `store` answers whether the field was written.
template <typename Store>
std::string write_fields(const FieldWrite& write, const Store& store) {
  return write.op.fields.empty() ? write_single_field(write, store)
                                 : write_several_fields(write, store);
}

}  // namespace

OperationResult CanOpenNodeController::exec_pdo_write_patch(
    const OperationConfig& op, const std::string& device,
    const std::vector<std::uint8_t>& payload) {
  const std::uint8_t rpdo = resolve_rpdo(op);
  if (rpdo == 0) {
    return failure("No RPDO mapping found for " + device);
  }
  const FieldWrite write{*board_, op, device, payload, rpdo};
  if (op.transport == sdo_transport) {
    std::string refusal =
        write_fields(write, [&](const PdoMapping& mapping, const std::vector<std::uint8_t>& bytes) {
          return backend_->sdo_write(*node_id_, mapping.index, mapping.sub_index, bytes);
        });
    return refusal.empty() ? success("OK (SDO)") : failure(std::move(refusal));
  }
  return update_rpdo(
      {rpdo, device, device, op.refresh_shadow != 0},
      [&] {
        return write_fields(write,
                            [&](const PdoMapping& mapping, const std::vector<std::uint8_t>& bytes) {
                              write_to_shadow(rpdo, mapping, bytes);
                              return true;
                            });
      },
      [&] { return deliver_rpdo_shadow(rpdo); });
}

}  // namespace velmora_can_bridge
