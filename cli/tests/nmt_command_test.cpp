#include <gtest/gtest.h>

#include "command_line_fixture.hpp"

namespace velmora_can_bridge {
namespace {

class Nmt : public CommandLine {
 protected:
  Nmt() { plug_in(); }
};

TEST_F(Nmt, sends_one_frame) {
  struct Case {
    std::string command;
    std::string node;
    std::uint8_t specifier;
    std::uint8_t node_id;
    std::string to;
  };
  const std::vector<Case> cases{
      {"start", "0x10", 1, 0x10, "node 0x10"},
      {"stop", "127", 2, 0x7F, "node 0x7F"},
      {"pre-operational", "1", 128, 1, "node 0x01"},
      {"reset-node", "all", 129, 0, "all nodes"},
      {"reset-communication", "all", 130, 0, "all nodes"},
  };
  const auto listener = can0.open({{0, 0}});
  for (const Case& row : cases) {
    SCOPED_TRACE(row.command);
    EXPECT_EQ(run({"nmt", row.command, row.node, "--bus", "can0"}), ExitStatus::success);
    EXPECT_EQ(out, "sent " + row.command + " to " + row.to +
                       "; nodes do not confirm it, their heartbeats show it\n");
    CanFrame frame;
    ASSERT_EQ(listener->receive(frame, std::chrono::nanoseconds(0)), CanStatus::ok);
    EXPECT_EQ(frame.id, 0);
    EXPECT_EQ(frame.length, 2);
    EXPECT_EQ(frame.data[0], row.specifier);
    EXPECT_EQ(frame.data[1], row.node_id);
    EXPECT_EQ(listener->receive(frame, std::chrono::nanoseconds(0)), CanStatus::timed_out);
  }
}

TEST_F(Nmt, prints_json) {
  run({"nmt", "start", "all", "--bus", "can0", "--json"});
  EXPECT_EQ(out, R"({"command":"start","node_id":0,"ok":true,"code":"done"})"
                 "\n");
  can0.set_state(CanStatus::interface_missing);
  EXPECT_EQ(run({"nmt", "start", "1", "--bus", "can0", "--json"}), ExitStatus::bus_fault);
  EXPECT_EQ(out, R"({"command":"start","node_id":1,"ok":false,"code":"bus_fault",)"
                 R"~("reason":"there is no interface can0 (ip link lists those that there are)"})~"
                 "\n");
}

TEST_F(Nmt, frame_that_was_not_sent_is_a_bus_fault) {
  can0.set_state(CanStatus::interface_missing);
  EXPECT_EQ(run({"nmt", "start", "1", "--bus", "can0"}), ExitStatus::bus_fault);
  EXPECT_EQ(err,
            "failed: not sent (there is no interface can0 (ip link lists those that there are))\n");
}

TEST_F(Nmt, names_what_is_wrong_with_its_arguments) {
  struct Case {
    std::vector<std::string> arguments;
    std::string text;
  };
  const std::vector<Case> cases{
      {{"nmt", "begin", "1"},
       "unknown command \"begin\", expected start, stop, pre-operational, reset-node or "
       "reset-communication"},
      {{"nmt", "start", "0"},
       "node id \"0\" is not a number from 1 to 127, decimal or 0x hexadecimal"},
      {{"nmt", "start", "0x80"},
       "node id \"0x80\" is not a number from 1 to 127, decimal or 0x hexadecimal"},
      {{"nmt", "start", "every"},
       "node id \"every\" is not a number from 1 to 127, decimal or 0x hexadecimal"},
      {{"nmt", "start", "1"},
       "nothing to simulate: name a board file (--board FILE), or a CAN interface (--bus can0)"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(run(row.arguments), ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: " + row.text + "\n");
    EXPECT_EQ(out, "");
  }
}

TEST_F(Nmt, practises_on_a_simulated_board) {
  EXPECT_EQ(run({"nmt", "stop", "0x10", "--board", board}), ExitStatus::success);
  EXPECT_EQ(out, "sent stop to node 0x10; nodes do not confirm it, their heartbeats show it\n");
  EXPECT_EQ(run({"nmt", "stop", "0x10", "--board", "/nowhere"}), ExitStatus::bad_input);
}

}  // namespace
}  // namespace velmora_can_bridge
