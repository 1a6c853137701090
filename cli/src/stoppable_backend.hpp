// A bus that the user can stop.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

/// Passes every call on until the user has interrupted the program, then refuses. One
/// thread at a time.
class StoppableBackend : public CanOpenBackend {
 public:
  /// Both outlive this object; `interrupted` may be null.
  StoppableBackend(CanOpenBackend& inner, const std::atomic<bool>* interrupted)
      : inner_(&inner), interrupted_(interrupted) {}

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override {
    return goes_on() && inner_->sdo_read(node_id, index, sub_index, data);
  }

  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override {
    return goes_on() && inner_->sdo_write(node_id, index, sub_index, data);
  }

  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override {
    return goes_on() && inner_->send_rpdo(node_id, rpdo, data, length);
  }

  /// Whether a call was refused because of it.
  bool has_refused() const { return has_refused_; }

 private:
  bool goes_on() {
    has_refused_ = has_refused_ || (interrupted_ != nullptr && interrupted_->load());
    return !has_refused_;
  }

  CanOpenBackend* const inner_;
  const std::atomic<bool>* const interrupted_;
  bool has_refused_ = false;
};

}  // namespace velmora_can_bridge
