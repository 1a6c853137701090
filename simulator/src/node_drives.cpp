#include "node_drives.hpp"

#include <algorithm>

#include "ground/little_endian.hpp"
#include "node_objects.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {

DriveDevice::DriveDevice(const DeviceOdEntry& device)
    : base_index_(device.base_index),
      claw_(is_claw(device) ? std::make_optional<Claw>() : std::nullopt) {}

void DriveDevice::claim(const DeviceObjectRow& row) { own_objects_.emplace(row.object, row); }

std::optional<SdoAbort> DriveDevice::refusal(DeviceObject object,
                                             const std::vector<std::uint8_t>& value) const {
  const auto own = own_objects_.find(object);
  if (own == own_objects_.end() || own->second.size != value.size()) {
    return std::nullopt;
  }
  const std::uint64_t number = little_endian_number(value);
  const bool is_unknown = (object == DeviceObject(DriveObject::quick_stop_option_code) &&
                           !is_quick_stop_option(static_cast<std::int16_t>(number))) ||
                          (object == DeviceObject(DriveObject::homing_method) &&
                           !is_homing_method(static_cast<std::int8_t>(number)));
  return is_unknown ? std::make_optional(SdoAbort::invalid_value) : std::nullopt;
}

void DriveDevice::written(DeviceObject object, ObjectDictionary& objects) {
  drive_.set_inputs(read_inputs(objects));
  std::visit([&](auto own) { act_on(own, read(own, objects)); }, object);
  follow_drive(objects);
}

void DriveDevice::tick(std::chrono::milliseconds elapsed, ObjectDictionary& objects) {
  drive_.set_inputs(read_inputs(objects));
  for (; elapsed.count() > 0; --elapsed) {
    drive_.step();
    if (claw_) {
      claw_->step(drive_);
    }
  }
  publish(objects);
}

void DriveDevice::inject_fault(std::uint16_t error_code, ObjectDictionary& objects) {
  drive_.inject_fault(error_code);
  follow_drive(objects);
}

void DriveDevice::quick_stop(ObjectDictionary& objects) {
  if (!drive_.is_enabled()) {
    return;
  }
  drive_.quick_stop();
  follow_drive(objects);
}

/// What is to be done after a command.
void DriveDevice::follow_drive(ObjectDictionary& objects) {
  if (claw_) {
    claw_->follow(drive_);
  }
  publish(objects);
}

void DriveDevice::reset() {
  drive_ = Drive();
  had_fault_ = false;
  if (claw_) {
    claw_.emplace();
  }
}

std::optional<FaultChange> DriveDevice::take_fault_change() {
  if (drive_.has_fault() == had_fault_) {
    return std::nullopt;
  }
  had_fault_ = drive_.has_fault();
  return FaultChange{base_index_, had_fault_,
                     had_fault_ ? drive_.outputs().error_code : emergency_error_reset};
}

void DriveDevice::publish(ObjectDictionary& objects) const {
  const DriveOutputs outputs = drive_.outputs();
  show(DriveObject::error_code, outputs.error_code, objects);
  show(DriveObject::statusword, outputs.statusword, objects);
  show(DriveObject::modes_of_operation_display, outputs.mode_display, objects);
  show(DriveObject::position_actual_value, outputs.position, objects);
  show(DriveObject::velocity_actual_value, outputs.velocity, objects);
  show(DriveObject::torque_actual_value, outputs.torque, objects);
  publish_claw(objects);
}

void DriveDevice::publish_claw(ObjectDictionary& objects) const {
  if (claw_) {
    show(ClawObject::action_state, static_cast<std::int64_t>(claw_->action()), objects);
    show(ClawObject::position_state, static_cast<std::int64_t>(claw_->position()), objects);
  }
}

/// The objects that command something; all others are read when they are needed.
void DriveDevice::act_on(DriveObject object, std::uint64_t value) {
  switch (object) {
    case DriveObject::controlword:
      drive_.write_controlword(static_cast<std::uint16_t>(value));
      break;
    case DriveObject::modes_of_operation:
      drive_.write_mode(static_cast<std::int8_t>(value));
      break;
    case DriveObject::target_position:
      drive_.take_set_point();
      break;
    default:
      break;
  }
}

void DriveDevice::act_on(ClawObject object, std::uint64_t value) {
  if (object == ClawObject::extend_command) {
    claw_->command(static_cast<std::uint8_t>(value), drive_);
  }
}

