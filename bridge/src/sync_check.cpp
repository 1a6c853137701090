#include "sync_check.hpp"

#include <algorithm>
#include <string>
#include <utility>

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

constexpr std::chrono::seconds listening_time{1};
// How long a stop may go unnoticed.
constexpr std::chrono::milliseconds receive_slice{100};

/// The identifier of a SYNC that can be received here; 0 for any other.
std::uint16_t receivable(const std::optional<std::uint32_t>& cob_id) {
  const bool is_receivable = cob_id && (*cob_id & extended_bit) == 0;
  return is_receivable ? static_cast<std::uint16_t>(*cob_id) : std::uint16_t{0};
}

std::string rpdos_text(const DeviceComparison& comparison) {
  std::string text;
  for (const std::string& rpdo : comparison.synchronous_rpdos) {
    text += (text.empty() ? "" : ", ") + rpdo;
  }
  return text;
}

}  // namespace

SyncCheck::SyncCheck(CanChannel& channel, StopReason stop_reason)
    : channel_(&channel), stop_reason_(std::move(stop_reason)) {}

void SyncCheck::begin(const DeviceComparison& comparison) {
  const std::uint16_t cob_id = receivable(comparison.sync_cob_id);
  if (cob_id == 0) {
    return;
  }
  Sync& sync = syncs_[cob_id];
  if (!sync.endpoint) {
    sync.endpoint = channel_->open({{cob_id}});
  }
  end_ = sync.endpoint->now() + listening_time;
}

void SyncCheck::listen() {
  for (auto& [cob_id, sync] : syncs_) {
    if (!await(sync)) {
      return;
    }
  }
}

/// False when the others need not be waited for any more.
bool SyncCheck::await(Sync& sync) {
  CanEndpoint& endpoint = *sync.endpoint;
  CanFrame frame;
  for (;;) {
    if (std::optional<std::string> reason = stop_reason_()) {
      return fail(BusErrorKind::stopped, CanStatus::ok, *std::move(reason));
    }
    const nanoseconds left = std::max<nanoseconds>(end_ - endpoint.now(), nanoseconds(0));
    const CanStatus status = endpoint.receive(frame, std::min<nanoseconds>(left, receive_slice));
    if (status == CanStatus::ok) {
      sync.has_come = true;
      return true;
    }
    if (status != CanStatus::timed_out && status != CanStatus::error_passive) {
      return fail(BusErrorKind::bus_fault, status, endpoint.explain(status));
    }
    if (left == nanoseconds(0)) {
      return true;
    }
  }
}

bool SyncCheck::fail(BusErrorKind kind, CanStatus status, std::string text) {
  failure_.emplace();
  failure_->kind = kind;
  failure_->status = status;
  failure_->text = std::move(text);
  return false;
}

void SyncCheck::judge(DeviceComparison& comparison) const {
  if (!comparison.sync_cob_id) {
    return;
  }
  const std::string rpdos = rpdos_text(comparison);
  const std::string cob_id = cob_id_text(*comparison.sync_cob_id);
  const auto sync = syncs_.find(receivable(comparison.sync_cob_id));
  if (sync == syncs_.end()) {
    comparison.warnings.push_back("the SYNC cannot be listened to (COB-ID " + cob_id +
                                  " in 0x1005); without it nothing moves by " + rpdos);
  } else if (!sync->second.has_come && failure_) {
    comparison.gaps.push_back({"SYNC", *failure_, failure_->text});
  } else if (!sync->second.has_come) {
    comparison.warnings.push_back("no SYNC came within 1 s (COB-ID " + cob_id +
                                  "); until one comes nothing moves by " + rpdos);
  }
}

}  // namespace velmora_can_bridge
