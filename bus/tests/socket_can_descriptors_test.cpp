// What endpoints do when the process can open no socket. Needs no CAN interface; a kernel without
// CAN has a reason of its own to refuse the socket, which comes first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "no_descriptors.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::HasSubstr;

bool has_kernel_can() {
  const int socket = ::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
  ::close(socket);
  return socket >= 0;
}

class WithoutDescriptors : public testing::Test {
 protected:
  const bool has_can = has_kernel_can();
  SocketCanChannel channel{"nowhere0"};
  std::optional<NoDescriptors> lack{std::in_place};
  std::unique_ptr<CanEndpoint> endpoint = channel.open({{0, 0}});
  CanFrame frame{0x123, 1, {1}};
};

TEST_F(WithoutDescriptors, state_does_not_call_the_interface_missing) {
  EXPECT_EQ(endpoint->state(), CanStatus::ok) << "nothing is known";
}

TEST_F(WithoutDescriptors, lack_of_descriptors_is_told_apart_from_a_missing_interface) {
  if (!has_can) {
    GTEST_SKIP() << "this kernel has no CAN";
  }
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(endpoint->send(frame, nanoseconds(0)), CanStatus::failed);
    EXPECT_THAT(endpoint->explain(CanStatus::failed),
                HasSubstr("nowhere0 cannot be used: this program has too many open files"));
  }
}

TEST_F(WithoutDescriptors, endpoint_tries_again_once_there_are_descriptors) {
  EXPECT_EQ(endpoint->send(frame, nanoseconds(0)), CanStatus::failed);
  lack.reset();

  // The interface is missing, or all of CAN.
  const CanStatus status = endpoint->send(frame, nanoseconds(0));
  EXPECT_THAT(endpoint->explain(status), HasSubstr("there is no interface nowhere0"));
}

TEST_F(WithoutDescriptors, receive_tells_the_lack_once_and_then_waits) {
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::failed);
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::timed_out);
  EXPECT_EQ(endpoint->receive(frame, milliseconds(1)), CanStatus::timed_out);
  EXPECT_EQ(frame, (CanFrame{0x123, 1, {1}}));
}

}  // namespace
}  // namespace velmora_can_bridge
