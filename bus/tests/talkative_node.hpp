// A node on whose COB-ID more comes than the answers to one client.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {

/// A frame, and how long after the request it comes.
struct SpokenFrame {
  SpokenFrame(const char* text) : bytes(text) {}
  SpokenFrame(const char* text, std::chrono::milliseconds after) : bytes(text), delay(after) {}

  std::string bytes;
  std::chrono::milliseconds delay{0};
};

/// Node 5: on each request come all the frames that the script has for it. Aborts are recorded and
/// are no requests.
class TalkativeNode {
 public:
  explicit TalkativeNode(InProcessBus& bus)
      : endpoint_(bus.open({{0x605}}, [this](const CanFrame& request, std::vector<CanFrame>& out) {
          take(request, out);
        })) {
    bus.set_fault_rule([this](const CanFrame& frame) { return delivered(frame); });
  }

  void answer_with(std::vector<std::vector<SpokenFrame>> script) {
    script_ = std::move(script);
    next_ = 0;
  }

  /// What has come since the last call.
  std::vector<CanFrame> take_requests() { return std::exchange(requests_, {}); }

 private:
  struct Delayed {
    CanFrame frame;
    std::chrono::milliseconds delay;
  };

  void take(const CanFrame& request, std::vector<CanFrame>& out) {
    requests_.push_back(request);
    if (request.data[0] == 0x80 || next_ == script_.size()) {
      return;
    }
    for (const SpokenFrame& spoken : script_[next_++]) {
      out.push_back(frame_of(0x585, spoken.bytes));
      delayed_.push_back({out.back(), spoken.delay});
    }
  }

  std::vector<CanDelivery> delivered(const CanFrame& frame) {
    const auto found = std::find_if(delayed_.begin(), delayed_.end(),
                                    [&](const Delayed& delayed) { return delayed.frame == frame; });
    if (found == delayed_.end()) {
      return {{frame}};
    }
    const CanDelivery delivery{frame, found->delay};
    delayed_.erase(found);
    return {delivery};
  }

  std::vector<std::vector<SpokenFrame>> script_;
  std::size_t next_ = 0;
  std::vector<Delayed> delayed_;
  std::vector<CanFrame> requests_;
  std::unique_ptr<CanEndpoint> endpoint_;
};

}  // namespace velmora_can_bridge
