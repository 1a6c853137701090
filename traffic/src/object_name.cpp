#include "velmora_can_bridge/traffic/object_name.hpp"

#include <algorithm>
#include <set>

#include "ground/drive_objects.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"

namespace velmora_can_bridge {
namespace {

bool has_record(const DeviceOdEntry& device, std::uint16_t index) {
  return device.base_index == index || (device.homing_record != 0 && device.homing_record == index);
}

template <typename Owns>
std::string devices_that(const BoardConfig& board, std::uint16_t index, Owns owns) {
  std::set<std::string> names;
  for (const auto& [name, device] : board.device_od_map) {
    if (owns(device, index)) {
      names.insert(name);
    }
  }
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

std::string device_of(const BoardConfig& board, std::uint16_t index) {
  const std::string owners = devices_that(board, index, has_record);
  return owners.empty() ? devices_that(board, index, is_in_axis) : owners;
}

std::string field_of(const BoardConfig& board, std::uint16_t index, std::uint8_t sub_index) {
  for (const PdoConfig& pdo : board.pdos) {
    const PdoMapping* const mapping = find_mapping_by_object(pdo, index, sub_index);
    if (mapping != nullptr && !mapping->field.empty()) {
      return mapping->field;
    }
  }
  return {};
}

bool lists(const std::vector<std::uint8_t>& sub_indices, std::uint8_t sub_index) {
  return std::find(sub_indices.begin(), sub_indices.end(), sub_index) != sub_indices.end();
}

bool uses(const OperationConfig& op, std::uint16_t index, std::uint8_t sub_index) {
  if (op.index == 0 || op.index != index) {
    return false;
  }
  if (op.kind == "read_multi") {
    return lists(op.sub_indices, sub_index);
  }
  if (op.kind == "pump_duty") {
    return lists(op.rpdo_channels, sub_index) || lists(op.sdo_channels, sub_index);
  }
  return op.subindex_in_payload != 0 || op.sub_index == sub_index;
}

/// What the drive profile calls the object; empty when it is none of a drive's.
std::string_view profile_name_of(const BoardConfig& board, std::uint16_t index,
                                 std::uint8_t sub_index) {
  for (const auto& device : board.device_od_map) {
    const DriveObjectRow* const row = find_drive_object(device.second, index);
    if (row != nullptr && sub_index == 0) {
      return row->name;
    }
  }
  return {};
}

}  // namespace

ObjectName object_name(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index) {
  ObjectName object;
  object.index = index;
  object.sub_index = sub_index;
  if (node == nullptr) {
    return object;
  }
  object.device = device_of(node->board, index);
  object.field = field_of(node->board, index, sub_index);
  object.profile_name = profile_name_of(node->board, index, sub_index);
  for (const auto& [name, op] : node->operations) {
    if (uses(op, index, sub_index)) {
      object.operations.push_back(name);
    }
  }
  return object;
}

std::string object_name_text(const ObjectName& object) {
  std::string use = object.field;
  if (use.empty()) {
    for (const std::string& operation : object.operations) {
      use += (use.empty() ? "" : ", ") + operation;
    }
  }
  return (object.device.empty() ? "" : object.device + " ") +
         object_text(object.index, object.sub_index) + (use.empty() ? "" : " (" + use + ")");
}

}  // namespace velmora_can_bridge
