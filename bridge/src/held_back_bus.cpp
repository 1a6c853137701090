#include "held_back_bus.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "transfers.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

}  // namespace

HeldBackBus::HeldBackBus(const NodeConfig& node, Read read)
    : node_id_(node.node_id),
      read_(std::move(read)),
      server_(
          node.node_id,
          [this](std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 Bytes& data) -> std::optional<SdoAbort> {
            if (!read_data_) {
              return SdoAbort::general_error;
            }
            data = *read_data_;
            return std::nullopt;
          },
          [](std::uint16_t /*index*/, std::uint8_t /*sub_index*/, const Bytes& /*data*/) {
            return std::optional<SdoAbort>();
          },
          std::numeric_limits<std::uint32_t>::max()),
      node_(bus_.open({{0, 0}}, [this](const CanFrame& frame, std::vector<CanFrame>& answers) {
        take(frame, answers);
      })) {
  backend_.set_cob_ids(node.node_id, node.board);
}

/// A frame of the host.
void HeldBackBus::take(const CanFrame& frame, std::vector<CanFrame>& answers) {
  frames_.push_back(frame);
  if (frame.id != sdo_request_cob_id + node_id_) {
    return;
  }
  if (const std::optional<CanFrame> answer = server_.answer(frame)) {
    answers.push_back(*answer);
  }
}

bool HeldBackBus::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                           Bytes& data) {
  const Expected<Bytes, BusError> read = read_(index, sub_index);
  read_data_ = read ? std::make_optional(*read) : std::nullopt;
  Bytes unused;
  backend_.sdo_read(node_id, index, sub_index, unused);
  Transfer transfer = sdo_transfer(TransferKind::sdo_read, node_id, index, sub_index);
  if (!read) {
    transfer.error = read.error();
    if (!stop_ && read.error().kind == BusErrorKind::stopped) {
      stop_ = read.error();
    }
    keep(std::move(transfer));
    return false;
  }
  transfer.data = *read;
  keep(std::move(transfer));
  data.insert(data.end(), read->begin(), read->end());
  return true;
}

bool HeldBackBus::sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                            const Bytes& data) {
  return add(sdo_transfer(TransferKind::sdo_write, node_id, index, sub_index, data),
             [&] { return backend_.sdo_write(node_id, index, sub_index, data); });
}

bool HeldBackBus::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                            const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  return add(rpdo_transfer(node_id, rpdo, data, length),
             [&] { return backend_.send_rpdo(node_id, rpdo, data, length); });
}

/// Answers whether it is sent.
template <typename Send>
bool HeldBackBus::add(Transfer transfer, const Send& send) {
  transfer.error = stop_;
  if (!transfer.error && images_ != nullptr) {
    transfer.error = images_->refusal(transfer);
  }
  if (!transfer.error && !send()) {
    transfer.error = backend_.last_error(transfer.node_id);
  }
  const bool is_done = !transfer.error;
  keep(std::move(transfer));
  return is_done;
}

void HeldBackBus::keep(Transfer transfer) {
  if (images_ != nullptr) {
    images_->note(transfer);
  }
  transfers_.push_back(std::move(transfer));
}

bool ReplayedBus::sdo_read(std::uint8_t /*node_id*/, std::uint16_t index, std::uint8_t sub_index,
                           Bytes& data) {
  has_read_ = true;
  const auto read =
      std::find_if(transfers_->begin(), transfers_->end(), [&](const Transfer& transfer) {
        return transfer.kind == TransferKind::sdo_read && transfer.index == index &&
               transfer.sub_index == sub_index && !transfer.error;
      });
  if (read == transfers_->end()) {
    return false;
  }
  data = read->data;
  return true;
}

bool ReplayedBus::sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/,
                            std::uint8_t /*sub_index*/, const Bytes& /*data*/) {
  return false;
}

bool ReplayedBus::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                            const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  frame_ = rpdo_transfer(node_id, rpdo, data, length).data;
  return true;
}

}  // namespace velmora_can_bridge
