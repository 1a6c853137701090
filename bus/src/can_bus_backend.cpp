#include "velmora_can_bridge/bus/can_bus_backend.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>

#include "can_frame_checks.hpp"
#include "dispatch/hex_u16.hpp"
#include "dispatch/lookups.hpp"
#include "longest_wait.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t pdo_numbers = std::numeric_limits<std::uint8_t>::max() + 1;

}  // namespace

struct CanBusBackend::Node {
  // Held for one SDO transfer: a node's transfers run one after another.
  std::mutex transfer_mutex;
  // Opened by the first transfer.
  std::unique_ptr<SdoClient> client;
  // COB-ID of each RPDO by its number, 0 for none. Only read while operations run.
  std::array<std::uint16_t, pdo_numbers> rpdo_cob_ids{};
};

CanBusBackend::CanBusBackend(CanChannel& channel, SdoTimes times, BusObserver observer)
    : channel_(&channel),
      times_(times),
      observer_(std::move(observer)),
      rpdo_endpoint_(channel.open({})) {
  for (std::uint8_t node_id = 1; node_id <= highest_node_id; ++node_id) {
    nodes_.at(node_id) = std::make_unique<Node>();
    set_cob_ids(node_id, {});
  }
}

CanBusBackend::~CanBusBackend() = default;

void CanBusBackend::set_cob_ids(std::uint8_t node_id, const BoardConfig& board) {
  if (!is_node_id(node_id)) {
    return;
  }
  auto& cob_ids = nodes_.at(node_id)->rpdo_cob_ids;
  cob_ids.fill(0);
  for (std::uint8_t rpdo = 1; predefined_rpdo_cob_id(node_id, rpdo) != 0; ++rpdo) {
    cob_ids.at(rpdo) = predefined_rpdo_cob_id(node_id, rpdo);
  }
  for (const PdoConfig& pdo : board.pdos) {
    const bool counts = find_pdo(board, pdo.number, rpdo_direction) == &pdo;
    if (counts && pdo.cob_id != 0) {
      cob_ids.at(pdo.number) = pdo.cob_id <= highest_can_id ? pdo.cob_id : std::uint16_t{0};
    }
  }
}

bool CanBusBackend::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                             std::vector<std::uint8_t>& data) {
  return transfer(node_id,
                  [&](SdoClient& client) { return client.upload(index, sub_index, data); });
}

bool CanBusBackend::sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                              const std::vector<std::uint8_t>& data) {
  return transfer(node_id,
                  [&](SdoClient& client) { return client.download(index, sub_index, data); });
}

bool CanBusBackend::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                              const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  if (!is_node_id(node_id)) {
    return report_node_id(node_id);
  }
  CanFrame frame{nodes_.at(node_id)->rpdo_cob_ids.at(rpdo), length, {}};
  if (frame.id == 0) {
    return report(node_id, BusErrorKind::not_configured,
                  "RPDO " + std::to_string(rpdo) +
                      " has no COB-ID: give it a cob_id in the board configuration");
  }
  if (length > data.size()) {
    return report(node_id, BusErrorKind::not_configured,
                  "RPDO " + std::to_string(rpdo) + " is longer than a CAN frame");
  }
  std::copy_n(data.begin(), length, frame.data.begin());
  const CanStatus status = rpdo_endpoint_->send(frame, bounded(times_.send_patience));
  return status == CanStatus::ok ||
         report(node_id, BusErrorKind::bus_fault, rpdo_endpoint_->explain(status));
}

std::optional<BusError> CanBusBackend::last_error(std::uint8_t node_id) const {
  const std::lock_guard<std::mutex> lock(errors_mutex_);
  return last_errors_.at(is_node_id(node_id) ? node_id : 0);
}

/// Runs one SDO transfer with the node.
template <typename Transfer>
bool CanBusBackend::transfer(std::uint8_t node_id, const Transfer& transfer) {
  if (!is_node_id(node_id)) {
    return report_node_id(node_id);
  }
  Node& node = *nodes_.at(node_id);
  const std::lock_guard<std::mutex> lock(node.transfer_mutex);
  if (!node.client) {
    node.client = open_client(node_id);
  }
  const SdoClient::Failure failure = transfer(*node.client);
  return !failure || report(*failure);
}

std::unique_ptr<SdoClient> CanBusBackend::open_client(std::uint8_t node_id) {
  return std::make_unique<SdoClient>(
      *channel_, node_id, times_,
      [this](CanStatus status, const std::string& text) { note_state(status, text); });
}

/// A state of the bus that showed during a transfer and did not end it.
void CanBusBackend::note_state(CanStatus status, const std::string& text) {
  if (observer_) {
    BusError warning;
    warning.kind =
        status == CanStatus::error_passive ? BusErrorKind::bus_warning : BusErrorKind::bus_fault;
    warning.text = text;
    observer_(warning);
  }
}

/// Always false, for the caller to return.
bool CanBusBackend::report(const BusError& error) {
  {
    const std::lock_guard<std::mutex> lock(errors_mutex_);
    last_errors_.at(is_node_id(error.node_id) ? error.node_id : 0) = error;
  }
  if (observer_) {
    observer_(error);
  }
  return false;
}

bool CanBusBackend::report(std::uint8_t node_id, BusErrorKind kind, std::string text) {
  BusError error;
  error.kind = kind;
  error.node_id = node_id;
  error.text = std::move(text);
  return report(error);
}

bool CanBusBackend::report_node_id(std::uint8_t node_id) {
  return report(node_id, BusErrorKind::not_configured,
                "node id " + std::to_string(node_id) + " is not one of 1 to 127");
}

}  // namespace velmora_can_bridge
