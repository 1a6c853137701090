// What the fuzz targets share: reading an input bit by bit, and stopping at a broken promise.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

/// The bytes of one input, taken from the front; 0 when there are none left.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const { return size_ == 0; }

  std::uint8_t byte() {
    if (empty()) {
      return 0;
    }
    --size_;
    return *data_++;
  }

  std::uint16_t word() { return static_cast<std::uint16_t>(byte() | (byte() << 8U)); }

  std::vector<std::uint8_t> bytes(std::size_t count) {
    std::vector<std::uint8_t> taken;
    for (std::size_t left = std::min(count, size_); left > 0; --left) {
      taken.push_back(byte());
    }
    return taken;
  }

  /// A frame with this COB-ID; mostly of 8 bytes, as SDO frames are.
  CanFrame frame(std::uint16_t cob_id) {
    constexpr std::uint8_t longest = 8;
    const std::uint8_t length = byte();
    CanFrame frame{cob_id, length < longest ? length : longest, {}};
    for (std::uint8_t position = 0; position < frame.length; ++position) {
      frame.data.at(position) = byte();
    }
    return frame;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

/// Ends the run with the input kept when a promise does not hold.
inline void promise(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "broken promise: %s\n", what);
    std::abort();
  }
}

}  // namespace velmora_can_bridge
