// Frames as tests write, compare and print them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

inline bool operator==(const CanFrame& left, const CanFrame& right) {
  return std::tie(left.id, left.length, left.data) == std::tie(right.id, right.length, right.data);
}

inline void PrintTo(const CanFrame& frame, std::ostream* out) {
  *out << std::hex << frame.id << "#";
  for (const std::uint8_t byte : frame.data) {
    *out << (byte < 0x10 ? " 0" : " ") << int{byte};
  }
  *out << std::dec << " [" << int{frame.length} << "]";
}

/// "40 00 20" as bytes.
inline std::vector<std::uint8_t> bytes_of(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t position = 0; position < text.size(); position += 3) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(position, 2), nullptr, 16)));
  }
  return bytes;
}

/// A frame with the bytes that `text` lists, 8 at most.
inline CanFrame frame_of(std::uint16_t id, const std::string& text) {
  const std::vector<std::uint8_t> bytes = bytes_of(text);
  CanFrame frame{id, static_cast<std::uint8_t>(bytes.size()), {}};
  std::copy(bytes.begin(), bytes.end(), frame.data.begin());
  return frame;
}

/// Takes all frames that are there already.
inline std::vector<CanFrame> received(CanEndpoint& endpoint) {
  std::vector<CanFrame> frames;
  CanFrame frame;
  while (endpoint.receive(frame, std::chrono::nanoseconds(0)) == CanStatus::ok) {
    frames.push_back(frame);
  }
  return frames;
}

}  // namespace velmora_can_bridge
