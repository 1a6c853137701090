// A node that answers SDO requests from a script.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {

/// What the node sends for one request.
struct ScriptedAnswer {
  // A script reads as a list of texts.
  ScriptedAnswer(const char* text) : bytes(text) {}
  ScriptedAnswer(const char* text, std::chrono::milliseconds after, std::size_t times = 1)
      : bytes(text), delay(after), copies(times) {}

  /// As `frame_of` takes them; empty for no answer.
  std::string bytes;
  std::chrono::milliseconds delay{0};
  std::size_t copies = 1;
};

/// Node 5 unless told otherwise: records the requests, answers the first with the first answer of
/// the script and so on, aborts and what comes after the script with nothing.
class ScriptedNode {
 public:
  explicit ScriptedNode(InProcessBus& bus, std::uint8_t node_id = 5)
      : answer_id_(static_cast<std::uint16_t>(0x580 + node_id)) {
    const auto request_id = static_cast<std::uint16_t>(0x600 + node_id);
    endpoint_ = bus.open({{request_id}}, [this](const CanFrame& frame, std::vector<CanFrame>& out) {
      take(frame, out);
    });
    bus.set_fault_rule([this](const CanFrame& frame) { return delivered(frame); });
  }

  void answer_with(std::vector<ScriptedAnswer> script) {
    script_ = std::move(script);
    next_ = 0;
  }

  /// What has come since the last call.
  std::vector<CanFrame> take_requests() { return std::exchange(requests_, {}); }

  /// Sends something unasked.
  void send(const CanFrame& frame) { endpoint_->send(frame, std::chrono::nanoseconds(0)); }

 private:
  void take(const CanFrame& frame, std::vector<CanFrame>& out) {
    requests_.push_back(frame);
    const bool is_abort = frame.data[0] == 0x80;
    if (is_abort || next_ == script_.size()) {
      return;
    }
    now_ = &script_[next_++];
    if (!now_->bytes.empty()) {
      out.push_back(frame_of(answer_id_, now_->bytes));
    }
  }

  /// Follows the handler at once, so that `now_` is the answer that this frame was made from.
  std::vector<CanDelivery> delivered(const CanFrame& frame) const {
    if (frame.id != answer_id_ || now_ == nullptr) {
      return {{frame}};
    }
    return std::vector<CanDelivery>(now_->copies, {frame, now_->delay});
  }

  const std::uint16_t answer_id_;
  std::vector<ScriptedAnswer> script_;
  std::size_t next_ = 0;
  const ScriptedAnswer* now_ = nullptr;
  std::vector<CanFrame> requests_;
  std::unique_ptr<CanEndpoint> endpoint_;
};

}  // namespace velmora_can_bridge
