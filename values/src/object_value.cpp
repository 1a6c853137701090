#include "velmora_can_bridge/values/object_value.hpp"

#include <algorithm>
#include <utility>

#include "ground/common_objects.hpp"
#include "ground/drive_objects.hpp"
#include "named_drive_modes.hpp"

namespace velmora_can_bridge {
namespace {

ValueType integer_type(std::size_t length, bool has_sign) {
  switch (length) {
    case 1:
      return has_sign ? ValueType::s8 : ValueType::u8;
    case 2:
      return has_sign ? ValueType::s16 : ValueType::u16;
    default:
      return has_sign ? ValueType::s32 : ValueType::u32;
  }
}

bool holds_mode(DriveObject object) {
  return object == DriveObject::modes_of_operation ||
         object == DriveObject::modes_of_operation_display;
}

ValueDescription described(const DriveObjectRow& row) {
  ValueDescription value;
  value.type = integer_type(row.length, row.is_signed);
  if (holds_mode(row.object)) {
    value.values = named_drive_modes();
  }
  return value;
}

/// By a drive of the node whose object it is.
ValueDescription of_drive(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index) {
  ValueDescription value;
  if (sub_index != 0) {
    return value;
  }
  for (const auto& device : node.board.device_od_map) {
    const DriveObjectRow* const row = find_drive_object(device.second, index);
    // Where the objects of two drives meet, a sign of either counts.
    if (row != nullptr && (!value.type || row->is_signed)) {
      value = described(*row);
    }
  }
  return value;
}

ValueDescription of_any_node(std::uint16_t index, std::uint8_t sub_index) {
  ValueDescription value;
  for (const CommonObjectRow& row : common_objects) {
    if (row.index == index && row.sub_index == sub_index) {
      value.type = row.length == 0 ? ValueType::text : integer_type(row.length, false);
      value.unit = row.unit;
    }
  }
  return value;
}

}  // namespace

ValueDescription object_value(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index) {
  ValueDescription common = of_any_node(index, sub_index);
  if (node == nullptr) {
    return common;
  }
  ValueDescription profile = common.type ? std::move(common) : of_drive(*node, index, sub_index);
  const auto found = node->values.find({index, sub_index});
  if (found == node->values.end()) {
    return profile;
  }
  ValueDescription value = found->second;
  value.type = value.type ? value.type : profile.type;
  // A scale without a unit, or a unit without names, is the file's word all the same.
  if (value.unit.empty() && !value.scale) {
    value.unit = std::move(profile.unit);
  }
  if (value.values.empty()) {
    value.values = std::move(profile.values);
  }
  return value;
}

}  // namespace velmora_can_bridge
