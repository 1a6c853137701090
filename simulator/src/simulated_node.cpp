#include "velmora_can_bridge/simulator/simulated_node.hpp"

#include <utility>

#include "node_drives.hpp"
#include "node_objects.hpp"
#include "pdo_mapping.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint16_t error_register_index = 0x1001;
constexpr std::uint8_t longest_frame = 8;

std::map<std::uint8_t, std::vector<PdoMapping>> rpdo_mappings(const BoardConfig& board) {
  std::map<std::uint8_t, std::vector<PdoMapping>> mappings;
  for (const PdoConfig& pdo : board.pdos) {
    if (is_rpdo(pdo)) {
      mappings.emplace(pdo.number, pdo.mappings);  // keeps the first of a number
    }
  }
  return mappings;
}

}  // namespace

SimulatedNode::SimulatedNode(std::uint8_t node_id) : SimulatedNode(node_id, BoardConfig{}) {}

SimulatedNode::SimulatedNode(std::uint8_t node_id, const BoardConfig& board)
    : node_id_(node_id),
      rpdos_(rpdo_mappings(board)),
      objects_(node_objects(node_id, board)),
      drives_(std::make_unique<NodeDrives>(board)) {
  drives_->publish(objects_);
}

SimulatedNode::~SimulatedNode() = default;

void SimulatedNode::add_object(std::uint16_t index, std::uint8_t sub_index, ObjectEntry entry) {
  const std::lock_guard<std::mutex> lock(mutex_);
  objects_.add(index, sub_index, std::move(entry));
}

bool SimulatedNode::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                             std::vector<std::uint8_t>& data) {
  if (node_id != node_id_) {
    return transfer_timed_out();
  }
  UploadResult result = sdo_upload(index, sub_index);
  auto* bytes = std::get_if<std::vector<std::uint8_t>>(&result);
  if (bytes == nullptr) {
    return false;
  }
  data = std::move(*bytes);
  return true;
}

bool SimulatedNode::sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                              const std::vector<std::uint8_t>& data) {
  if (node_id != node_id_) {
    return transfer_timed_out();
  }
  return !sdo_download(index, sub_index, data).has_value();
}

bool SimulatedNode::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                              const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  if (length > longest_frame) {
    return false;
  }
  if (node_id == node_id_) {
    receive_rpdo(rpdo, data, length);
  }
  return true;
}

UploadResult SimulatedNode::sdo_upload(std::uint16_t index, std::uint8_t sub_index) {
  const std::lock_guard<std::mutex> lock(mutex_);
  UploadResult result = objects_.upload(index, sub_index);
  const auto* abort = std::get_if<SdoAbort>(&result);
  last_sdo_abort_ = abort == nullptr ? std::nullopt : std::make_optional(*abort);
  return result;
}

std::optional<SdoAbort> SimulatedNode::sdo_download(std::uint16_t index, std::uint8_t sub_index,
                                                    const std::vector<std::uint8_t>& data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_sdo_abort_ = objects_.download(index, sub_index, data);
  if (!last_sdo_abort_) {
    drives_->written({index, sub_index}, objects_);
  }
  return last_sdo_abort_;
}

void SimulatedNode::receive_rpdo(std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                                 std::uint8_t length) {
  const auto found = rpdos_.find(rpdo);
  if (found == rpdos_.end() || length > longest_frame) {
    return;
  }
  const std::vector<PdoMapping>& mappings = found->second;
  const std::size_t mapped_length = frame_length(mappings);

  const std::lock_guard<std::mutex> lock(mutex_);
  if (length != mapped_length) {
    note_length_error(rpdo,
                      length < mapped_length ? emergency_rpdo_too_short : emergency_rpdo_too_long);
    return;
  }
  for (FieldValue& field : unpack_frame(mappings, data)) {
    write_mapped_object(field.index, field.sub_index, std::move(field.value));
  }
}

void SimulatedNode::tick(std::chrono::milliseconds elapsed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  drives_->tick(elapsed, objects_);
}

bool SimulatedNode::inject_fault(const std::string& device) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return drives_->inject_fault(device, objects_);
}

std::optional<SdoAbort> SimulatedNode::last_sdo_abort() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return last_sdo_abort_;
}

std::optional<std::vector<std::uint8_t>> SimulatedNode::object_value(std::uint16_t index,
                                                                     std::uint8_t sub_index) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const ObjectEntry* entry = objects_.find(index, sub_index);
  return entry == nullptr ? std::nullopt : std::make_optional(entry->value);
}

bool SimulatedNode::set_object_value(std::uint16_t index, std::uint8_t sub_index,
                                     const std::vector<std::uint8_t>& value) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return objects_.store(index, sub_index, value);
}

std::vector<Emergency> SimulatedNode::emergencies() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {emergencies_.begin(), emergencies_.end()};
}

void SimulatedNode::clear_emergencies() {
  const std::lock_guard<std::mutex> lock(mutex_);
  emergencies_.clear();
  objects_.store(error_register_index, 0, {0});
}

/// Records that nobody answered; always false, for the caller to return.
bool SimulatedNode::transfer_timed_out() {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_sdo_abort_ = SdoAbort::timed_out;
  return false;
}

/// Called with the lock held.
void SimulatedNode::note_length_error(std::uint8_t rpdo, std::uint16_t error_code) {
  // CiA 301, 7.5.2.2: bit 0 generic error, bit 4 communication error.
  constexpr std::uint8_t error_bits = 0x11;
  const ObjectEntry* entry = objects_.find(error_register_index, 0);
  const std::uint8_t before =
      entry == nullptr || entry->value.empty() ? std::uint8_t{0} : entry->value.front();
  const auto error_register = static_cast<std::uint8_t>(before | error_bits);
  objects_.store(error_register_index, 0, {error_register});

  emergencies_.push_back({error_code, error_register, {rpdo}});
  if (emergencies_.size() > emergency_limit) {
    emergencies_.pop_front();
  }
}

/// Called with the lock held.
void SimulatedNode::write_mapped_object(std::uint16_t index, std::uint8_t sub_index,
                                        std::vector<std::uint8_t> value) {
  const ObjectEntry* entry = objects_.find(index, sub_index);
  if (entry == nullptr || entry->access == ObjectAccess::read_only) {
    return;
  }
  value.resize(entry->value.size());
  objects_.store(index, sub_index, value);
  drives_->written({index, sub_index}, objects_);
}

}  // namespace velmora_can_bridge
