#include "velmora_can_bridge/bridge/tracing_channel.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <utility>

#include "temporary_file.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class TracingChannelTest : public testing::Test {
 protected:
  /// The lines of the log, without times.
  std::vector<std::string> lines() const {
    std::istringstream stream(file.text());
    std::vector<std::string> read;
    for (std::string line; std::getline(stream, line);) {
      read.push_back(line.substr(line.find(' ') + 1));
    }
    return read;
  }

  TemporaryFile file;
  InProcessBus bus{BusTime::simulated, "can0"};
  std::unique_ptr<FrameLog> log = std::move(*FrameLog::open(file.path(), "can0"));
  TracingChannel channel{bus, *log};
  const std::unique_ptr<CanEndpoint> endpoint = channel.open({{0x123}});
  const std::unique_ptr<CanEndpoint> other = bus.open({{0, 0}});
  CanFrame frame;
};

TEST_F(TracingChannelTest, logs_what_it_sends_and_receives_in_order) {
  EXPECT_EQ(endpoint->send({0x201, 1, {1}}, nanoseconds(0)), CanStatus::ok);
  other->send({0x123, 1, {2}}, nanoseconds(0));
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::ok);
  EXPECT_EQ(frame.data[0], 2);
  EXPECT_THAT(lines(), ElementsAre("can0 201#01", "can0 123#02"));
  EXPECT_EQ(other->receive(frame, nanoseconds(0)), CanStatus::ok);
  EXPECT_EQ(frame.id, 0x201);
}

TEST_F(TracingChannelTest, logs_no_frame_that_was_not_sent) {
  bus.set_state(CanStatus::interface_down);
  EXPECT_EQ(endpoint->send({0x201, 1, {1}}, nanoseconds(0)), CanStatus::interface_down);
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TracingChannelTest, logs_no_frame_that_did_not_come) {
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::timed_out);
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TracingChannelTest, logs_no_frame_that_no_endpoint_takes) {
  other->send({0x124, 1, {2}}, nanoseconds(0));
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::timed_out);
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TracingChannelTest, passes_on_all_else) {
  EXPECT_EQ(endpoint->state(), CanStatus::ok);
  bus.set_state(CanStatus::interface_down);
  EXPECT_EQ(endpoint->state(), CanStatus::interface_down);
  EXPECT_EQ(endpoint->explain(CanStatus::interface_down),
            other->explain(CanStatus::interface_down));
  EXPECT_EQ(endpoint->now(), other->now());
}

TEST_F(TracingChannelTest, passes_on_when_a_frame_has_come) {
  endpoint->note_arrivals();
  const auto sent = other->now();
  other->send({0x123, 0, {}}, nanoseconds(0));
  other->receive(frame, milliseconds(30));  // time passes
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::ok);
  EXPECT_EQ(endpoint->arrival().time, sent);
  EXPECT_EQ(other->now() - sent, milliseconds(30));
}

}  // namespace
}  // namespace velmora_can_bridge
