// Needs the interface that VELMORA_CAN_INTERFACE names; ./dev vcan finds one.
#include "velmora_can_bridge/bus/socket_can_channel.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "no_descriptors.hpp"
#include "socket_can_interface.hpp"
#include "support/patience.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<CanFilter> all_frames = {{0, 0}};
const CanFrame some_frame = {0x123, 2, {1, 2}};

/// Another program on the interface, which sends what our own endpoints never do.
class RawSocket {
 public:
  explicit RawSocket(const std::string& interface)
      : socket_(::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW)) {
    const int on = 1;
    EXPECT_EQ(::setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on), 0);
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the socket interface has it
    EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  RawSocket(const RawSocket&) = delete;
  RawSocket(RawSocket&&) = delete;
  RawSocket& operator=(const RawSocket&) = delete;
  RawSocket& operator=(RawSocket&&) = delete;
  ~RawSocket() { ::close(socket_); }

  /// A classical or an FD frame.
  template <typename Frame>
  void send(const Frame& frame) const {
    EXPECT_EQ(::send(socket_, &frame, sizeof frame, 0), static_cast<ssize_t>(sizeof frame));
  }

  void send_error(canid_t error, std::uint8_t controller_state) const {
    const can_frame frame{CAN_ERR_FLAG | error, {CAN_ERR_DLC}, 0, 0, 0, {0, controller_state}};
    send(frame);
  }

 private:
  const int socket_;
};

class SocketCanChannelTest : public testing::Test {
 protected:
  void send_mark() { ASSERT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::ok); }

  CanStatus receive() { return receiver->receive(frame, patience); }

  SocketCanChannel channel{test_interface()};
  std::unique_ptr<CanEndpoint> sender = channel.open({});
  std::unique_ptr<CanEndpoint> receiver = channel.open(all_frames);
  RawSocket raw{test_interface()};
  CanFrame frame;
};

TEST_F(SocketCanChannelTest, another_channel_on_the_interface_is_another_node) {
  SocketCanChannel another(test_interface());
  EXPECT_EQ(another.open({})->send(some_frame, nanoseconds(0)), CanStatus::ok);

  EXPECT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(frame, some_frame);
}

TEST_F(SocketCanChannelTest, frames_of_other_kinds_are_passed_over) {
  can_frame extended{};
  extended.can_id = CAN_EFF_FLAG | 0x123;
  raw.send(extended);
  can_frame remote{};
  remote.can_id = CAN_RTR_FLAG | 0x123;
  raw.send(remote);
  canfd_frame fd{};
  fd.can_id = 0x123;
  fd.len = 12;
  raw.send(fd);
  send_mark();

  EXPECT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(frame, some_frame);
}

TEST_F(SocketCanChannelTest, frames_that_find_the_queue_full_are_counted) {
  constexpr std::uint64_t sent = 4000;
  receiver->note_arrivals();
  const auto witness = channel.open(all_frames);
  for (std::uint64_t number = 0; number < sent; ++number) {
    send_mark();
    // One after another, so that the kernel loses none on the way.
    ASSERT_EQ(witness->receive(frame, patience), CanStatus::ok);
  }
  ASSERT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(receiver->arrival().lost, 0U) << "it came before the queue was full";

  std::uint64_t received = 1;
  while (receiver->receive(frame, milliseconds(10)) == CanStatus::ok) {
    ++received;
  }
  ASSERT_LT(received, sent);
  EXPECT_EQ(receiver->arrival().lost, sent - received) << "with no frame to tell it";
  send_mark();
  EXPECT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(receiver->arrival().lost, sent - received) << "told with the next frame";
}

TEST_F(SocketCanChannelTest, endpoint_opened_without_descriptors_has_its_filters_afterwards) {
  receiver.reset();
  {
    const NoDescriptors lack;
    receiver = channel.open({{0x124}});
    EXPECT_EQ(receiver->receive(frame, nanoseconds(0)), CanStatus::failed);
  }
  EXPECT_EQ(receiver->receive(frame, nanoseconds(0)), CanStatus::timed_out);
  send_mark();
  ASSERT_EQ(sender->send({0x124, 1, {3}}, nanoseconds(0)), CanStatus::ok);

  EXPECT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(frame, (CanFrame{0x124, 1, {3}}));
}

