// A bus on which everything succeeds.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

/// Takes everything, and answers reads with four bytes.
class WillingBackend : public CanOpenBackend {
 public:
  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                std::vector<std::uint8_t>& data) override {
    data.assign(4, 0);
    return true;
  }
  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const std::vector<std::uint8_t>& /*data*/) override {
    return true;
  }
  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/,
                 const std::array<std::uint8_t, 8>& /*data*/, std::uint8_t /*length*/) override {
    return true;
  }
};

}  // namespace velmora_can_bridge
