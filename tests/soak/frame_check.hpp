// Looks at every RPDO frame on its way to the nodes.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "node_model.hpp"
#include "soak_report.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge::soak {

/// Each field of each frame was written by the thread that owns it, and none goes back to an older
/// value: a neighbour's frame that carried one would have lost a write. The latter where nothing
/// disturbs the node. Has a thread of its own.
class FrameCheck {
 public:
  /// All outlive it.
  FrameCheck(CanChannel& channel, std::vector<std::unique_ptr<SoakNode>>& nodes_by_id,
             Report& report);
  ~FrameCheck();
  FrameCheck(const FrameCheck&) = delete;
  FrameCheck(FrameCheck&&) = delete;
  FrameCheck& operator=(const FrameCheck&) = delete;
  FrameCheck& operator=(FrameCheck&&) = delete;

 private:
  struct Seen {
    std::uint32_t value = 0;
    Time came{};
  };
  struct Field {
    const char* name;
    std::size_t offset;
    std::size_t size;
    std::size_t thread;
  };

  void listen();
  void check(const CanFrame& frame, Time came);
  void check_threads_fields(SoakNode& node, const CanFrame& frame, std::uint8_t rpdo, Time came);
  void check_led(SoakNode& node, const CanFrame& frame, Time came);
  void check_drive(SoakNode& node, const CanFrame& frame, Time came);
  void check_field(SoakNode& node, const CanFrame& frame, std::uint8_t rpdo, const Field& field,
                   Time came);
  void wrong(const SoakNode& node, const CanFrame& frame, const std::string& what);

  std::vector<std::unique_ptr<SoakNode>>* const nodes_;
  Report* const report_;
  const std::unique_ptr<CanEndpoint> endpoint_;
  // By node id, RPDO and offset; of the thread.
  std::array<std::array<std::array<Seen, 8>, rpdos + 1>, nodes + 1> seen_{};
  std::atomic<bool> is_ending_{false};
  std::thread thread_;
};

}  // namespace velmora_can_bridge::soak
