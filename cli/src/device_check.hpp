// Whether a device is configured as its board file says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "stoppable_bus.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// One thing in which file and device differ.
struct Difference {
  /// "RPDO 3".
  std::string pdo;
  /// "COB-ID", "enabled", "number of objects", "order", "position 2: object", "position 2: length",
  /// "position 2"; "PDO" when the device does not have it at all.
  std::string what;
  std::string file;
  std::string device;
};

/// What could not be compared, and why.
struct Gap {
  /// "RPDO 3", "RPDO 3 and all that follows", "PDOs that the board file does not hold".
  std::string what;
  BusError error;
  /// For people, on one line.
  std::string reason;
};

/// What a comparison of one node found. The device is as the file says when `differences` and
/// `gaps` are empty.
struct DeviceComparison {
  /// In the order of the file, all of a PDO together.
  std::vector<Difference> differences;
  std::vector<Gap> gaps;
  /// PDOs that the device has enabled and the file does not hold, as
  /// "RPDO 6 is enabled on the device (COB-ID 0x0310), the board file does not hold it".
  std::vector<std::string> notes;
};

/// Reads the PDO parameters of a node (CiA 301, 7.5.2.35 to 7.5.2.38) and compares them with the
/// board file; changes nothing on the node. Blocks for some 5 SDO transfers for each PDO.
///
/// - COB-ID: sub-index 1 of 0x1400 + number - 1 (RPDO) or 0x1800 + number - 1 (TPDO). Bit 31 says
///   that the PDO is disabled; a COB-ID of 0 is then none and no difference. Bit 29 says that it is
///   a 29-bit one. Bit 30 (no remote frames) is not looked at. A PDO without a COB-ID in the file
///   is as it should be when it is disabled.
/// - Mapping: sub-index 0 of 0x1600 or 0x1A00 + number - 1 gives the number of objects, each
///   sub-index from 1 on index, sub-index and length of one, in frame order, as in the file.
/// - A PDO that the node aborts with no such object or no such sub-index is not on the device.
/// - Both directions are searched for PDOs that the file does not hold, numbers 1 to 8 and up to
///   the highest in the file.
///
/// Any other abort leaves the PDO uncompared and goes on with the next; a node that does not
/// answer, a bus that does not work, or the user's interruption ends the comparison there.
DeviceComparison compare_with_device(const NodeConfig& node, StoppableBus& bus);

}  // namespace velmora_can_bridge
