#include "read_description.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ground/drive_objects.hpp"
#include "velmora_can_bridge/operation.hpp"
#include "velmora_can_bridge/values/object_value.hpp"

namespace velmora_can_bridge {
namespace {

bool writes(const OperationConfig& op, std::uint16_t index, std::uint8_t sub_index) {
  return op.index == index && (op.subindex_in_payload != 0 || op.sub_index == sub_index);
}

/// Where the operations differ, a type with a sign counts.
std::optional<ValueType> written_type(const NodeConfig& node, std::uint16_t index,
                                      std::uint8_t sub_index) {
  std::optional<ValueType> type;
  for (const auto& operation : node.operations) {
    if (!writes(operation.second, index, sub_index)) {
      continue;
    }
    const std::optional<ValueType> written = find_value_type(operation.second.data_type);
    type = written && (!type || is_signed(*written)) ? written : type;
  }
  return type;
}

template <typename Names>
ValueDescription named_states(const Names& names) {
  ValueDescription value;
  value.type = ValueType::u8;
  for (const std::string_view name : names) {
    const auto code = static_cast<std::int64_t>(value.values.size());
    value.values.push_back({std::string(name), Count::of(code)});
  }
  return value;
}

bool is_homing_record(const NodeConfig& node, std::uint16_t index) {
  const auto& devices = node.board.device_od_map;
  return std::any_of(devices.begin(), devices.end(), [=](const auto& device) {
    return is_claw(device.second) && device.second.homing_record == index;
  });
}

/// Of what a claw tells of itself; else without a type.
ValueDescription claw_state(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index) {
  if (!is_homing_record(node, index)) {
    return {};
  }
  if (sub_index == static_cast<std::uint8_t>(ClawObject::action_state)) {
    return named_states(claw_actions);
  }
  const bool is_position = sub_index == static_cast<std::uint8_t>(ClawObject::position_state);
  return is_position ? named_states(claw_positions) : ValueDescription();
}

/// What the board file says stays.
void fill_in(ValueDescription& value, ValueDescription claw) {
  value.type = claw.type;
  if (value.values.empty()) {
    value.values = std::move(claw.values);
  }
}

}  // namespace

ValueDescription read_description(const NodeConfig* node, std::uint16_t index,
                                  std::uint8_t sub_index) {
  ValueDescription value = object_value(node, index, sub_index);
  if (value.type || node == nullptr) {
    return value;
  }
  fill_in(value, claw_state(*node, index, sub_index));
  if (!value.type) {
    value.type = written_type(*node, index, sub_index);
  }
  return value;
}

}  // namespace velmora_can_bridge