TEST_F(SocketCanChannelTest, arrivals_asked_for_without_descriptors_are_noted_afterwards) {
  receiver.reset();
  {
    const NoDescriptors lack;
    receiver = channel.open(all_frames);
    receiver->note_arrivals();
    EXPECT_EQ(receiver->receive(frame, nanoseconds(0)), CanStatus::failed);
  }
  EXPECT_EQ(receiver->receive(frame, nanoseconds(0)), CanStatus::timed_out);
  // The kernel begins to stamp frames a moment after it was asked to.
  EXPECT_TRUE(comes_true([this] {
    send_mark();
    std::this_thread::sleep_for(milliseconds(20));
    const auto before = receiver->now() - milliseconds(10);
    return receive() == CanStatus::ok && receiver->arrival().time < before;
  })) << "when it came, not when it was taken";
}

TEST_F(SocketCanChannelTest, arrivals_are_noted_beside_error_frames) {
  receiver->note_arrivals();
  raw.send_error(CAN_ERR_BUSOFF, 0);
  send_mark();

  EXPECT_EQ(receive(), CanStatus::bus_off);
  EXPECT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(frame, some_frame);
  EXPECT_LE(receiver->arrival().time, receiver->now());
}

/// What an error frame of the driver means.
struct ErrorCase {
  std::string name;
  canid_t error;
  std::uint8_t controller_state;
  /// `ok`: passed over.
  CanStatus told;
};

void PrintTo(const ErrorCase& row, std::ostream* out) { *out << row.name; }

class ErrorFrameTest : public SocketCanChannelTest,
                       public testing::WithParamInterface<ErrorCase> {};

TEST_P(ErrorFrameTest, is_told_once_if_it_matters) {
  raw.send_error(GetParam().error, GetParam().controller_state);
  send_mark();

  if (GetParam().told != CanStatus::ok) {
    frame = {0x7AB, 1, {9}};
    EXPECT_EQ(receive(), GetParam().told);
    EXPECT_EQ(frame, (CanFrame{0x7AB, 1, {9}})) << "left as it was";
  }
  EXPECT_EQ(receive(), CanStatus::ok);
  EXPECT_EQ(frame, some_frame);
}

INSTANTIATE_TEST_SUITE_P(
    all, ErrorFrameTest,
    testing::Values(ErrorCase{"bus_off", CAN_ERR_BUSOFF, 0, CanStatus::bus_off},
                    ErrorCase{"error_passive_sending", CAN_ERR_CRTL, CAN_ERR_CRTL_TX_PASSIVE,
                              CanStatus::error_passive},
                    ErrorCase{"error_passive_receiving", CAN_ERR_CRTL, CAN_ERR_CRTL_RX_PASSIVE,
                              CanStatus::error_passive},
                    ErrorCase{"warning", CAN_ERR_CRTL, CAN_ERR_CRTL_TX_WARNING, CanStatus::ok},
                    ErrorCase{"active_again", CAN_ERR_CRTL, CAN_ERR_CRTL_ACTIVE, CanStatus::ok},
                    ErrorCase{"no_acknowledgement", CAN_ERR_ACK, 0, CanStatus::ok},
                    ErrorCase{"protocol_error", CAN_ERR_PROT, CAN_ERR_CRTL_TX_PASSIVE,
                              CanStatus::ok}),
    [](const testing::TestParamInfo<ErrorCase>& row) { return row.param.name; });

/// A name under which no bus can be used.
struct NameCase {
  std::string name;
  std::string interface;
  CanStatus status;
  std::string text;
};

void PrintTo(const NameCase& row, std::ostream* out) { *out << row.name; }

class WrongInterfaceTest : public testing::TestWithParam<NameCase> {};

TEST_P(WrongInterfaceTest, fails_each_send_and_is_told_once_by_receives) {
  SocketCanChannel channel(GetParam().interface);
  const auto endpoint = channel.open(all_frames);
  CanFrame frame = some_frame;
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(endpoint->send(some_frame, nanoseconds(0)), GetParam().status);
    EXPECT_EQ(endpoint->explain(GetParam().status), GetParam().text);
  }
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), GetParam().status);
  EXPECT_EQ(endpoint->explain(GetParam().status), GetParam().text);
  EXPECT_EQ(endpoint->receive(frame, milliseconds(5)), CanStatus::timed_out);
  EXPECT_EQ(frame, some_frame);
}

