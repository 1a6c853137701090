#include "velmora_can_bridge/bridge/transfer.hpp"

#include "ground/node_text.hpp"
#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

std::string what_text(const Transfer& transfer) {
  const std::string object = object_text(transfer.index, transfer.sub_index);
  switch (transfer.kind) {
    case TransferKind::sdo_read:
      return "SDO read   " + object + (transfer.error ? "" : " -> " + bytes_text(transfer.data));
    case TransferKind::sdo_write:
      return "SDO write  " + object + " <- " + bytes_text(transfer.data);
    case TransferKind::rpdo:
      return "RPDO " + std::to_string(transfer.rpdo) + "     <- " + bytes_text(transfer.data);
  }
  return {};
}

}  // namespace

std::string transfer_text(const Transfer& transfer) {
  return node_text(transfer.node_id) + "  " + what_text(transfer) +
         (transfer.error ? ": " + transfer.error->text : "");
}

}  // namespace velmora_can_bridge
