// A bus on which everything succeeds.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "transfers.hpp"
#include "velmora_can_bridge/bridge/transfer.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

/// Reads as many bytes as a frame has, all of them `pattern`, takes everything, and keeps the last
/// frame.
class PatternBus : public CanOpenBackend {
 public:
  explicit PatternBus(std::uint8_t pattern) : pattern_(pattern) {}

  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                std::vector<std::uint8_t>& data) override {
    constexpr std::size_t frame_size = 8;
    data.assign(frame_size, pattern_);
    return true;
  }
  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const std::vector<std::uint8_t>& /*data*/) override {
    return true;
  }
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override {
    frame_ = rpdo_transfer(node_id, rpdo, data, length);
    return true;
  }

  const std::optional<Transfer>& frame() const { return frame_; }

 private:
  const std::uint8_t pattern_;
  std::optional<Transfer> frame_;
};

}  // namespace velmora_can_bridge
