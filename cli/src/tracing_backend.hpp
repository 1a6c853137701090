// A bus that tells of every transfer.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

enum class TransferKind { sdo_read, sdo_write, rpdo };

/// One transfer that has ended.
struct Transfer {
  TransferKind kind;
  /// "node 0x10  SDO read   0x1018/1 -> 4D 56 00 00".
  std::string line;
  /// Why it failed; no value when it did not.
  std::optional<BusError> error;
};

/// Passes every transfer on to another bus and hands it to a sink when it has ended.
class TracingBackend : public CanOpenBackend {
 public:
  using Sink = std::function<void(const Transfer& transfer)>;
  /// Says why the latest transfer with the node failed.
  using Reason = std::function<BusError(std::uint8_t node_id)>;

  /// `inner` outlives this object. `sink` and `reason` run on the thread of the transfer.
  TracingBackend(CanOpenBackend& inner, Sink sink, Reason reason);

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

 private:
  bool tell(TransferKind kind, std::uint8_t node_id, const std::string& what, bool done);

  CanOpenBackend* inner_;
  Sink sink_;
  Reason reason_;
};

}  // namespace velmora_can_bridge
