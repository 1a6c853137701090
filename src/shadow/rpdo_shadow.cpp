#include <algorithm>
#include <cstddef>

#include "dispatch/results.hpp"
#include "shadow/rpdo_layout.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

using Image = std::array<std::uint8_t, frame_length>;

/// The RPDO's entry, inserted with zeros when it is missing. As `map[rpdo]`, but what is there is
/// found without a call, which takes a tenth off an RPDO write.
template <typename Map>
[[gnu::always_inline]] inline typename Map::mapped_type& entry_of(Map& map, std::uint8_t rpdo) {
  const auto found = map.find(rpdo);
  return found == map.end() ? map[rpdo] : found->second;
}

/// Replaces the field's bytes as far as `bytes` reaches; surplus bytes are dropped.
void overwrite(Image& image, FieldPlace place, const std::vector<std::uint8_t>& bytes) {
  std::copy_n(bytes.begin(), std::min(bytes.size(), place.length), image.begin() + place.offset);
}

/// As `overwrite`, and zeros where `bytes` does not reach.
void overwrite_whole(Image& image, FieldPlace place, const std::vector<std::uint8_t>& bytes) {
  std::fill_n(image.begin() + place.offset, place.length, std::uint8_t{0});
  overwrite(image, place, bytes);
}

/// A mark for each frame byte that `overwrite` changes: bit n stands for byte n.
std::uint8_t reached_bytes(FieldPlace place, const std::vector<std::uint8_t>& bytes) {
  const std::size_t reached = std::min(bytes.size(), place.length);
  return static_cast<std::uint8_t>(((1U << reached) - 1U) << place.offset);
}

/// Gives `image` the bytes of `from` that `marks` selects.
void copy_marked(Image& image, const Image& from, std::uint8_t marks) {
  for (std::size_t position = 0; position < image.size(); ++position) {
    if ((unsigned{marks} >> position & 1U) != 0) {
      image[position] = from[position];
    }
  }
}

}  // namespace

std::uint8_t CanOpenNodeController::find_rpdo_for_od(std::uint16_t index) const {
  return find_rpdo_number(*board_, index);
}

std::uint8_t CanOpenNodeController::resolve_rpdo(const OperationConfig& op) const {
  return op.pdo_number != 0 ? op.pdo_number : find_rpdo_for_od(op.index);
}

void CanOpenNodeController::forget_rpdo_shadows() noexcept {
  forgets_asked_.fetch_add(1, std::memory_order_release);
}

TurnQueue::Turn CanOpenNodeController::lock_images() {
  TurnQueue::Turn turn = image_turns_.take();
  const std::uint32_t asked = forgets_asked_.load(std::memory_order_acquire);
  if (asked != forgets_followed_) {
    forgets_followed_ = asked;
    for (auto& [rpdo, synced] : rpdo_shadow_synced_) {
      synced = false;
    }
    // A refresh keeps the bytes of objects that the node refuses: none from before the restart.
    for (auto& [rpdo, image] : rpdo_shadow_) {
      image.fill(0);
    }
    rpdo_shadow_mirrored_.clear();
  }
  return turn;
}

bool CanOpenNodeController::ensure_rpdo_shadow_synced(std::uint8_t rpdo,
                                                      const std::string& device) {
  const auto synced = rpdo_shadow_synced_.find(rpdo);
  if (synced != rpdo_shadow_synced_.end() && synced->second) {
    return true;
  }
  if (find_pdo(*board_, rpdo, rpdo_direction) == nullptr) {
    return true;  // nothing to load; the handler's own look-up reports it
  }
  if (!sync_rpdo_shadow_from_device(rpdo, device, true)) {
    return false;
  }
  rpdo_shadow_synced_[rpdo] = true;
  return true;
}

bool CanOpenNodeController::sync_rpdo_shadow_from_device(std::uint8_t rpdo,
                                                         const std::string& /*device*/,
                                                         bool all_or_nothing) {
  Image& shadow = entry_of(rpdo_shadow_, rpdo);
  std::uint8_t& length = entry_of(rpdo_shadow_len_, rpdo);
  // Built aside, so that a refused read or an exception leaves the image as it was.
  Image image = shadow;
  const auto load_field = [&](const PdoMapping& mapping, FieldPlace place) {
    if (place.length == 0) {
      return true;
    }
    std::vector<std::uint8_t> bytes;
    if (!is_dummy_entry(mapping) &&
        !backend_->sdo_read(*node_id_, mapping.index, mapping.sub_index, bytes)) {
      return !all_or_nothing;
    }
    overwrite_whole(image, place, bytes);
    return true;
  };
  for (const PdoConfig& pdo : board_->pdos) {
    if (is_pdo(pdo, rpdo, rpdo_direction) && !for_each_field(pdo, load_field)) {
      return false;
    }
  }
  if (all_or_nothing) {
    copy_marked(image, shadow, rpdo_shadow_mirrored_[rpdo]);
  }
  shadow = image;
  length = mapped_length(*board_, rpdo);
  return true;
}

void CanOpenNodeController::write_to_shadow(std::uint8_t rpdo, const PdoMapping& mapping,
                                            const std::vector<std::uint8_t>& bytes) {
  overwrite(entry_of(rpdo_shadow_, rpdo), place_of(*board_, rpdo, mapping), bytes);
}

bool CanOpenNodeController::send_rpdo_shadow(std::uint8_t rpdo) {
  const std::uint8_t length = entry_of(rpdo_shadow_len_, rpdo);
  return backend_->send_rpdo(*node_id_, rpdo, entry_of(rpdo_shadow_, rpdo), length);
}

OperationResult CanOpenNodeController::deliver_rpdo_shadow(std::uint8_t rpdo,
                                                           std::string_view sent) {
  return send_rpdo_shadow(rpdo) ? success(sent) : failure("RPDO send failed");
}

void CanOpenNodeController::write_od_to_shadow(std::uint16_t index,
                                               const std::vector<std::uint8_t>& bytes) {
  const std::uint64_t number = ++mirrors_begun_;
  const TurnQueue::Turn turn = lock_images();
  // An urgent mirror may have overtaken this one: what was written later stays.
  std::uint64_t& latest = latest_mirrors_[index];
  if (number < latest) {
    return;
  }
  latest = number;
  for (const PdoConfig& pdo : board_->pdos) {
    if (pdo.direction != rpdo_direction) {
      continue;
    }
    for_each_field(pdo, [&](const PdoMapping& mapping, FieldPlace place) {
      if (mapping.index == index && mapping.sub_index == 0) {
        overwrite(entry_of(rpdo_shadow_, pdo.number), place, bytes);
        rpdo_shadow_mirrored_[pdo.number] |= reached_bytes(place, bytes);
      }
      return true;
    });
  }
}

}  // namespace velmora_can_bridge