INSTANTIATE_TEST_SUITE_P(
    all, WrongInterfaceTest,
    testing::Values(
        NameCase{"not_can", "lo", CanStatus::failed, "interface lo is no CAN interface"},
        NameCase{"missing", "can97", CanStatus::interface_missing,
                 "there is no interface can97 (ip link lists those that there are)"},
        NameCase{"virtual_missing", "vcan97", CanStatus::interface_missing,
                 "there is no interface vcan97 (ip link add dev vcan97 type vcan)"},
        NameCase{"too_long", "vcan0_and_more_than_a_name_may_have", CanStatus::interface_missing,
                 "there is no interface vcan0_and_more_than_a_name_may_have (ip link "
                 "add dev vcan0_and_more_than_a_name_may_have type vcan)"},
        NameCase{"empty", "", CanStatus::interface_missing,
                 "there is no interface  (ip link lists those that there are)"}),
    [](const testing::TestParamInfo<NameCase>& row) { return row.param.name; });

TEST(SocketCanErrorTest, refused_frame_is_explained) {
  SocketCanChannel channel(test_interface());
  const auto endpoint = channel.open({});

  EXPECT_EQ(endpoint->send({0x800, 0, {}}, nanoseconds(0)), CanStatus::failed);

  EXPECT_EQ(endpoint->explain(CanStatus::failed),
            "interface " + test_interface() + ": Invalid argument");
}

TEST(SocketCanErrorTest, kernel_takes_512_filters_and_no_more) {
  SocketCanChannel channel(test_interface());
  EXPECT_EQ(channel.open(std::vector<CanFilter>(512))->send(some_frame, nanoseconds(0)),
            CanStatus::ok);
  const auto endpoint = channel.open(std::vector<CanFilter>(513));

  EXPECT_EQ(endpoint->send(some_frame, nanoseconds(0)), CanStatus::failed);

  EXPECT_EQ(endpoint->explain(CanStatus::failed),
            "interface " + test_interface() +
                " cannot be used: 513 filters on one socket, the kernel takes 512 "
                "(CAN_RAW_FILTER_MAX)");
}

/// An interface of the test's own, which comes and goes.
class ComingAndGoingTest : public testing::Test {
 protected:
  static constexpr const char* own_interface = "vcanbridge";

  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root may add an interface";
    }
    remove_if_there();
    add();
    up();
  }
  void TearDown() override { remove_if_there(); }

  static bool run(const std::string& command) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-env33-c): a fixed command, waited for
    return std::system(command.c_str()) == 0;
  }
  static void ip_link(const std::string& change) {
    ASSERT_TRUE(run("ip link " + change)) << change;
  }
  static void add() { ip_link(std::string("add dev ") + own_interface + " type vcan"); }
  static void up() { ip_link(std::string("set ") + own_interface + " up"); }
  static void down() { ip_link(std::string("set ") + own_interface + " down"); }
  static void remove() { ip_link(std::string("del ") + own_interface); }
  static void remove_if_there() {
    if (::geteuid() == 0 && ::if_nametoindex(own_interface) != 0) {
      remove();
    }
  }

  /// What receives tell until nothing is left to tell.
  std::vector<CanStatus> told() {
    std::vector<CanStatus> statuses;
    CanFrame frame;
    for (;;) {
      const CanStatus status = receiver->receive(frame, milliseconds(1));
      if (status == CanStatus::timed_out) {
        return statuses;
      }
      statuses.push_back(status);
      if (statuses.size() == 10) {
        return statuses;
      }
    }
  }

  static void expect_frames_pass(CanEndpoint& from, CanEndpoint& to) {
    CanFrame frame;
    const auto is_back = [&] {
      from.send(some_frame, nanoseconds(0));
      return to.receive(frame, milliseconds(10)) == CanStatus::ok;
    };
    EXPECT_TRUE(comes_true(is_back));
    EXPECT_EQ(frame, some_frame);
  }

  std::future<CanStatus> start_receive() {
    return std::async(std::launch::async, [this] {
      CanFrame frame;
      return receiver->receive(frame, std::chrono::hours(1));
    });
  }

  void open() {
    sender = channel.open({});
    receiver = channel.open(all_frames);
  }

  SocketCanChannel channel{own_interface};
  std::unique_ptr<CanEndpoint> sender;
  std::unique_ptr<CanEndpoint> receiver;
};

