#include "node_faults.hpp"

#include <algorithm>
#include <utility>

#include "velmora_can_bridge/bus/sdo_frames.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

// Requests for block transfers, which no simulated node makes: they are aborted, and count.
constexpr std::uint8_t block_upload_request = 0xA0;
constexpr std::uint8_t block_download_request = 0xC0;

bool strikes_transfers(FaultKind kind) { return kind <= FaultKind::short_answer; }

/// Whether it is over as soon as it has begun.
bool is_moment(FaultKind kind) {
  return kind == FaultKind::drive_fault || kind == FaultKind::restart;
}

/// No value for a request that begins no transfer.
std::optional<TransferSort> sort_of(const CanFrame& request) {
  switch (sdo_command(request)) {
    case sdo_upload_request:
    case block_upload_request:
      return TransferSort::read;
    case sdo_download_request:
    case block_download_request:
      return TransferSort::write;
    default:
      return std::nullopt;
  }
}

bool is_same(ObjectAddress left, ObjectAddress right) {
  return left.index == right.index && left.sub_index == right.sub_index;
}

}  // namespace

NodeFaults::NodeFaults(std::uint8_t node_id, const std::vector<Fault>& faults) {
  for (std::size_t place = 0; place < faults.size(); ++place) {
    if (faults[place].node_id == node_id) {
      all_.push_back({faults[place], place});
    }
  }
}

milliseconds NodeFaults::until_next(milliseconds at_most) const {
  milliseconds next = at_most;
  for (const Scripted& scripted : all_) {
    if (scripted.stage == Stage::waiting && scripted.fault.after_transfers == 0) {
      next = std::min(next, scripted.fault.at - now_);
    }
    if (scripted.stage == Stage::active && scripted.end) {
      next = std::min(next, *scripted.end - now_);
    }
  }
  return std::max(next, milliseconds(0));
}

void NodeFaults::follow_time() {
  for (Scripted& scripted : all_) {
    const bool is_due = scripted.fault.after_transfers == 0 && scripted.fault.at <= now_;
    if (scripted.stage == Stage::waiting && is_due) {
      begin(scripted);
    }
    if (scripted.stage == Stage::active && scripted.end && *scripted.end <= now_) {
      end(scripted);
    }
  }
}

void NodeFaults::note_request(const CanFrame& request) {
  const std::optional<Transfer> begun = begun_by(request);
  if (!begun) {
    return;
  }
  note_end();
  transfer_ = begun;
  ++transfer_number_;
  for (std::size_t place = 0; place < all_.size(); ++place) {
    const Scripted& scripted = all_[place];
    const bool strikes = scripted.stage == Stage::active &&
                         strikes_transfers(scripted.fault.kind) &&
                         is_among(*begun, scripted.fault.struck);
    if (strikes) {
      striking_.push_back(place);
    }
  }
}

void NodeFaults::note_end() {
  const std::optional<Transfer> ended = std::exchange(transfer_, std::nullopt);
  striking_.clear();
  if (!ended) {
    return;
  }
  for (Scripted& scripted : all_) {
    const bool counts = scripted.stage == Stage::waiting && scripted.fault.after_transfers != 0 &&
                        is_among(*ended, scripted.fault.counted);
    if (counts && ++scripted.counted == scripted.fault.after_transfers) {
      begin(scripted);
    }
  }
}

const Fault* NodeFaults::find(FaultKind kind) const {
  const auto found = std::find_if(striking_.begin(), striking_.end(), [&](std::size_t place) {
    return all_[place].fault.kind == kind;
  });
  return found == striking_.end() ? nullptr : &all_[*found].fault;
}

const Fault* NodeFaults::strike(FaultKind kind) {
  const Fault* const fault = find(kind);
  if (fault == nullptr) {
    return nullptr;
  }
  Scripted& scripted = *std::find_if(all_.begin(), all_.end(), [&](const Scripted& candidate) {
    return &candidate.fault == fault;
  });
  tell(scripted);
  if (std::exchange(scripted.last_struck, transfer_number_) != transfer_number_) {
    ++scripted.struck;
  }
  // It goes on striking the transfer under way.
  if (scripted.struck == fault->transfers) {
    end(scripted);
  }
  return fault;
}

bool NodeFaults::silences_heartbeat() {
  const auto found = std::find_if(all_.begin(), all_.end(), [](const Scripted& scripted) {
    return scripted.stage == Stage::active && scripted.fault.kind == FaultKind::no_heartbeat;
  });
  if (found == all_.end()) {
    return false;
  }
  tell(*found);
  return true;
}

void NodeFaults::end_all() {
  for (Scripted& scripted : all_) {
    if (scripted.stage == Stage::active) {
      end(scripted);
    }
  }
}

std::vector<DueFault> NodeFaults::take_changes() { return std::exchange(changes_, {}); }

std::vector<FaultEffect> NodeFaults::take_effects() { return std::exchange(effects_, {}); }

/// The transfer of a request that begins one and holds all that it tells: any other is ignored, or
/// goes on with one.
std::optional<NodeFaults::Transfer> NodeFaults::begun_by(const CanFrame& request) {
  const bool is_whole =
      request.length >= sdo_request_length(request) && request.length <= sdo_frame_length;
  const std::optional<TransferSort> sort = sort_of(request);
  if (!is_whole || !sort) {
    return std::nullopt;
  }
  return Transfer{*sort, {sdo_index(request), sdo_sub_index(request)}};
}

bool NodeFaults::is_among(const Transfer& transfer, const TransferScope& scope) {
  const bool is_of_sort = scope.sort == TransferSort::any || scope.sort == transfer.sort;
  return is_of_sort && (!scope.object || is_same(*scope.object, transfer.at));
}

void NodeFaults::begin(Scripted& scripted) {
  const Fault& fault = scripted.fault;
  scripted.stage = is_moment(fault.kind) ? Stage::over : Stage::active;
  if (fault.duration) {
    scripted.end = now_ + *fault.duration;
  }
  if (is_moment(fault.kind) || fault.kind == FaultKind::held_value) {
    tell(scripted);
    changes_.push_back({fault, true});
  }
}

void NodeFaults::end(Scripted& scripted) {
  scripted.stage = Stage::over;
  if (scripted.fault.kind == FaultKind::held_value && !is_held_otherwise(scripted)) {
    changes_.push_back({scripted.fault, false});
  }
}

bool NodeFaults::is_held_otherwise(const Scripted& ended) const {
  return std::any_of(all_.begin(), all_.end(), [&](const Scripted& scripted) {
    return scripted.stage == Stage::active && scripted.fault.kind == FaultKind::held_value &&
           is_same(scripted.fault.object, ended.fault.object);
  });
}

void NodeFaults::tell(Scripted& scripted) {
  if (!std::exchange(scripted.is_told, true)) {
    effects_.push_back({scripted.place, now_});
  }
}

}  // namespace velmora_can_bridge
