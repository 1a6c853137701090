/// Whether a device is configured as its board file says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One thing in which file and device differ.
struct Difference {
  /// "RPDO 3".
  std::string pdo{};
  /// "COB-ID", "enabled", "transmission", "number of objects", "order", "position 2: object",
  /// "position 2: length", "position 2"; "PDO" when the device does not have it at all.
  std::string what{};
  std::string file{};
  std::string device{};
};

/// What could not be compared, and why.
struct Gap {
  /// "RPDO 3", "RPDO 3 and all that follows", "SYNC", "PDOs that the board file does not hold".
  std::string what{};
  BusError error{};
  /// For people, on one line.
  std::string reason{};
};

/// What a comparison of one node found. The device is as the file says when `differences` and
/// `gaps` are empty.
struct DeviceComparison {
  /// In the order of the file, all of a PDO together.
  std::vector<Difference> differences{};
  std::vector<Gap> gaps{};
  /// PDOs that the device has enabled and the file does not hold, as
  /// "RPDO 6 is enabled on the device (COB-ID 0x0310), the board file does not hold it", and RPDOs
  /// whose transmission type the device does not tell.
  std::vector<std::string> notes{};
  /// What keeps the node from doing what it is told although nothing differs.
  std::vector<std::string> warnings{};
  /// RPDOs of the file that the device has enabled with a transmission type from 0 to 240: they
  /// take effect with the next SYNC only. As "RPDO 3".
  std::vector<std::string> synchronous_rpdos{};
  /// COB-ID of the SYNC that those wait for, with `extended_bit`. No value when there are none, or
  /// it could not be read.
  std::optional<std::uint32_t> sync_cob_id{};
};

/// Marks a COB-ID of 29 bits in the objects of a node.
inline constexpr std::uint32_t extended_bit = 0x20000000;

/// "0x0211", "0x00000211 (29 bits)", or "none" for 0. Other bits than those of the identifier and
/// `extended_bit` count nothing.
std::string cob_id_text(std::uint32_t cob_id);

/// Reads an object of one node by SDO: its bytes, or why there are none.
using ObjectReader = std::function<Expected<std::vector<std::uint8_t>, BusError>(
    std::uint16_t index, std::uint8_t sub_index)>;

/// Reads the PDO parameters of a node (CiA 301, 7.5.2.35 to 7.5.2.38) and compares them with the
/// board file; changes nothing on the node. Blocks for some 6 SDO transfers for each PDO.
///
/// - COB-ID: sub-index 1 of 0x1400 + number - 1 (RPDO) or 0x1800 + number - 1 (TPDO). Bit 31 says
///   that the PDO is disabled; a COB-ID of 0 is then none and no difference. Bit 29 says that it is
///   a 29-bit one. Bit 30 (no remote frames) is not looked at. A PDO without a COB-ID in the file
///   is as it should be when it is disabled.
/// - Transmission type: sub-index 2 of the same object, compared where the file has one. That of an
///   enabled RPDO is read in any case, and noted when the device refuses it. Where an RPDO waits
///   for the SYNC, its COB-ID is object 0x1005, or 0x080 when the node does not have that object.
/// - Mapping: sub-index 0 of 0x1600 or 0x1A00 + number - 1 gives the number of objects, each
///   sub-index from 1 on index, sub-index and length of one, in frame order, as in the file.
/// - A PDO that the node aborts with no such object or no such sub-index is not on the device.
/// - Both directions are searched for PDOs that the file does not hold, numbers 1 to 8 and up to
///   the highest in the file.
///
/// Any other abort leaves the PDO uncompared and goes on with the next; a node that does not
/// answer, a bus that does not work, or a stop ends the comparison there.
DeviceComparison compare_with_device(const NodeConfig& node, const ObjectReader& read);

}  // namespace velmora_can_bridge
