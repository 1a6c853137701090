#include "explain_operation.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "ground/drive_objects.hpp"
#include "ground/pdo.hpp"
#include "own_refusal.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

bool has_drive(const NodeConfig& node, const std::string& device) {
  const auto entry = node.board.device_od_map.find(device);
  return entry != node.board.device_od_map.end() && is_drive(entry->second);
}

/// Whether the call loads its image in any case: then it sends also when every read is refused.
bool refreshes(const CalledOperation& call, CanOpenNodeController& before) {
  const std::vector<Transfer> none;
  ReplayedBus bus(none);
  CanOpenNodeController(before, bus)
      .execute_configured_operation(call.config, call.device, call.payload);
  return bus.has_read() && bus.frame();
}

/// The RPDO entries of that number that map anything: a frame has the fields of all of them.
std::vector<const PdoConfig*> entries_of(const BoardConfig& board, std::uint8_t rpdo) {
  std::vector<const PdoConfig*> entries;
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.number == rpdo && is_rpdo(pdo) && !pdo.mappings.empty()) {
      entries.push_back(&pdo);
    }
  }
  return entries;
}

/// The image as it stood before the change of the operation.
///
/// An operation that changes nothing sends it: a "pdo_write" of no bytes to one object. It runs on
/// a copy of the images from before, with what the operation has read.
Bytes image_before(const CalledOperation& call, CanOpenNodeController& before,
                   const PdoConfig& entry, const std::vector<Transfer>& transfers) {
  OperationConfig unchanged;
  unchanged.kind = "pdo_write";
  unchanged.pdo_number = entry.number;
  unchanged.index = entry.mappings.front().index;
  unchanged.sub_index = entry.mappings.front().sub_index;
  unchanged.refresh_shadow = refreshes(call, before) ? 1 : 0;
  ReplayedBus bus(transfers);
  CanOpenNodeController(before, bus).execute_configured_operation(unchanged, call.device, {});
  return bus.frame().value_or(Bytes());
}

CanFrame frame_of(const Bytes& bytes) {
  CanFrame frame{0, static_cast<std::uint8_t>(bytes.size()), {}};
  std::copy(bytes.begin(), bytes.end(), frame.data.begin());
  return frame;
}

void add_fields(const NodeConfig& node, const PdoConfig& entry, ExplainedTransfer& step) {
  const auto before = decoded_fields(node, entry, frame_of(step.image_before));
  const auto after = decoded_fields(node, entry, frame_of(step.transfer.data));
  for (std::size_t index = 0; index < std::min(before.size(), after.size()); ++index) {
    step.fields.push_back({before[index], after[index]});
  }
}

void explain_frame(const CalledOperation& call, CanOpenNodeController& before,
                   const std::vector<Transfer>& transfers, ExplainedTransfer& step) {
  const BoardConfig& board = call.node.board;
  const PdoConfig* const rpdo = find_pdo(board, PdoDirection::rpdo, step.transfer.rpdo);
  if (rpdo == nullptr || step.transfer.error) {
    return;
  }
  step.cob_id = cob_id_of(call.node.node_id, *rpdo);
  const std::vector<const PdoConfig*> entries = entries_of(board, step.transfer.rpdo);
  if (entries.empty()) {
    return;  // a frame of no bytes
  }
  step.image_before = image_before(call, before, *entries.front(), transfers);
  for (const PdoConfig* const entry : entries) {
    add_fields(call.node, *entry, step);
  }
}

/// Copies of a controller and of what is known of its images, as both were at one time. Where
/// others change them all the while the last copies count, so that an explanation comes to an end.
class Trial {
 public:
  Trial(CanOpenNodeController& controller, const KnownFields& known, CanOpenBackend& bus) {
    bool is_of_one_time = false;
    for (int tries = 0; tries < most_tries && !is_of_one_time; ++tries) {
      const KnownFields::Age age = known.age();
      const std::uint64_t changes = known.changes();
      known_.emplace(known);
      controller_.emplace(controller, bus);
      is_of_one_time = known.changes() == changes && known.age() == age;
    }
  }

  CanOpenNodeController& controller() { return *controller_; }
  KnownFields& known() { return *known_; }

 private:
  static constexpr int most_tries = 100;

  std::optional<KnownFields> known_;
  std::optional<CanOpenNodeController> controller_;
};

}  // namespace

Explanation explain_operation(const CalledOperation& call, CanOpenNodeController& controller,
                              const KnownFields& known, bool force, HeldBackBus::Read read) {
  HeldBackBus bus(call.node, std::move(read));
  Trial of_both(controller, known, bus);
  CanOpenNodeController& trial = of_both.controller();
  ImageWatch images(call, of_both.known(), trial.motor_mode(call.device), force);
  bus.watch(images);
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
    ExplainedTransfer step{transfer, {}, {}, 0, {}, {}};
    if (transfer.kind == TransferKind::rpdo) {
      explain_frame(call, before, bus.transfers(), step);
    } else {
      step.object = object_name(&call.node, transfer.index, transfer.sub_index);
      step.reading = read_value(&call.node, transfer.index, transfer.sub_index, transfer.data);
    }
    explanation.transfers.push_back(std::move(step));
  }
  if (!explanation.result.ok && !bus.transfers().empty()) {
    explanation.error = bus.stop() ? bus.stop() : bus.transfers().back().error;
  }
  if (explanation.error && is_own_refusal(call, explanation.result)) {
    explanation.error.reset();
  }
  explanation.frames = bus.frames();
  return explanation;
}

}  // namespace velmora_can_bridge
