#include "velmora_can_bridge/simulator/simulated_node.hpp"

#include <utility>

#include "ground/little_endian.hpp"
#include "ground/pdo.hpp"
#include "node_drives.hpp"
#include "node_objects.hpp"
#include "node_parameters.hpp"
#include "pdo_mapping.hpp"
#include "pdo_parameters.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t longest_frame = 8;

// CiA 301, 7.5.2.2: bits of the error register.
constexpr std::uint8_t generic_error = 0x01;
constexpr std::uint8_t communication_error = 0x10;

/// Those that have a COB-ID, by number.
std::vector<PdoCommunication> enabled(const std::map<std::uint8_t, PdoParameters>& pdos) {
  std::vector<PdoCommunication> found;
  for (const auto& [number, pdo] : pdos) {
    if (pdo.cob_id) {
      found.push_back({number, *pdo.cob_id, pdo.transmission, pdo.inhibit_time, pdo.event_timer});
    }
  }
  return found;
}

/// Appends to a list that has room for `emergency_limit`.
void append(std::deque<Emergency>& emergencies, const Emergency& emergency) {
  emergencies.push_back(emergency);
  if (emergencies.size() > SimulatedNode::emergency_limit) {
    emergencies.pop_front();
  }
}

/// What the node would send of the mapped objects; nothing of one that cannot be read.
std::vector<FieldValue> mapped_values(const ObjectDictionary& objects,
                                      const std::vector<PdoMapping>& mappings) {
  std::vector<FieldValue> values;
  for (const PdoMapping& mapping : mappings) {
    if (!carries_object(mapping)) {
      continue;
    }
    UploadResult value = objects.upload(mapping.index, mapping.sub_index);
    values.push_back({mapping.index, mapping.sub_index,
                      value ? std::move(*value) : std::vector<std::uint8_t>()});
  }
  return values;
}

/// The objects of the node with what its drives show.
ObjectDictionary start_objects(std::uint8_t node_id, const BoardConfig& board) {
  ObjectDictionary objects = node_objects(node_id, board);
  NodeDrives(board).publish(objects);
  return objects;
}

bool is_communication_object(std::uint16_t index) { return index >= 0x1000 && index <= 0x1FFF; }

}  // namespace

SimulatedNode::SimulatedNode(std::uint8_t node_id) : SimulatedNode(node_id, BoardConfig{}) {}

SimulatedNode::SimulatedNode(std::uint8_t node_id, const BoardConfig& board)
    : node_id_(node_id),
      default_objects_(start_objects(node_id, board)),
      start_objects_(default_objects_),
      objects_(start_objects_),
      drives_(std::make_unique<NodeDrives>(board)),
      pdos_(std::make_unique<NodePdos>(objects_)) {}

SimulatedNode::~SimulatedNode() = default;

void SimulatedNode::add_object(std::uint16_t index, std::uint8_t sub_index, ObjectEntry entry) {
  const std::lock_guard<std::mutex> lock(mutex_);
  default_objects_.add(index, sub_index, entry);
  start_objects_.add(index, sub_index, entry);
  objects_.add(index, sub_index, std::move(entry));
  take_in_parameter(index);
}

bool SimulatedNode::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                             std::vector<std::uint8_t>& data) {
  if (node_id != node_id_) {
    return transfer_timed_out();
  }
  return !sdo_upload(index, sub_index, data).has_value();
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
  std::vector<std::uint8_t> data;
  if (const std::optional<SdoAbort> abort = sdo_upload(index, sub_index, data)) {
    return Unexpected{*abort};
  }
  return data;
}

std::optional<SdoAbort> SimulatedNode::sdo_upload(std::uint16_t index, std::uint8_t sub_index,
                                                  std::vector<std::uint8_t>& data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_sdo_abort_ = is_empty_error(objects_, {index, sub_index})
                        ? SdoAbort::no_data
                        : objects_.upload(index, sub_index, data);
  return last_sdo_abort_;
}

std::optional<SdoAbort> SimulatedNode::sdo_download(std::uint16_t index, std::uint8_t sub_index,
                                                    const std::vector<std::uint8_t>& data) {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_sdo_abort_ = download_refusal({index, sub_index}, data);
  if (!last_sdo_abort_ && !objects_.is_held({index, sub_index})) {
    write({index, sub_index}, data);
  }
  return last_sdo_abort_;
}

void SimulatedNode::receive_rpdo(std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                                 std::uint8_t length) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const PdoParameters* const found = pdos_->find(PdoDirection::rpdo, rpdo);
  const std::size_t mapped_length = found == nullptr ? 0 : mapped_bytes(found->mappings);
  if (mapped_length == 0 || length > longest_frame) {
    return;
  }
  if (length < mapped_length) {
    note_length_error(rpdo, emergency_rpdo_too_short);
    return;
  }
  if (length > mapped_length) {
    note_length_error(rpdo, emergency_rpdo_too_long);
  }
  for (FieldValue& field : unpack_frame(found->mappings, data)) {
    write_mapped_object(field.index, field.sub_index, std::move(field.value));
  }
}

