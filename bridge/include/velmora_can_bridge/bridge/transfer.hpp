/// What an operation does on the bus.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

enum class TransferKind : std::uint8_t { sdo_read, sdo_write, rpdo };

/// One SDO transfer or RPDO frame.
struct Transfer {
  TransferKind kind = TransferKind::sdo_read;
  std::uint8_t node_id = 0;
  /// Of an SDO transfer.
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  /// Of a frame.
  std::uint8_t rpdo = 0;
  /// What was written or sent; of a read that has succeeded what was read.
  std::vector<std::uint8_t> data{};
  /// Why it failed; no value when it did not.
  std::optional<BusError> error{};
};

/// "node 0x10  SDO read   0x1018/1 -> 4D 56 00 00", and behind a colon why it failed.
std::string transfer_text(const Transfer& transfer);

/// Is told of a transfer. Runs on the thread of the transfer, with the images locked where an
/// operation writes to them: it may call `Bridge::stop`, and `Bridge::poll`, which takes in what
/// has arrived and tells nobody then; and runs no operation.
using TransferHook = std::function<void(const Transfer& transfer)>;

}  // namespace velmora_can_bridge
