// The kernel's own interface to a CAN bus and nothing else: the floor of transfers on an interface.
#pragma once

#include <linux/can.h>

#include <cstdint>
#include <string>

namespace velmora_can_bridge {

/// A raw socket; whatever fails throws `std::system_error`.
class RawSocket {
 public:
  /// Receives frames with this identifier.
  RawSocket(const std::string& interface, std::uint16_t id);
  /// Receives nothing.
  explicit RawSocket(const std::string& interface);
  ~RawSocket();
  RawSocket(const RawSocket&) = delete;
  RawSocket(RawSocket&&) = delete;
  RawSocket& operator=(const RawSocket&) = delete;
  RawSocket& operator=(RawSocket&&) = delete;

  void send(const can_frame& frame) const;
  /// Waits for the next frame.
  can_frame receive() const;

 private:
  void bind_to(const std::string& interface) const;

  const int socket_;
};

}  // namespace velmora_can_bridge