std::optional<PdoFrame> SimulatedNode::tpdo_frame(std::uint8_t tpdo) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const PdoParameters* const found = pdos_->find(PdoDirection::tpdo, tpdo);
  const std::size_t length = found == nullptr ? 0 : mapped_bytes(found->mappings);
  if (length == 0 || length > longest_frame) {
    return std::nullopt;
  }
  return PdoFrame{pack_frame(found->mappings, mapped_values(objects_, found->mappings)),
                  static_cast<std::uint8_t>(length)};
}

std::vector<PdoCommunication> SimulatedNode::enabled_rpdos() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return enabled(pdos_->all(PdoDirection::rpdo));
}

std::vector<PdoCommunication> SimulatedNode::enabled_tpdos() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return enabled(pdos_->all(PdoDirection::tpdo));
}

std::uint64_t SimulatedNode::communication_revision() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return communication_revision_;
}

void SimulatedNode::tick(std::chrono::milliseconds elapsed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  drives_->tick(elapsed, objects_);
}

std::vector<std::string> SimulatedNode::drives() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return drives_->names();
}

bool SimulatedNode::inject_fault(const std::string& device, std::uint16_t error_code) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::uint16_t told = error_code == 0 ? emergency_generic_error : error_code;
  const bool is_known = drives_->inject_fault(device, told, objects_);
  note_fault_changes();
  return is_known;
}

void SimulatedNode::hold_object(std::uint16_t index, std::uint8_t sub_index) {
  const std::lock_guard<std::mutex> lock(mutex_);
  objects_.hold({index, sub_index});
}

void SimulatedNode::release_object(std::uint16_t index, std::uint8_t sub_index) {
  const std::lock_guard<std::mutex> lock(mutex_);
  objects_.release({index, sub_index});
}

std::vector<HeartbeatConsumer> SimulatedNode::heartbeat_consumers() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return consumers_of(objects_);
}

void SimulatedNode::lose_heartbeat(std::uint8_t node_id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lost_heartbeats_.insert(node_id);
  drives_->quick_stop(objects_);
  note_communication_error(emergency_heartbeat_lost, node_id);
}

void SimulatedNode::regain_heartbeat(std::uint8_t node_id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lost_heartbeats_.erase(node_id);
  std::uint8_t remaining = error_register();
  if (lost_heartbeats_.empty() && !had_wrong_length_) {
    remaining = static_cast<std::uint8_t>(remaining & ~unsigned{communication_error});
  }
  if (remaining == generic_error && !drives_->has_fault()) {
    remaining = 0;
  }
  objects_.store(error_register_index, 0, {remaining});
  note_emergency({emergency_error_reset, remaining, {node_id}});
}

void SimulatedNode::reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  reset_start_objects();
  objects_ = fresh_objects();
  drives_->reset();
  take_in_parameters();
  emergencies_.clear();
  unsent_emergencies_.clear();
  forget_communication_errors();
}

void SimulatedNode::reset_communication() {
  const std::lock_guard<std::mutex> lock(mutex_);
  reset_start_objects();
  forget_communication_errors();
  for (const ObjectAddress& at : start_objects_.addresses()) {
    if (is_communication_object(at.index) && !objects_.is_held(at)) {
      objects_.add(at.index, at.sub_index, *start_objects_.find(at.index, at.sub_index));
    }
  }
  take_in_parameters();
  if (drives_->has_fault()) {
    objects_.store(error_register_index, 0, {generic_error});
  }
  drives_->publish(objects_);
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
  const bool is_stored = objects_.store(index, sub_index, value);
  take_in_parameter(index);
  return is_stored;
}

std::vector<Emergency> SimulatedNode::emergencies() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {emergencies_.begin(), emergencies_.end()};
}

void SimulatedNode::clear_emergencies() {
  const std::lock_guard<std::mutex> lock(mutex_);
  emergencies_.clear();
  objects_.store(error_register_index, 0, {0});
  forget_communication_errors();
}

std::vector<Emergency> SimulatedNode::take_unsent_emergencies() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Emergency> unsent(unsent_emergencies_.begin(), unsent_emergencies_.end());
  unsent_emergencies_.clear();
  return unsent;
}

/// Records that nobody answered; always false, for the caller to return.
bool SimulatedNode::transfer_timed_out() {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_sdo_abort_ = SdoAbort::timed_out;
  return false;
}

// What follows is called with the lock held.

std::uint8_t SimulatedNode::error_register() const {
  const ObjectEntry* entry = objects_.find(error_register_index, 0);
  return entry == nullptr || entry->value.empty() ? std::uint8_t{0} : entry->value.front();
}

void SimulatedNode::note_length_error(std::uint8_t rpdo, std::uint16_t error_code) {
  had_wrong_length_ = true;
  note_communication_error(error_code, rpdo);
}

