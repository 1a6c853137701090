#include "device_checks.hpp"

#include <cstdint>
#include <map>
#include <string>

#include "ground/drive_objects.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "record_access.hpp"

namespace velmora_can_bridge {
namespace {

// CiA 301: what comes before are data types and objects of the communication.
constexpr unsigned first_device_object = 0x2000;

/// One device of a node and the list to report to.
struct DeviceCheck {
  const NodeFacts& facts;
  const NamedDevice& named;
  ProblemList& problems;

  const DeviceOdEntry& device() const { return *named.device; }
  Position at(std::string_view key) const { return member_or_record(*named.entry->value, key).at; }
};

/// A drive beside the controlword of its axis: its operations write something else. Certain when an
/// RPDO of the node maps that controlword.
void check_controlword(const DeviceCheck& check) {
  const std::uint16_t base = check.device().base_index;
  const std::uint16_t controlword = controlword_near(base);
  if (controlword == 0 || controlword == base) {
    return;
  }
  const std::string message = "base_index: " + hex<4>(base) +
                              " is not the controlword of a drive, write " + hex<4>(controlword);
  const bool is_certain = check.facts.knows_pdos &&
                          find_rpdo_number(check.facts.node.board, controlword) != 0 &&
                          check.facts.device_objects.count({controlword, 0}) == 0;
  if (is_certain) {
    check.problems.error(check.at("base_index"), message + ", which an RPDO maps");
  } else {
    check.problems.warning(check.at("base_index"), message);
  }
}

void check_base_of_drive(const DeviceCheck& check) {
  const unsigned base = check.device().base_index;
  constexpr auto last_object = static_cast<unsigned>(DriveObject::target_velocity);
  if (base < first_device_object || base + last_object > 0xFFFF) {
    check.problems.error(check.at("base_index"), "base_index: no drive begins at " + hex<4>(base) +
                                                     ", write its controlword, such as 0x6040");
    return;
  }
  check_controlword(check);
}

void check_homing_record(const DeviceCheck& check) {
  const DeviceOdEntry& device = check.device();
  const bool has_record = device.homing_record != 0;
  if (device.profile == "claw" && !has_record) {
    check.problems.warning(check.named.entry->key_value->at,
                           "homing_record: a claw has one, claw_action fails without it");
  }
  if (has_record && !device.profile.empty() && device.profile != "claw") {
    check.problems.warning(check.at("homing_record"),
                           "homing_record: a device that has one is a claw, write profile: claw");
  }
  if (has_record && device.homing_record < first_device_object) {
    check.problems.error(check.at("homing_record"), "homing_record: no device has one at " +
                                                        hex<4>(device.homing_record) +
                                                        ", its objects begin with 0x2000");
  }
  const DriveObjectRow* const object = find_drive_object(device, device.homing_record);
  if (has_record && object != nullptr) {
    check.problems.error(check.at("homing_record"),
                         "homing_record: " + hex<4>(device.homing_record) + " is the " +
                             std::string(object->name) + " of this device");
  }
}

void check_device(const DeviceCheck& check) {
  if (is_drive(check.device())) {
    check_base_of_drive(check);
  }
  check_homing_record(check);
}

/// Reports devices that share objects with an earlier one of the node.
class OverlapCheck {
 public:
  void add(const DeviceCheck& check) {
    if (is_drive(check.device())) {
      add_drive(check);
    }
    add_base(check);
    add_homing_record(check);
  }

 private:
  using Owners = std::map<std::uint16_t, const NamedDevice*>;

  static std::string place_of(const NamedDevice& earlier) {
    return quoted(earlier.name()) + " in line " + std::to_string(earlier.entry->key_value->at.line);
  }

  void add_drive(const DeviceCheck& check) {
    const NamedDevice* rival = nullptr;
    for (const DriveObjectRow& row : drive_objects) {
      const auto [owner, is_new] =
          objects_.emplace(drive_index(check.device(), row.object), &check.named);
      rival = is_new ? rival : owner->second;
    }
    // A drive beside the controlword of an axis has its objects in it all the same.
    const auto axis = axes_.emplace(controlword_near(check.device().base_index), &check.named);
    const bool has_axis = axis.first->first != 0;
    rival = rival == nullptr && has_axis && !axis.second ? axis.first->second : rival;
    if (rival != nullptr) {
      check.problems.error(check.at("base_index"),
                           "base_index: objects of this drive are those of " + place_of(*rival) +
                               ", the next drive begins 0x800 behind it");
    }
  }

  void add_base(const DeviceCheck& check) {
    const auto [owner, is_new] = bases_.emplace(check.device().base_index, &check.named);
    const bool is_reported = is_drive(check.device()) && is_drive(*owner->second->device);
    if (!is_new && !is_reported) {
      check.problems.warning(check.at("base_index"),
                             "base_index: " + hex<4>(check.device().base_index) + " is that of " +
                                 place_of(*owner->second));
    }
  }

  void add_homing_record(const DeviceCheck& check) {
    const std::uint16_t record = check.device().homing_record;
    const auto [owner, is_new] = records_.emplace(record, &check.named);
    if (record != 0 && !is_new) {
      check.problems.error(
          check.at("homing_record"),
          "homing_record: " + hex<4>(record) + " is that of " + place_of(*owner->second));
    }
  }

  Owners objects_;
  Owners axes_;
  Owners bases_;
  Owners records_;
};

}  // namespace

void check_devices(const NodeFacts& facts, ProblemList& problems) {
  OverlapCheck overlaps;
  for (const NamedDevice& named : facts.devices) {
    const DeviceCheck check{facts, named, problems};
    check_device(check);
    overlaps.add(check);
  }
}

}  // namespace velmora_can_bridge
