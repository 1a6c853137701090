// What endpoints ask of the kernel, and what they make of its refusals. Needs no CAN interface.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "fake_can_kernel.hpp"
#include "support/patience.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

const CanFrame some_frame{0x123, 2, {1, 2}};

can_frame kernel_frame() {
  can_frame frame{};
  frame.can_id = 0x123;
  frame.len = 2;
  frame.data[0] = 1;
  frame.data[1] = 2;
  return frame;
}

bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) >= 0; }

class SocketCanCallsTest : public testing::Test {
 protected:
  void open(const std::vector<CanFilter>& filters = {{0, 0}}) { endpoint = channel.open(filters); }

  CanStatus send(nanoseconds patience) { return endpoint->send(some_frame, patience); }

  CanStatus receive(nanoseconds timeout) { return endpoint->receive(frame, timeout); }

  FakeCanKernel kernel;
  SocketCanChannel channel{"lo"};
  std::unique_ptr<CanEndpoint> endpoint;
  CanFrame frame;
};

// Descriptors

TEST_F(SocketCanCallsTest, socket_is_not_left_to_programs_that_are_started) {
  open();
  EXPECT_EQ(::fcntl(kernel.seen().sockets.at(0), F_GETFD), FD_CLOEXEC);
}

TEST_F(SocketCanCallsTest, socket_is_closed_with_the_endpoint) {
  open();
  ASSERT_TRUE(is_open(kernel.seen().sockets.at(0)));

  endpoint.reset();

  EXPECT_FALSE(is_open(kernel.seen().sockets.at(0)));
}

TEST_F(SocketCanCallsTest, socket_that_could_not_be_bound_is_kept) {
  kernel.script.bind = {EPERM};
  open();

  EXPECT_EQ(send(nanoseconds(0)), CanStatus::ok);

  EXPECT_THAT(kernel.seen().sockets, SizeIs(1));
  EXPECT_EQ(kernel.seen().binds, 2U);
}

TEST_F(SocketCanCallsTest, two_threads_open_one_socket) {
  kernel.script.socket = {EMFILE};
  open();
  kernel.script.opening = milliseconds(50);
  std::atomic<bool> begun{false};
  auto sent = std::async(std::launch::async, [&] {
    begun = true;
    return send(nanoseconds(0));
  });
  EXPECT_TRUE(comes_true([&] { return begun.load(); }));

  receive(nanoseconds(0));

  EXPECT_EQ(sent.get(), CanStatus::ok);
  EXPECT_EQ(kernel.seen().opening_at_once, 1U);
  EXPECT_THAT(kernel.seen().sockets, SizeIs(1));
  EXPECT_EQ(kernel.seen().binds, 1U);
}

// Filters

TEST_F(SocketCanCallsTest, kernel_lets_data_frames_with_short_identifiers_through) {
  open({{0x123, 0x7FF}, {0x180, 0xFF80}});

  const auto is = [](canid_t id, canid_t mask) {
    return AllOf(Field(&can_filter::can_id, id), Field(&can_filter::can_mask, mask));
  };
  EXPECT_THAT(kernel.seen().filters, ElementsAre(is(0x123, 0xC00007FF), is(0x180, 0xC0000780)));
  EXPECT_EQ(kernel.seen().errors, CAN_ERR_BUSOFF | CAN_ERR_CRTL);
}

TEST_F(SocketCanCallsTest, endpoint_that_only_sends_hears_no_errors) {
  open({});
  EXPECT_THAT(kernel.seen().filters, IsEmpty());
  EXPECT_EQ(kernel.seen().errors, 0U);
}

TEST_F(SocketCanCallsTest, takes_as_many_filters_as_the_kernel) {
  open(std::vector<CanFilter>(512));
  EXPECT_EQ(send(nanoseconds(0)), CanStatus::ok);
  EXPECT_THAT(kernel.seen().filters, SizeIs(512));
}

TEST_F(SocketCanCallsTest, more_filters_than_the_kernel_takes_are_told_with_its_limit) {
  open(std::vector<CanFilter>(513));
  const std::string told =
      "interface lo cannot be used: 513 filters on one socket, the kernel takes 512 "
      "(CAN_RAW_FILTER_MAX)";

  EXPECT_EQ(send(nanoseconds(0)), CanStatus::failed);
  EXPECT_EQ(endpoint->explain(CanStatus::failed), told);
  EXPECT_EQ(receive(nanoseconds(0)), CanStatus::failed);
  EXPECT_EQ(endpoint->explain(CanStatus::failed), told);
  EXPECT_EQ(endpoint->explain(CanStatus::ok), "interface lo works");
}