TEST_F(ComingAndGoingTest, interface_that_goes_down_is_told_once) {
  open();
  down();

  EXPECT_THAT(told(), ElementsAre(CanStatus::interface_down));
  EXPECT_EQ(sender->send(some_frame, milliseconds(1)), CanStatus::interface_down);
  EXPECT_EQ(sender->explain(CanStatus::interface_down),
            "interface vcanbridge is down (ip link set vcanbridge up)");
}

TEST_F(ComingAndGoingTest, interface_that_comes_up_again_is_used_again) {
  open();
  down();
  told();
  EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::interface_down);
  up();

  EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::ok) << "with the first send";
  CanFrame frame;
  EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);
  EXPECT_EQ(frame, some_frame);
}

TEST_F(ComingAndGoingTest, interface_that_was_down_meanwhile_takes_the_first_frame) {
  open();
  down();
  up();

  EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::ok);
  CanFrame frame;
  EXPECT_EQ(receiver->receive(frame, patience), CanStatus::interface_down) << "told";
  EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);
}

TEST_F(ComingAndGoingTest, interface_that_goes_down_wakes_who_waits) {
  open();
  auto waiting = start_receive();
  EXPECT_TRUE(still_waits(waiting));
  down();

  ASSERT_TRUE(is_done(waiting));
  EXPECT_EQ(waiting.get(), CanStatus::interface_down);
}

TEST_F(ComingAndGoingTest, endpoint_opened_while_it_is_down_works_when_it_is_up) {
  down();
  open();
  EXPECT_THAT(told(), ElementsAre(CanStatus::interface_down));
  EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::interface_down);
  up();

  expect_frames_pass(*sender, *receiver);
}

TEST_F(ComingAndGoingTest, endpoint_opened_while_it_is_missing_works_when_it_is_there) {
  remove();
  open();
  EXPECT_THAT(told(), ElementsAre(CanStatus::interface_missing));
  EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::interface_missing);
  add();
  up();

  expect_frames_pass(*sender, *receiver);
}

TEST_F(ComingAndGoingTest, receiver_that_waits_for_a_missing_interface_gets_its_frames) {
  remove();
  open();
  told();
  auto waiting = start_receive();
  EXPECT_TRUE(still_waits(waiting));
  add();
  up();

  const auto has_come = [&] {
    sender->send(some_frame, nanoseconds(0));
    return waiting.wait_for(milliseconds(1)) == std::future_status::ready;
  };
  ASSERT_TRUE(comes_true(has_come));
  // Bound before it was up, it tells that first.
  EXPECT_THAT(waiting.get(), testing::AnyOf(CanStatus::ok, CanStatus::interface_down));
}

TEST_F(ComingAndGoingTest, interface_that_is_taken_away_is_told_once) {
  open();
  remove();

  EXPECT_THAT(told(), ElementsAre(CanStatus::interface_missing));
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::interface_missing);
}

TEST_F(ComingAndGoingTest, interface_that_is_plugged_in_again_is_picked_up) {
  open();
  for (int time = 0; time < 3; ++time) {
    remove();
    told();
    EXPECT_EQ(sender->send(some_frame, nanoseconds(0)), CanStatus::interface_missing);
    add();
    up();

    expect_frames_pass(*sender, *receiver);
    expect_frames_pass(*receiver, *channel.open(all_frames));
  }
}

TEST_F(ComingAndGoingTest, interface_exchanged_behind_the_back_is_picked_up) {
  open();
  remove();
  add();
  up();

  expect_frames_pass(*sender, *receiver);
}

TEST_F(ComingAndGoingTest, backend_tells_and_recovers) {
  down();
  std::vector<BusError> told_errors;
  CanBusBackend backend(channel, {}, [&](const BusError& error) { told_errors.push_back(error); });

  EXPECT_FALSE(backend.send_rpdo(5, 1, {}, 8));
  std::vector<std::uint8_t> data;
  EXPECT_FALSE(backend.sdo_read(5, 0x2000, 0, data));
  ASSERT_TRUE(backend.last_error(5));
  EXPECT_EQ(backend.last_error(5)->kind, BusErrorKind::bus_fault);
  EXPECT_EQ(backend.last_error(5)->text,
            "interface vcanbridge is down (ip link set vcanbridge up)");
  EXPECT_GE(told_errors.size(), 2U);

  up();
  EXPECT_TRUE(backend.send_rpdo(5, 1, {}, 8));
}

}  // namespace
}  // namespace velmora_can_bridge
