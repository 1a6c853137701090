#include "explain_operation.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "ground/drive_objects.hpp"
#include "ground/pdo.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

bool has_drive(const NodeConfig& node, const std::string& device) {
  const auto entry = node.board.device_od_map.find(device);
  return entry != node.board.device_od_map.end() && is_drive(entry->second);
}

/// Whether the call loads its image in any case: then it sends also when every read is refused.
bool refreshes(const ExplainedCall& call, CanOpenNodeController& before) {
  const std::vector<Transfer> none;
  ReplayedBus bus(none);
  CanOpenNodeController(before, bus)
      .execute_configured_operation(call.config, call.device, call.payload);
  return bus.has_read() && bus.frame();
}

/// The image as it stood before the change of the operation.
///
/// An operation that changes nothing sends it: a "pdo_patch" whose payload is too short for its
/// first field, or writes the whole bytes of one that has none. It runs on a copy of the images
/// from before, with what the operation has read.
Bytes image_before(const ExplainedCall& call, CanOpenNodeController& before, const PdoConfig& rpdo,
                   const std::vector<Transfer>& transfers) {
  OperationConfig unchanged;
  unchanged.kind = "pdo_patch";
  unchanged.pdo_number = rpdo.number;
  unchanged.fields = {rpdo.mappings.front().field};
  unchanged.refresh_shadow = refreshes(call, before) ? 1 : 0;
  ReplayedBus bus(transfers);
  CanOpenNodeController(before, bus).execute_configured_operation(unchanged, call.device, {});
  return bus.frame().value_or(Bytes());
}

CanFrame frame_of(std::uint16_t cob_id, const Bytes& bytes) {
  CanFrame frame{cob_id, static_cast<std::uint8_t>(bytes.size()), {}};
  std::copy(bytes.begin(), bytes.end(), frame.data.begin());
  return frame;
}

std::vector<ExplainedField> fields_of(const NodeConfig& node, const PdoConfig& rpdo,
                                      const Bytes& before, const Bytes& after) {
  const std::vector<DecodedField> old_fields = decoded_fields(node, rpdo, frame_of(0, before));
  const std::vector<DecodedField> new_fields = decoded_fields(node, rpdo, frame_of(0, after));
  std::vector<ExplainedField> fields;
  for (std::size_t index = 0; index < std::min(old_fields.size(), new_fields.size()); ++index) {
    fields.push_back({old_fields[index], new_fields[index]});
  }
  return fields;
}

}  // namespace

Explanation explain_operation(const ExplainedCall& call, CanOpenNodeController& controller,
                              HeldBackBus::Read read) {
  HeldBackBus bus(call.node, std::move(read));
  CanOpenNodeController trial(controller, bus);
  CanOpenNodeController before(trial, bus);

  Explanation explanation;
  explanation.device = call.device;
  explanation.operation = call.name;
  explanation.node_id = call.node.node_id;
  if (has_drive(call.node, call.device)) {
    explanation.mode = ExplainedMode{trial.motor_mode(call.device), 0};
  }
  explanation.result = trial.execute_configured_operation(call.config, call.device, call.payload);
  if (explanation.mode) {
    explanation.mode->after = trial.motor_mode(call.device);
  }
  for (const Transfer& transfer : bus.transfers()) {
    ExplainedTransfer step{transfer, {}, 0, {}, {}};
    const PdoConfig* const rpdo = transfer.kind == TransferKind::rpdo
                                      ? find_pdo(call.node.board, PdoDirection::rpdo, transfer.rpdo)
                                      : nullptr;
    if (transfer.kind != TransferKind::rpdo) {
      step.object = object_name(&call.node, transfer.index, transfer.sub_index);
    } else if (rpdo != nullptr && !rpdo->mappings.empty() && !transfer.error) {
      step.cob_id = cob_id_of(call.node.node_id, *rpdo);
      step.image_before = image_before(call, before, *rpdo, bus.transfers());
      step.fields = fields_of(call.node, *rpdo, step.image_before, transfer.data);
    }
    explanation.transfers.push_back(std::move(step));
  }
  if (!explanation.result.ok && !bus.transfers().empty()) {
    explanation.error = bus.stop() ? bus.stop() : bus.transfers().back().error;
  }
  explanation.frames = bus.frames();
  return explanation;
}

}  // namespace velmora_can_bridge