TEST_F(SocketCanCallsTest, other_refusals_are_not_blamed_on_the_filters) {
  kernel.script.socket = {EMFILE};
  open(std::vector<CanFilter>(513));
  EXPECT_THAT(endpoint->explain(CanStatus::failed), testing::HasSubstr("too many open files"));

  open(std::vector<CanFilter>(512));
  kernel.script.send = {EINVAL};
  EXPECT_EQ(send(nanoseconds(0)), CanStatus::failed);
  EXPECT_EQ(endpoint->explain(CanStatus::failed), "interface lo: Invalid argument");
}

// Sending

struct SendCase {
  std::string name;
  std::deque<int> errors;
  nanoseconds patience;
  CanStatus status;
  std::size_t attempts;
  std::size_t binds;
};

void PrintTo(const SendCase& row, std::ostream* out) { *out << row.name; }

class SocketCanSendTest : public SocketCanCallsTest,
                          public testing::WithParamInterface<SendCase> {};

TEST_P(SocketCanSendTest, tries_as_often_as_it_helps) {
  open();
  kernel.script.send = GetParam().errors;

  EXPECT_EQ(send(GetParam().patience), GetParam().status);

  EXPECT_THAT(kernel.seen().sent, SizeIs(GetParam().attempts));
  EXPECT_THAT(kernel.seen().sent,
              Each(AllOf(Field(&can_frame::can_id, 0x123U), Field(&can_frame::len, 2))));
  EXPECT_EQ(kernel.seen().binds, GetParam().binds);
  EXPECT_THAT(kernel.script.send, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    all, SocketCanSendTest,
    testing::Values(
        SendCase{"taken", {0}, nanoseconds(0), CanStatus::ok, 1, 1},
        SendCase{
            "full_queue_of_the_device", {ENOBUFS}, nanoseconds(0), CanStatus::queue_full, 1, 1},
        SendCase{
            "full_buffer_of_the_socket", {EAGAIN}, nanoseconds(0), CanStatus::queue_full, 1, 1},
        SendCase{"no_patience", {ENOBUFS}, milliseconds(-1), CanStatus::queue_full, 1, 1},
        SendCase{"room_in_time", {ENOBUFS, EAGAIN, ENOBUFS, 0}, hours(1), CanStatus::ok, 4, 1},
        SendCase{"endless_patience", {ENOBUFS, 0}, nanoseconds::max(), CanStatus::ok, 2, 1},
        SendCase{
            "other_trouble_while_waiting", {ENOBUFS, EPERM}, hours(1), CanStatus::failed, 2, 1},
        SendCase{"down", {ENETDOWN, ENETDOWN}, hours(1), CanStatus::interface_down, 2, 1},
        SendCase{"was_down", {ENETDOWN, 0}, nanoseconds(0), CanStatus::ok, 2, 1},
        SendCase{"gone", {ENODEV, ENODEV}, hours(1), CanStatus::interface_missing, 2, 2},
        SendCase{"was_gone", {ENXIO, 0}, nanoseconds(0), CanStatus::ok, 2, 2},
        SendCase{"full_after_it_was_down", {ENETDOWN, ENOBUFS, 0}, hours(1), CanStatus::ok, 3, 1},
        SendCase{"refused", {EPERM}, hours(1), CanStatus::failed, 1, 1}),
    [](const testing::TestParamInfo<SendCase>& row) { return row.param.name; });

TEST_F(SocketCanCallsTest, full_queue_is_tried_again_until_the_patience_is_over) {
  open();
  kernel.script.send = std::deque<int>(100000, ENOBUFS);

  EXPECT_EQ(send(milliseconds(2)), CanStatus::queue_full);

  EXPECT_GT(kernel.seen().sent.size(), 1U);
  EXPECT_EQ(send(nanoseconds(0)), CanStatus::queue_full) << "it is still full";
}

// Receiving

struct InterruptedCase {
  std::string name;
  nanoseconds timeout;
  /// Whether the receive after the signal may still wait.
  bool waits_on;
};

void PrintTo(const InterruptedCase& row, std::ostream* out) { *out << row.name; }

class SocketCanInterruptedTest : public SocketCanCallsTest,
                                 public testing::WithParamInterface<InterruptedCase> {};

TEST_P(SocketCanInterruptedTest, receive_goes_on) {
  open();
  kernel.script.receive = {EINTR, EINTR, 0};
  kernel.script.arriving = {kernel_frame()};

  EXPECT_EQ(receive(GetParam().timeout), CanStatus::ok);

  EXPECT_EQ(frame, some_frame);
  const auto waits = kernel.seen().waits;
  ASSERT_THAT(waits, SizeIs(3));
  EXPECT_EQ(waits.back().has_value(), GetParam().waits_on);
}

INSTANTIATE_TEST_SUITE_P(
    all, SocketCanInterruptedTest,
    testing::Values(InterruptedCase{"that_does_not_wait", nanoseconds(0), false},
                    InterruptedCase{"that_waits", hours(1), true},
                    InterruptedCase{"that_waits_for_ever", nanoseconds::max(), true}),
    [](const testing::TestParamInfo<InterruptedCase>& row) { return row.param.name; });

TEST_F(SocketCanCallsTest, signals_do_not_make_a_receive_wait_longer) {
  open();
  kernel.script.interrupts_waits = true;

  EXPECT_EQ(receive(milliseconds(5)), CanStatus::timed_out);

  std::vector<std::optional<microseconds>> waits = kernel.seen().waits;
  ASSERT_FALSE(waits.empty());
  EXPECT_EQ(waits.front(), microseconds(5000));
  EXPECT_EQ(waits.back(), std::nullopt) << "the time is over";
  waits.pop_back();
  for (std::size_t next = 1; next < waits.size(); ++next) {
    ASSERT_TRUE(waits.at(next));
    ASSERT_LE(*waits.at(next), *waits.at(next - 1)) << "only what is left";
  }
}

struct WaitCase {
  std::string name;
  nanoseconds timeout;
  std::optional<microseconds> wait;
};

void PrintTo(const WaitCase& row, std::ostream* out) { *out << row.name; }

class SocketCanWaitTest : public SocketCanCallsTest,
                          public testing::WithParamInterface<WaitCase> {};

TEST_P(SocketCanWaitTest, is_asked_of_the_kernel) {
  open();

  EXPECT_EQ(receive(GetParam().timeout), CanStatus::timed_out);

  EXPECT_THAT(kernel.seen().waits, ElementsAre(GetParam().wait));
}

INSTANTIATE_TEST_SUITE_P(
    all, SocketCanWaitTest,
    testing::Values(WaitCase{"none", nanoseconds(0), std::nullopt},
                    WaitCase{"negative", nanoseconds(-1), std::nullopt},
                    WaitCase{"shorter_than_the_kernels_shortest", nanoseconds(1), microseconds(1)},
                    WaitCase{"microseconds", microseconds(1500), microseconds(1500)},
                    WaitCase{"seconds", milliseconds(2300), microseconds(2300000)}),
    [](const testing::TestParamInfo<WaitCase>& row) { return row.param.name; });

struct ReceiveCase {
  std::string name;
  int error;
  CanStatus status;
  std::size_t binds_afterwards;
};

void PrintTo(const ReceiveCase& row, std::ostream* out) { *out << row.name; }

class SocketCanReceiveTest : public SocketCanCallsTest,
                             public testing::WithParamInterface<ReceiveCase> {};

TEST_P(SocketCanReceiveTest, tells_trouble_and_works_on) {
  open();
  kernel.script.receive = {GetParam().error};
  frame = some_frame;

  EXPECT_EQ(receive(hours(1)), GetParam().status);
  EXPECT_EQ(frame, some_frame) << "left as it was";

  kernel.script.arriving = {kernel_frame()};
  frame = {};
  EXPECT_EQ(receive(hours(1)), CanStatus::ok);
  EXPECT_EQ(frame, some_frame);
  EXPECT_EQ(kernel.seen().binds, GetParam().binds_afterwards);
}

INSTANTIATE_TEST_SUITE_P(
    all, SocketCanReceiveTest,
    testing::Values(ReceiveCase{"time_is_over", EAGAIN, CanStatus::timed_out, 1},
                    ReceiveCase{"no_memory", ENOBUFS, CanStatus::timed_out, 1},
                    ReceiveCase{"down", ENETDOWN, CanStatus::interface_down, 1},
                    ReceiveCase{"gone", ENODEV, CanStatus::interface_missing, 2},
                    ReceiveCase{"refused", EPERM, CanStatus::failed, 1}),
    [](const testing::TestParamInfo<ReceiveCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge
