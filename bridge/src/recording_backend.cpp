#include "recording_backend.hpp"

#include <algorithm>
#include <utility>

#include "bridge_node.hpp"
#include "own_refusal.hpp"
#include "transfers.hpp"

namespace velmora_can_bridge {
namespace {

bool is_stopped(const std::optional<BusError>& error) {
  return error && error->kind == BusErrorKind::stopped;
}

}  // namespace

/// Of the thread. Records of several bridges may lie in one another.
Bridge::CallRecord*& Bridge::CallRecord::innermost() {
  static thread_local CallRecord* record = nullptr;
  return record;
}

Bridge::CallRecord::CallRecord(const Bridge& bridge, Detail detail)
    : bridge_(&bridge), detail_(detail), outer_(std::exchange(innermost(), this)) {}

Bridge::CallRecord::CallRecord(const Bridge& bridge, const RunOptions& options, Node& node,
                               const CalledOperation& call)
    : bridge_(&bridge),
      detail_(options.detail),
      outer_(std::exchange(innermost(), this)),
      running_(RunningOperation{
          node, {call, node.known, node.controller.motor_mode(call.device), options.force}}) {}

Bridge::CallRecord::~CallRecord() {
  innermost() = outer_;
  if (running_ && !running_->is_over) {
    running_->node.forget();  // an exception has ended it: nobody knows how far the images had come
  }
}

std::optional<BusError> Bridge::CallRecord::refusal(const Transfer& transfer) {
  if (!running_) {
    return std::nullopt;
  }
  std::optional<BusError> error = running_->images.refusal(transfer);
  if (error) {
    running_->node.forget();
  }
  return error;
}

Bridge::CallRecord* Bridge::CallRecord::current(const Bridge& bridge) {
  CallRecord* record = innermost();
  while (record != nullptr && record->bridge_ != &bridge) {
    record = record->outer_;
  }
  return record;
}

BusError Bridge::CallRecord::take_reason() {
  return std::exchange(reported_, std::nullopt).value_or(BusError());
}

void Bridge::CallRecord::add(const Transfer& transfer) {
  if (running_) {
    running_->images.note(transfer);
  }
  if (!is_stopped(error_)) {
    error_ = transfer.error;
  }
  if (transfer.error) {
    failures_.push_back(*transfer.error);
  }
  if (detail_ == Detail::transfers) {
    transfers_.push_back(transfer);
  }
}

void Bridge::CallRecord::fill(OperationReport& report, const CalledOperation& call) {
  if (running_) {
    running_->images.finish();
    running_->is_over = true;
  }
  report.transfers = std::move(transfers_);
  report.tolerated = std::move(failures_);
  if (report.result.ok || !error_ || is_own_refusal(call, report.result)) {
    return;
  }
  report.error = std::move(error_);
  // After a stop nothing went on: it is the first one, and those behind it were not begun.
  const auto stopped =
      std::find_if(report.tolerated.begin(), report.tolerated.end(),
                   [](const BusError& error) { return error.kind == BusErrorKind::stopped; });
  report.tolerated.erase(stopped == report.tolerated.end() ? stopped - 1 : stopped,
                         report.tolerated.end());
}

bool Bridge::RecordingBackend::sdo_read(std::uint8_t node_id, std::uint16_t index,
                                        std::uint8_t sub_index, std::vector<std::uint8_t>& data) {
  Transfer transfer = sdo_transfer(TransferKind::sdo_read, node_id, index, sub_index);
  return make(transfer, [&] {
    const bool done = bridge_->bus_.sdo_read(node_id, index, sub_index, data);
    transfer.data = done ? data : std::vector<std::uint8_t>();
    return done;
  });
}

bool Bridge::RecordingBackend::sdo_write(std::uint8_t node_id, std::uint16_t index,
                                         std::uint8_t sub_index,
                                         const std::vector<std::uint8_t>& data) {
  Transfer transfer = sdo_transfer(TransferKind::sdo_write, node_id, index, sub_index, data);
  return make(transfer, [&] { return bridge_->bus_.sdo_write(node_id, index, sub_index, data); });
}

bool Bridge::RecordingBackend::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                                         const std::array<std::uint8_t, 8>& data,
                                         std::uint8_t length) {
  Transfer transfer = rpdo_transfer(node_id, rpdo, data, length);
  return make(transfer, [&] { return bridge_->bus_.send_rpdo(node_id, rpdo, data, length); });
}

/// Answers what `call` answers.
template <typename Call>
bool Bridge::RecordingBackend::make(Transfer& transfer, const Call& call) {
  CallRecord* const record = CallRecord::current(*bridge_);
  if (bridge_->settings_.before_transfer) {
    bridge_->settings_.before_transfer(transfer);
  }
  transfer.error = bridge_->stopped_error(transfer);
  if (!transfer.error) {
    transfer.error = record->refusal(transfer);
    if (transfer.error) {
      bridge_->queue(*transfer.error);
    }
  }
  if (!transfer.error && !call()) {
    transfer.error = record->take_reason();
    bridge_->blame_stop(*transfer.error);
  }
  record->add(transfer);
  if (bridge_->settings_.after_transfer) {
    bridge_->settings_.after_transfer(transfer);
  }
  return !transfer.error;
}

}  // namespace velmora_can_bridge
