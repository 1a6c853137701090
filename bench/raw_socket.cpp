#include "raw_socket.hpp"

#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace velmora_can_bridge {
namespace {

/// Throws unless it is so.
void require(bool done, const char* what) {
  if (!done) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

int open_socket() {
  const int socket = ::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
  require(socket >= 0, "cannot open a CAN socket");
  return socket;
}

}  // namespace

RawSocket::RawSocket(const std::string& interface, std::uint16_t id) : socket_(open_socket()) {
  const can_filter filter{id, CAN_SFF_MASK | CAN_EFF_FLAG | CAN_RTR_FLAG};
  require(::setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_FILTER, &filter, sizeof filter) == 0,
          "cannot set a filter");
  bind_to(interface);
}

RawSocket::RawSocket(const std::string& interface) : socket_(open_socket()) {
  require(::setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_FILTER, nullptr, 0) == 0,
          "cannot set no filter");
  bind_to(interface);
}

RawSocket::~RawSocket() { ::close(socket_); }

void RawSocket::send(const can_frame& frame) const {
  require(::write(socket_, &frame, sizeof frame) == sizeof frame, "cannot send a frame");
}

can_frame RawSocket::receive() const {
  can_frame frame{};
  require(::read(socket_, &frame, sizeof frame) == sizeof frame, "cannot receive a frame");
  return frame;
}

void RawSocket::bind_to(const std::string& interface) const {
  sockaddr_can address{};
  address.can_family = AF_CAN;
  address.can_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
  require(address.can_ifindex != 0, "no such CAN interface");
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the socket interface has it
  const auto* const to = reinterpret_cast<const sockaddr*>(&address);
  require(::bind(socket_, to, sizeof address) == 0, "cannot bind to the CAN interface");
}

}  // namespace velmora_can_bridge
