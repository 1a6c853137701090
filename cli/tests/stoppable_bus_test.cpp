#include "stoppable_bus.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "scripted_channel.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

/// The user interrupts as soon as a request is sent; no answer comes.
class StoppableBusTest : public testing::Test {
 protected:
  void SetUp() override {
    script.on_send = [this] { interrupted = true; };
  }

  Script script;
  ScriptedChannel channel{script};
  std::atomic<bool> interrupted{false};
  std::ostringstream out;
  std::ostringstream err;
  const CommandLineHost host{out, err, false, {}, {}, &interrupted};
  StoppableBus bus{host, channel};
  std::vector<std::uint8_t> data;
};

TEST_F(StoppableBusTest, rounds_the_rest_of_the_wait_up) {
  script.lateness = std::chrono::microseconds(100);
  EXPECT_FALSE(bus.sdo_read(0x10, 0x2000, 1, data));
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 480 ms\n");
}

TEST_F(StoppableBusTest, says_once_what_it_waits_for) {
  script.news = {{milliseconds(30), CanStatus::error_passive}};
  EXPECT_FALSE(bus.sdo_read(0x10, 0x2000, 1, data));
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 480 ms\n"
            "velmora-can-bridge: state 6\n");
}

TEST_F(StoppableBusTest, says_what_it_still_waits_for_after_a_passing_trouble) {
  script.news = {{milliseconds(10), CanStatus::error_passive}};
  EXPECT_FALSE(bus.sdo_read(0x10, 0x2000, 1, data));
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: state 6\n"
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 470 ms\n");
}

TEST_F(StoppableBusTest, failure_before_the_interruption_stays_as_it_was) {
  script.on_send = [] {};
  EXPECT_FALSE(bus.sdo_read(0x10, 0x2000, 1, data));
  interrupted = true;
  EXPECT_EQ(bus.last_error().kind, BusErrorKind::no_answer);
  EXPECT_EQ(bus.last_error().text, "no answer within 500 ms");
}

TEST_F(StoppableBusTest, call_after_the_interruption_tells_what_was_asked_and_nothing_else) {
  interrupted = true;
  EXPECT_FALSE(bus.sdo_write(0x10, 0x2000, 1, {1}));
  EXPECT_EQ(bus.last_error().kind, BusErrorKind::stopped);
  EXPECT_EQ(bus_error_text(bus.last_error()), "node 0x10, object 0x2000/1: interrupted");
  EXPECT_FALSE(bus.last_error().outcome_unknown);
  EXPECT_FALSE(bus.send_rpdo(0x11, 1, {}, 1));
  EXPECT_EQ(bus_error_text(bus.last_error()), "node 0x11: interrupted");
  EXPECT_EQ(err.str(), "");
}

TEST_F(StoppableBusTest, unknown_outcome_is_kept_beside_the_interruption) {
  EXPECT_FALSE(bus.sdo_write(0x10, 0x2000, 1, {1}));
  EXPECT_EQ(bus.last_error().kind, BusErrorKind::stopped);
  EXPECT_TRUE(bus.last_error().outcome_unknown);
  EXPECT_EQ(bus.last_error().text,
            "interrupted; no answer within 500 ms; whether the node has taken the value is "
            "unknown");
}

}  // namespace
}  // namespace velmora_can_bridge
