// How a PDO frame is cut into the objects that it maps.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {

/// The bytes that a frame carries for one object, little-endian.
struct FieldValue {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  std::vector<std::uint8_t> value;
};

/// Whether the node receives the PDO.
bool is_rpdo(const PdoConfig& pdo);

/// Whether the mapping stands for an object: it has bits, and is no dummy entry. Those map a data
/// type, an index below 0x0020, to leave bits of the frame unused (CiA 301, RPDO mapping).
bool carries_object(const PdoMapping& mapping);

/// Bytes that hold that many bits.
std::size_t bytes_for_bits(std::size_t bit_length);

/// Bytes of a frame with these mappings, dummy entries included. May exceed the 8 of a frame.
std::size_t frame_length(const std::vector<PdoMapping>& mappings);

/// The value of each mapped object, in mapping order.
///
/// Fields follow one another bit by bit, the lowest bit of a byte first. A value has the bytes that
/// its bits need, the rest of the last byte clear. Bits that a mapping has beyond the 64 of a frame
/// are clear.
std::vector<FieldValue> unpack_frame(const std::vector<PdoMapping>& mappings,
                                     const std::array<std::uint8_t, 8>& frame);

}  // namespace velmora_can_bridge
