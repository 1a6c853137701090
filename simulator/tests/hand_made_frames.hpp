// SDO frames by hand, and a client of few words that speaks them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <tuple>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

inline bool operator==(const CanFrame& left, const CanFrame& right) {
  return std::tie(left.id, left.length, left.data) == std::tie(right.id, right.length, right.data);
}

inline void PrintTo(const CanFrame& frame, std::ostream* out) {
  *out << std::hex << frame.id << "#";
  for (std::size_t position = 0; position < frame.length && position < 8; ++position) {
    *out << (frame.data.at(position) < 0x10 ? "0" : "") << int{frame.data.at(position)};
  }
  *out << std::dec << "[" << int{frame.length} << "]";
}

/// An SDO frame: command, multiplexer, and bytes 4 to 7 as a number.
inline CanFrame sdo_frame(std::uint16_t cob_id, unsigned command, ObjectAddress at,
                          std::uint32_t number = 0) {
  CanFrame frame{cob_id, 8, {}};
  frame.data[0] = static_cast<std::uint8_t>(command);
  frame.data[1] = static_cast<std::uint8_t>(at.index & 0xFFU);
  frame.data[2] = static_cast<std::uint8_t>(at.index >> 8U);
  frame.data[3] = at.sub_index;
  for (std::size_t position = 4; position < 8; ++position) {
    frame.data.at(position) = static_cast<std::uint8_t>(number >> (8 * (position - 4)) & 0xFFU);
  }
  return frame;
}

inline CanFrame abort_frame(std::uint16_t cob_id, ObjectAddress at, SdoAbort abort) {
  return sdo_frame(cob_id, 0x80, at, static_cast<std::uint32_t>(abort));
}

/// A segment: command and up to 7 bytes.
inline CanFrame segment(std::uint16_t cob_id, unsigned command,
                        const std::vector<std::uint8_t>& bytes = {}) {
  CanFrame frame{cob_id, 8, {}};
  frame.data[0] = static_cast<std::uint8_t>(command);
  std::copy(bytes.begin(), bytes.end(), frame.data.begin() + 1);
  return frame;
}

/// "0, 1, 2 ..." from `first` on.
inline std::vector<std::uint8_t> counting_bytes(std::size_t length, std::uint8_t first = 1) {
  std::vector<std::uint8_t> bytes(length);
  for (std::uint8_t& byte : bytes) {
    byte = first++;
  }
  return bytes;
}

/// The segments of a download with their toggle bits, the last one marked; one at least.
inline std::vector<CanFrame> download_segments(std::uint16_t cob_id,
                                               const std::vector<std::uint8_t>& bytes) {
  std::vector<CanFrame> segments;
  std::size_t position = 0;
  bool toggle = false;
  do {
    const std::size_t length = std::min<std::size_t>(7, bytes.size() - position);
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(position);
    position += length;
    const unsigned command = (toggle ? 0x10U : 0U) | static_cast<unsigned>(7 - length) << 1U |
                             (position == bytes.size() ? 1U : 0U);
    segments.push_back(segment(cob_id, command, {begin, begin + static_cast<int>(length)}));
    toggle = !toggle;
  } while (position < bytes.size());
  return segments;
}

}  // namespace velmora_can_bridge
