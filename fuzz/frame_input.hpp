// Frames out of an input.
#pragma once

#include <cstdint>

#include "fuzz_input.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

/// A frame with this COB-ID; mostly of 8 bytes, as SDO frames are.
inline CanFrame take_frame(FuzzInput& input, std::uint16_t cob_id) {
  constexpr std::uint8_t longest = 8;
  const std::uint8_t length = input.byte();
  CanFrame frame{cob_id, length < longest ? length : longest, {}};
  for (std::uint8_t position = 0; position < frame.length; ++position) {
    frame.data.at(position) = input.byte();
  }
  return frame;
}

}  // namespace velmora_can_bridge