DriveInputs DriveDevice::read_inputs(const ObjectDictionary& objects) const {
  const auto value = [&](DriveObject object) {
    return static_cast<std::uint32_t>(read(object, objects));
  };
  return {static_cast<std::int32_t>(value(DriveObject::target_position)),
          static_cast<std::int32_t>(value(DriveObject::target_velocity)),
          static_cast<std::int16_t>(value(DriveObject::target_torque)),
          value(DriveObject::profile_velocity),
          value(DriveObject::profile_acceleration),
          value(DriveObject::profile_deceleration),
          value(DriveObject::quick_stop_deceleration),
          static_cast<QuickStopOption>(value(DriveObject::quick_stop_option_code)),
          static_cast<std::int8_t>(value(DriveObject::homing_method)),
          static_cast<std::int32_t>(value(DriveObject::home_offset))};
}

std::uint64_t DriveDevice::read(DeviceObject object, const ObjectDictionary& objects) const {
  const auto own = own_objects_.find(object);
  if (own == own_objects_.end()) {
    return 0;
  }
  const DeviceObjectRow& row = own->second;
  const ObjectEntry* entry = objects.find(row.at.index, row.at.sub_index);
  const bool is_as_claimed = entry != nullptr && entry->value.size() == row.size;
  return is_as_claimed ? little_endian_number(entry->value) : 0;
}

void DriveDevice::show(DeviceObject object, std::int64_t value, ObjectDictionary& objects) const {
  const auto own = own_objects_.find(object);
  if (own == own_objects_.end()) {
    return;
  }
  const DeviceObjectRow& row = own->second;
  objects.store(row.at.index, row.at.sub_index,
                little_endian_bytes(static_cast<std::uint64_t>(value), row.size));
}

NodeDrives::NodeDrives(const BoardConfig& board) {
  // By name, as `node_objects` adds them, so that an object's owner is who gave it its shape.
  const std::map<std::string, DeviceOdEntry> by_name(board.device_od_map.begin(),
                                                     board.device_od_map.end());
  const ObjectDictionary not_for_drives = communication_objects(0, board);
  for (const auto& [name, device] : by_name) {
    if (!is_drive(device)) {
      continue;
    }
    DriveDevice& added = devices_.try_emplace(name, device).first->second;
    for (const DeviceObjectRow& row : device_objects(device)) {
      const bool is_free =
          not_for_drives.find(row.at.index, row.at.sub_index) == nullptr &&
          owners_.try_emplace({row.at.index, row.at.sub_index}, Owner{&added, row.object}).second;
      if (is_free) {
        added.claim(row);
      }
    }
  }
}

std::optional<SdoAbort> NodeDrives::refusal(ObjectAddress at,
                                            const std::vector<std::uint8_t>& value) const {
  const auto owner = owners_.find({at.index, at.sub_index});
  if (owner == owners_.end()) {
    return std::nullopt;
  }
  return owner->second.device->refusal(owner->second.object, value);
}

void NodeDrives::written(ObjectAddress at, ObjectDictionary& objects) {
  const auto owner = owners_.find({at.index, at.sub_index});
  if (owner != owners_.end()) {
    owner->second.device->written(owner->second.object, objects);
  }
}

void NodeDrives::tick(std::chrono::milliseconds elapsed, ObjectDictionary& objects) {
  if (elapsed.count() <= 0) {
    return;
  }
  for (auto& [name, device] : devices_) {
    device.tick(std::min(elapsed, longest_tick), objects);
  }
}

std::vector<std::string> NodeDrives::names() const {
  std::vector<std::string> names;
  names.reserve(devices_.size());
  for (const auto& [name, device] : devices_) {
    names.push_back(name);
  }
  return names;
}

bool NodeDrives::inject_fault(const std::string& device, std::uint16_t error_code,
                              ObjectDictionary& objects) {
  const auto found = devices_.find(device);
  if (found == devices_.end()) {
    return false;
  }
  found->second.inject_fault(error_code, objects);
  return true;
}

void NodeDrives::quick_stop(ObjectDictionary& objects) {
  for (auto& [name, device] : devices_) {
    device.quick_stop(objects);
  }
}

void NodeDrives::reset() {
  for (auto& [name, device] : devices_) {
    device.reset();
  }
}

std::vector<FaultChange> NodeDrives::take_fault_changes() {
  std::vector<FaultChange> changes;
  for (auto& [name, device] : devices_) {
    if (const auto change = device.take_fault_change()) {
      changes.push_back(*change);
    }
  }
  return changes;
}

bool NodeDrives::has_fault() const {
  return std::any_of(devices_.begin(), devices_.end(),
                     [](const auto& device) { return device.second.has_fault(); });
}

void NodeDrives::publish(ObjectDictionary& objects) const {
  for (const auto& [name, device] : devices_) {
    device.publish(objects);
  }
}

}  // namespace velmora_can_bridge
