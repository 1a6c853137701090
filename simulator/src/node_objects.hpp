// The objects that a node offers.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

/// The communication objects of node `node_id` with the PDOs of `board`: those that every node has,
/// and the parameters of each PDO. The highest sub-indices of others are missing.
ObjectDictionary communication_objects(std::uint8_t node_id, const BoardConfig& board);

/// The object dictionary of node `node_id` with the devices and PDOs of `board`.
///
/// Groups are added in this order, and an object that an earlier group has stays as it is:
/// communication objects, devices by name (drives, then the claw's record), objects that PDOs map,
/// records of I/O devices. At last every index that has sub-indices but no sub-index 0 gets one
/// with the highest of them. docs/simulator.md lists the objects.
ObjectDictionary node_objects(std::uint8_t node_id, const BoardConfig& board);

}  // namespace velmora_can_bridge
