// Operations on a device that the caller names: whether the node has one that suits.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ground/drive_objects.hpp"
#include "ground/nearest_name.hpp"
#include "ground/number_text.hpp"
#include "operation_check.hpp"

namespace velmora_can_bridge {
namespace {

template <typename Suits>
bool has_device(const OperationCheck& check, const Suits& suits) {
  return std::any_of(check.facts.devices.begin(), check.facts.devices.end(),
                     [&](const NamedDevice& named) { return suits(*named.device); });
}

/// What ramps are: unsigned numbers of 4 bytes that a drive lets write.
bool is_ramp(const DriveObjectRow& row) {
  constexpr std::size_t ramp_length = 4;
  return row.is_writable && !row.is_signed && row.length == ramp_length;
}

/// Further unsigned numbers of 4 bytes that CiA 402-2 lets write: maximal profile velocity and
/// motor speed, end velocity, homing acceleration, maximal acceleration and deceleration.
constexpr std::uint16_t further_ramps[] = {0x3F, 0x40, 0x42, 0x5A, 0x85, 0x86};

bool is_ramp_offset(std::uint16_t offset) {
  const bool is_known = std::any_of(
      std::begin(drive_objects), std::end(drive_objects), [&](const DriveObjectRow& row) {
        return is_ramp(row) && static_cast<std::uint16_t>(row.object) == offset;
      });
  return is_known || std::find(std::begin(further_ramps), std::end(further_ramps), offset) !=
                         std::end(further_ramps);
}

std::string offset_text(std::uint16_t offset) {
  return offset > 0xFF ? hex<4>(offset) : hex<2>(offset);
}

std::string ramp_texts() {
  std::vector<std::string> texts;
  for (const DriveObjectRow& row : drive_objects) {
    if (is_ramp(row)) {
      texts.push_back(offset_text(static_cast<std::uint16_t>(row.object)) + " " +
                      std::string(row.name));
    }
  }
  return enumeration(texts);
}

/// Whether the object's range has no number of 16 bits with a sign.
bool is_beyond_operation(const OperationCheck& check, std::uint16_t index) {
  const auto found = check.facts.node.values.find({index, 0});
  if (found == check.facts.node.values.end()) {
    return false;
  }
  const ValueDescription& value = found->second;
  const CountRange range = range_of_bits(16, true);
  return (value.minimum && range.maximum < *value.minimum) ||
         (value.maximum && *value.maximum < range.minimum);
}

}  // namespace

void check_any_device(const OperationCheck& check) {
  if (check.facts.knows_devices && check.facts.devices.empty()) {
    check.error("kind", check.op.kind +
                            " works on a device, this node has none; write it under device_od_map");
  }
}

void check_drive(const OperationCheck& check) {
  if (!check.facts.knows_devices || has_device(check, is_drive)) {
    return;
  }
  const std::string message =
      check.op.kind + " works on a drive, this node has no device with " + "profile: ci402 or claw";
  const bool may_be_meant =
      has_device(check, [](const DeviceOdEntry& device) { return device.profile.empty(); });
  if (may_be_meant) {
    check.warning("kind", message);
  } else {
    check.error("kind", message);
  }
}

void check_set_target(const OperationCheck& check) {
  check_drive(check);
  constexpr DriveObject targets[] = {DriveObject::target_position, DriveObject::target_velocity,
                                     DriveObject::target_torque};
  for (const NamedDevice& named : check.facts.devices) {
    for (const DriveObject target : targets) {
      const std::uint16_t index = drive_index(*named.device, target);
      if (is_drive(*named.device) && is_beyond_operation(check, index)) {
        check.warning("kind", "takes a target of 16 bits, and the range of " +
                                  object_text(index, 0) + " has none of them");
      }
    }
  }
}

void check_ramp(const OperationCheck& check) {
  check_drive(check);
  if (!is_ramp_offset(check.op.index_offset)) {
    check.error("index_offset", offset_text(check.op.index_offset) +
                                    " is no ramp of a drive, write " + ramp_texts() +
                                    "; others are written by sdo_write");
  }
}

void check_claw_action(const OperationCheck& check) {
  const bool has_claw =
      has_device(check, [](const DeviceOdEntry& device) { return device.homing_record != 0; });
  if (check.facts.knows_devices && !has_claw) {
    check.error("kind",
                "claw_action works on a claw, this node has no device with a homing_record");
  }
}

}  // namespace velmora_can_bridge
