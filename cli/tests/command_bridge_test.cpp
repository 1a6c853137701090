#include "command_bridge.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "scripted_channel.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

/// The user interrupts as soon as a request is sent; no answer comes.
class CommandBridgeTest : public testing::Test {
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
  CommandBridge bridge{host, channel, {}};
};

TEST_F(CommandBridgeTest, rounds_the_rest_of_the_wait_up) {
  script.lateness = std::chrono::microseconds(100);
  const auto read = bridge.ask([](Bridge& board) { return board.read_object(0x10, 0x2000, 1); });
  ASSERT_FALSE(read);
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 480 ms\n");
}

TEST_F(CommandBridgeTest, says_once_what_it_waits_for) {
  script.news = {{milliseconds(30), CanStatus::error_passive}};
  const auto read = bridge.ask([](Bridge& board) { return board.read_object(0x10, 0x2000, 1); });
  ASSERT_FALSE(read);
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 480 ms\n"
            "velmora-can-bridge: state 6\n");
}

TEST_F(CommandBridgeTest, says_what_it_still_waits_for_after_a_passing_trouble) {
  script.news = {{milliseconds(10), CanStatus::error_passive}};
  const auto read = bridge.ask([](Bridge& board) { return board.read_object(0x10, 0x2000, 1); });
  ASSERT_FALSE(read);
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 470 ms\n"
            "velmora-can-bridge: state 6\n");
}

TEST_F(CommandBridgeTest, failure_before_the_interruption_stays_as_it_was) {
  script.on_send = [] {};
  const auto read = bridge.ask([](Bridge& board) { return board.read_object(0x10, 0x2000, 1); });
  ASSERT_FALSE(read);
  interrupted = true;
  EXPECT_EQ(read.error().kind, BusErrorKind::no_answer);
  EXPECT_EQ(read.error().text, "no answer within 500 ms");
}

TEST_F(CommandBridgeTest, call_after_the_interruption_tells_what_was_asked_and_nothing_else) {
  interrupted = true;
  const auto error =
      bridge.ask([](Bridge& board) { return board.write_object(0x10, 0x2000, 1, {1}); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::stopped);
  EXPECT_EQ(bus_error_text(*error), "node 0x10, object 0x2000/1: interrupted");
  EXPECT_FALSE(error->outcome_unknown);
  EXPECT_EQ(err.str(), "");
}

TEST_F(CommandBridgeTest, unknown_outcome_is_kept_beside_the_interruption) {
  const auto error =
      bridge.ask([](Bridge& board) { return board.write_object(0x10, 0x2000, 1, {1}); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::stopped);
  EXPECT_TRUE(error->outcome_unknown);
  EXPECT_EQ(error->text,
            "interrupted; no answer within 500 ms; whether the node has taken the value is "
            "unknown");
}

}  // namespace
}  // namespace velmora_can_bridge
