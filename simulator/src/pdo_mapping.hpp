// PDOs of a board by number, and how a frame is cut into the objects that it maps.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {

/// The bytes that a frame carries for one object, little-endian.
struct FieldValue {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  std::vector<std::uint8_t> value;
};

using PdosByNumber = std::map<std::uint8_t, const PdoConfig*>;

/// The RPDOs of `board`, of several with one number the first. Points into it.
PdosByNumber rpdos_of(const BoardConfig& board);

/// As `rpdos_of`, but the TPDOs.
PdosByNumber tpdos_of(const BoardConfig& board);

/// The value of each mapped object, in mapping order.
///
/// Fields follow one another bit by bit, the lowest bit of a byte first. A value has the bytes that
/// its bits need, the rest of the last byte clear. Bits that a mapping has beyond the 64 of a frame
/// are clear.
std::vector<FieldValue> unpack_frame(const std::vector<PdoMapping>& mappings,
                                     const std::array<std::uint8_t, 8>& frame);

/// The frame that carries the values, as `unpack_frame` would cut it: one value for each mapping
/// that carries an object, in mapping order. Bytes that a value lacks are clear, those beyond its
/// mapping are dropped, and so is what lies beyond the frame. Dummy entries are clear.
std::array<std::uint8_t, 8> pack_frame(const std::vector<PdoMapping>& mappings,
                                       const std::vector<FieldValue>& fields);

}  // namespace velmora_can_bridge