void SimulatedNode::note_communication_error(std::uint16_t error_code, std::uint8_t device_data) {
  const auto error_bits =
      static_cast<std::uint8_t>(error_register() | generic_error | communication_error);
  objects_.store(error_register_index, 0, {error_bits});
  note_emergency({error_code, error_bits, {device_data}});
}

void SimulatedNode::forget_communication_errors() {
  lost_heartbeats_.clear();
  had_wrong_length_ = false;
}

void SimulatedNode::note_fault_changes() {
  for (const FaultChange& change : drives_->take_fault_changes()) {
    const std::uint8_t before = error_register();
    const bool was_last_error = !drives_->has_fault() && before == generic_error;
    const auto raised = static_cast<std::uint8_t>(before | generic_error);
    const std::uint8_t remaining = was_last_error ? std::uint8_t{0} : before;
    const std::uint8_t error_bits = change.has_fault ? raised : remaining;
    objects_.store(error_register_index, 0, {error_bits});
    Emergency emergency{change.error_code, error_bits, {}};
    put_little_endian(emergency.device_data.begin(), 2, change.base_index);
    note_emergency(emergency);
  }
}

/// An error's number and what comes first of its device's data; that it is no more is none.
void SimulatedNode::note_emergency(const Emergency& emergency) {
  if (emergency.error_code != emergency_error_reset) {
    keep_error(objects_, std::uint32_t{emergency.error_code} |
                             std::uint32_t{emergency.device_data[0]} << 16U |
                             std::uint32_t{emergency.device_data[1]} << 24U);
  }
  append(emergencies_, emergency);
  append(unsent_emergencies_, emergency);
}

std::optional<SdoAbort> SimulatedNode::download_refusal(
    ObjectAddress at, const std::vector<std::uint8_t>& data) const {
  if (const auto refusal = objects_.download_refusal(at.index, at.sub_index, data.size())) {
    return refusal;
  }
  return value_refusal(at, data);
}

/// Of a value of the object's size, whoever writes it.
std::optional<SdoAbort> SimulatedNode::value_refusal(ObjectAddress at,
                                                     const std::vector<std::uint8_t>& data) const {
  if (const auto refusal = pdo_parameter_refusal(objects_, at, data)) {
    return refusal;
  }
  if (const auto refusal = node_parameter_refusal(objects_, at, data)) {
    return refusal;
  }
  return drives_->refusal(at, data);
}

/// What the bus may write of the communication objects: the rest is what the node tells.
void SimulatedNode::store_parameters() {
  for (const ObjectAddress& at : start_objects_.addresses()) {
    const ObjectEntry* const entry = objects_.find(at.index, at.sub_index);
    const bool is_parameter = is_communication_object(at.index) &&
                              at.index != error_history_index &&
                              entry->access == ObjectAccess::read_write;
    if (is_parameter) {
      start_objects_.store(at.index, at.sub_index, entry->value);
    }
  }
  restores_defaults_ = false;
}

void SimulatedNode::reset_start_objects() {
  if (std::exchange(restores_defaults_, false)) {
    start_objects_ = default_objects_;
  }
}

/// Those at the start, but for what is held.
ObjectDictionary SimulatedNode::fresh_objects() const {
  ObjectDictionary fresh = start_objects_;
  for (const ObjectAddress& at : start_objects_.addresses()) {
    if (objects_.is_held(at)) {
      fresh.add(at.index, at.sub_index, *objects_.find(at.index, at.sub_index));
      fresh.hold(at);
    }
  }
  return fresh;
}

void SimulatedNode::take_in_parameters() {
  pdos_->refresh(objects_);
  ++communication_revision_;
}

void SimulatedNode::take_in_parameter(std::uint16_t index) {
  if (is_communication_object(index)) {
    pdos_->refresh(objects_, index);
    ++communication_revision_;
  }
}

void SimulatedNode::act_on_write(std::uint16_t index, std::uint8_t sub_index) {
  if (index == store_index) {
    store_parameters();
  }
  if (index == restore_index) {
    restores_defaults_ = true;
  }
  take_in_parameter(index);
  drives_->written({index, sub_index}, objects_);
  note_fault_changes();
}

void SimulatedNode::write_mapped_object(std::uint16_t index, std::uint8_t sub_index,
                                        std::vector<std::uint8_t> value) {
  const ObjectEntry* entry = objects_.find(index, sub_index);
  const bool is_writable = entry != nullptr && entry->access != ObjectAccess::read_only &&
                           !objects_.is_held({index, sub_index});
  if (!is_writable) {
    return;
  }
  value.resize(entry->value.size());
  if (value_refusal({index, sub_index}, value)) {
    return;
  }
  write({index, sub_index}, value);
}

void SimulatedNode::write(ObjectAddress at, const std::vector<std::uint8_t>& value) {
  if (!is_command_object(at)) {
    objects_.store(at.index, at.sub_index, value);
  }
  act_on_write(at.index, at.sub_index);
}

}  // namespace velmora_can_bridge
