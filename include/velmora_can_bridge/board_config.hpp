/// How one node of the board is laid out: its PDOs, and where its devices sit.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One mapped field of a PDO. The first three members are a CiA 301 PDO mapping entry.
struct PdoMapping {
  /// Object-dictionary index of the mapped object.
  std::uint16_t index = 0;
  /// Its sub-index.
  std::uint8_t sub_index = 0;
  /// Mapped length in bits. Fields are expected to begin and end at whole bytes.
  std::uint8_t bit_length = 0;
  /// Name by which operations address the field; empty when none does.
  std::string field{};
};

/// Whether the mapping is a dummy entry: it names one of the data types 0x0001 (BOOLEAN) to 0x0007
/// (UNSIGNED32) instead of an object, to leave bits of the frame unused (CiA 301, 7.4.8.1). Every
/// other index is an object, 0x0000 and the data types that no mapping may name included.
inline bool is_dummy_entry(const PdoMapping& mapping) {
  return mapping.index >= 0x0001 && mapping.index <= 0x0007;
}

/// One PDO of the node.
struct PdoConfig {
  /// PDO number as operations name it, counted from 1.
  std::uint8_t number = 0;
  /// "RPDO" marks a PDO that the node receives, exactly so spelled; any other text is not one.
  std::string direction{};
  /// COB-ID of its frames, an 11-bit CAN identifier; 0 takes the one of the predefined connection
  /// set (CiA 301, 7.3.5), which knows numbers 1 to 4. For bus implementations; the controller does
  /// not read it.
  std::uint16_t cob_id = 0;
  /// The mapped fields in frame order, the first at byte 0; 64 bits in all at most.
  std::vector<PdoMapping> mappings{};
  /// Transmission type that the node has the PDO configured with (CiA 301, 7.5.2.35 and 7.5.2.37):
  /// 0 to 240 wait for the SYNC, 252 and 253, of TPDOs alone, for a remote frame, 254 and 255 go at
  /// once. No value: not known. For checks of a node, and what simulated ones tell; neither
  /// controller nor backends read it.
  std::optional<std::uint8_t> transmission = std::nullopt;
  /// Other PDOs have the same COB-ID on purpose, such as one frame that several nodes take; each
  /// node's controller has its own image of it, so one of them alone writes it. For checks of a
  /// board; neither controller nor backends read it.
  bool shared_cob_id = false;
};

/// Where one named device sits in the node's object dictionary.
struct DeviceOdEntry {
  /// Device profile: "ci402" for a drive, "claw" for a drive with a homing record, "io" otherwise.
  /// Tells a simulated node which objects to offer; the controller does not read it.
  std::string profile{};
  /// First object of the device; for a drive its controlword.
  std::uint16_t base_index = 0;
  /// Index of the device's homing record, 0 when it has none.
  std::uint16_t homing_record = 0;
};

/// The layout of one node. Filled once, then only read while a controller refers to it.
struct BoardConfig {
  /// The node's PDOs. Where several match, the first in this order is used.
  std::vector<PdoConfig> pdos{};
  /// Devices by name; case matters.
  std::unordered_map<std::string, DeviceOdEntry> device_od_map{};
};

}  // namespace velmora_can_bridge
