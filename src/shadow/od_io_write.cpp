#include "dispatch/hex_u16.hpp"
#include "dispatch/payload.hpp"
#include "dispatch/results.hpp"
#include "shadow/rpdo_layout.hpp"
#include "shadow/update_rpdo.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

struct MappedObject {
  std::uint8_t rpdo;
  const PdoMapping* mapping;
};

/// The first place in any RPDO of the board, in list order, that maps the object.
MappedObject find_mapped_object(const BoardConfig& board, std::uint16_t index,
                                std::uint8_t sub_index) {
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.direction != rpdo_direction) {
      continue;
    }
    if (const PdoMapping* const mapping = find_mapping_by_object(pdo, index, sub_index)) {
      return {pdo.number, mapping};
    }
  }
  return {};
}

}  // namespace

OperationResult CanOpenNodeController::exec_od_io_write(const OperationConfig& op,
                                                        const std::string& device,
                                                        const std::vector<std::uint8_t>& payload) {
  const DeviceOdEntry* const entry = find_device_od(device);
  if (entry == nullptr) {
    return failure(device_not_found(device));
  }
  if (payload.size() < 3) {
    return failure("payload too short for od_io_write (need offset+sub+data)");
  }
  const auto index = static_cast<std::uint16_t>(entry->base_index + u16_at(payload, 0));
  const std::uint8_t sub_index = payload[2];
  const std::vector<std::uint8_t> data(payload.begin() + 3, payload.end());

  const MappedObject object = op.transport == sdo_transport
                                  ? MappedObject{}
                                  : find_mapped_object(*board_, index, sub_index);
  if (object.mapping == nullptr) {
    return write_object(index, sub_index, data);
  }
  // The refresh flag of the operation plays no part here.
  return update_rpdo(
      {object.rpdo, device, object_text(index, sub_index)},
      [&] {
        write_to_shadow(object.rpdo, *object.mapping, data);
        return std::string();
      },
      [&] { return deliver_rpdo_shadow(object.rpdo); });
}

}  // namespace velmora_can_bridge
