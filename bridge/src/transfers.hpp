// Transfers as backends are asked for them.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "velmora_can_bridge/bridge/transfer.hpp"

namespace velmora_can_bridge {

inline Transfer sdo_transfer(TransferKind kind, std::uint8_t node_id, std::uint16_t index,
                             std::uint8_t sub_index, std::vector<std::uint8_t> data = {}) {
  return {kind, node_id, index, sub_index, 0, std::move(data), {}};
}

/// A frame carries no more than 8 bytes, whatever its length says.
inline Transfer rpdo_transfer(std::uint8_t node_id, std::uint8_t rpdo,
                              const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  const auto sent = static_cast<std::ptrdiff_t>(std::min<std::size_t>(length, data.size()));
  return {TransferKind::rpdo, node_id, 0, 0, rpdo, {data.begin(), data.begin() + sent}, {}};
}

}  // namespace velmora_can_bridge
