/// A CAN interface of the Linux kernel.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// A network interface of SocketCAN, such as "can0" or "vcan0".
///
/// Every endpoint is a raw socket of its own, on which the kernel filters: the thread that waits
/// for a frame is woken by that frame and by no other. Frames that other programs and other
/// endpoints of this process send arrive like those of other nodes. Extended, remote and FD frames
/// are passed over. Needs a kernel with CAN; without one every send answers `failed`, and so
/// does the first receive. The same holds for an endpoint with more than the 512 filters that a
/// kernel takes for one socket.
///
/// An interface that goes down and comes back, or is taken away and plugged in again, is picked up
/// by the endpoints that are open. So is a socket that could not be opened because the process, or
/// the system, has too many open files: sends and the first receive answer `failed`, and each use
/// of the endpoint tries again. `state` knows nothing of the interface meanwhile, and says `ok`.
class SocketCanChannel : public CanChannel {
 public:
  /// Opens nothing yet. `interface` is its name.
  explicit SocketCanChannel(std::string interface);

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override;

 private:
  const std::string interface_;
};

}  // namespace velmora_can_bridge
