// What a board file says of an object of a node's dictionary.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

struct ObjectName {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  /// The devices that it belongs to, in the order of their names, ", " between them; often none.
  std::string device{};
  /// The first name that a mapping gives it; empty when none does.
  std::string field{};
  /// What the drive profile (CiA 402-2) calls it, where it is one of a drive's: "modes of
  /// operation"; empty else.
  std::string profile_name{};
  /// The operations that read or write it by its index, in the order of their names.
  std::vector<std::string> operations{};
};

/// Names an object of `node`; of a null node it has no names.
///
/// To a device belong the objects at its base index and at its homing record, to a drive all 0x800
/// of its axis (its controlword is the 0x40th of them). A record of one device inside the axis of
/// another belongs to the former alone.
ObjectName object_name(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index);

/// "left_wheel 0x60FF/0 (left_target_velocity)": the device, the object, and its field or else its
/// operations; what has no name is left out.
std::string object_name_text(const ObjectName& object);

/// Adds what names the object to the JSON object `line`: `index` and `sub_index`, and `device`,
/// `field` and `operations` where it has them. `Json` is one of the library nlohmann-json.
template <typename Json>
void add_object(Json& line, const ObjectName& object) {
  line["index"] = object.index;
  line["sub_index"] = object.sub_index;
  if (!object.device.empty()) {
    line["device"] = object.device;
  }
  if (!object.field.empty()) {
    line["field"] = object.field;
  }
  if (!object.operations.empty()) {
    line["operations"] = object.operations;
  }
}

}  // namespace velmora_can_bridge
