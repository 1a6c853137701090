#include "tracing_backend.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "ground/node_text.hpp"
#include "ground/number_text.hpp"

namespace velmora_can_bridge {

TracingBackend::TracingBackend(CanOpenBackend& inner, Sink sink, Reason reason)
    : inner_(&inner), sink_(std::move(sink)), reason_(std::move(reason)) {}

bool TracingBackend::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                              std::vector<std::uint8_t>& data) {
  const bool done = inner_->sdo_read(node_id, index, sub_index, data);
  return tell(
      TransferKind::sdo_read, node_id,
      "SDO read   " + object_text(index, sub_index) + (done ? " -> " + bytes_text(data) : ""),
      done);
}

bool TracingBackend::sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                               const std::vector<std::uint8_t>& data) {
  const bool done = inner_->sdo_write(node_id, index, sub_index, data);
  return tell(TransferKind::sdo_write, node_id,
              "SDO write  " + object_text(index, sub_index) + " <- " + bytes_text(data), done);
}

bool TracingBackend::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                               const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  const bool done = inner_->send_rpdo(node_id, rpdo, data, length);
  const std::size_t sent = std::min<std::size_t>(length, data.size());
  const std::vector<std::uint8_t> bytes(data.begin(),
                                        data.begin() + static_cast<std::ptrdiff_t>(sent));
  return tell(TransferKind::rpdo, node_id,
              "RPDO " + std::to_string(rpdo) + "     <- " + bytes_text(bytes), done);
}

/// Answers `done`.
bool TracingBackend::tell(TransferKind kind, std::uint8_t node_id, const std::string& what,
                          bool done) {
  std::optional<BusError> error;
  if (!done) {
    error = reason_(node_id);
  }
  sink_({kind, node_text(node_id) + "  " + what + (error ? ": " + error->text : ""), error});
  return done;
}

}  // namespace velmora_can_bridge
