#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "command_line_fixture.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The program waits by the system's clock, so the bus has to do so, too.
class HeartbeatCommand : public CommandLine {
 protected:
  HeartbeatCommand() {
    open_interface = [this](const std::string& /*interface*/) -> std::unique_ptr<CanChannel> {
      return std::make_unique<SharedChannel>(bus);
    };
  }

  /// Interrupts the program when so many frames have come.
  void interrupt_after(std::size_t frames) {
    user = bus.open({{0, 0}},
                    [this, frames](const CanFrame& frame, std::vector<CanFrame>& /*answers*/) {
                      seen.push_back(frame);
                      interrupted = seen.size() == frames;
                    });
  }

  InProcessBus bus{BusTime::real, "can0"};
  std::vector<CanFrame> seen;
  std::unique_ptr<CanEndpoint> user;
};

TEST_F(HeartbeatCommand, sends_heartbeats_until_interrupted) {
  interrupt_after(3);
  EXPECT_EQ(run({"heartbeat", "--bus", "can0", "--node", "0x7E", "--period", "1"}),
            ExitStatus::interrupted);
  ASSERT_EQ(seen.size(), 3U);
  for (const CanFrame& frame : seen) {
    EXPECT_EQ(frame.id, 0x77E);
    EXPECT_EQ(frame.length, 1);
    EXPECT_EQ(frame.data[0], 5);
  }
  EXPECT_EQ(out,
            "sending the heartbeat of node 0x7E on can0 every 1 ms; Ctrl-C ends it\n"
            "sent 3 frames\n");
}

TEST_F(HeartbeatCommand, prints_json) {
  interrupt_after(2);
  EXPECT_EQ(run({"heartbeat", "--bus", "can0", "--node", "126", "--period", "1", "--json"}),
            ExitStatus::interrupted);
  EXPECT_EQ(out, R"({"sent":2,"not_sent":0,"ok":false,"code":"interrupted"})"
                 "\n");
}

TEST_F(HeartbeatCommand, refuses_a_node_id_that_is_none) {
  interrupt_after(1);
  for (const std::string node : {"0", "128", "all"}) {
    EXPECT_EQ(run({"heartbeat", "--bus", "can0", "--node", node, "--period", "1"}),
              ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: node id \"" + node +
                       "\" is not a number from 1 to 127, decimal or 0x hexadecimal\n");
  }
  EXPECT_THAT(seen, IsEmpty());
}

TEST_F(HeartbeatCommand, refuses_the_simulated_bus) {
  EXPECT_EQ(run({"heartbeat", "--bus", "sim", "--node", "1", "--period", "1"}),
            ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: name a CAN interface (--bus can0): nothing is simulated here\n");
}

TEST_F(HeartbeatCommand, needs_all_of_its_options) {
  const std::vector<std::string> whole{"--bus", "can0", "--node", "1", "--period", "1"};
  for (std::size_t left_out = 0; left_out < whole.size(); left_out += 2) {
    std::vector<std::string> arguments = whole;
    arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(left_out),
                    arguments.begin() + static_cast<std::ptrdiff_t>(left_out + 2));
    arguments.insert(arguments.begin(), "heartbeat");
    EXPECT_EQ(run(arguments), ExitStatus::bad_input);
    EXPECT_THAT(err, HasSubstr(whole[left_out]));
  }
}

/// A consumer begins to watch with the first heartbeat, and would stop its node after the command.
TEST_F(CommandLine, no_command_for_one_thing_sends_heartbeats) {
  plug_in();
  const NodeOnBus wheel(can0, 0x10);
  const NodeOnBus claw(can0, 0x11);
  const auto bystander = can0.open({{0x700, 0x780}});
  run({"sdo", "read", "0x10", "0x1000", "0", "--bus", "can0"});
  run({"sdo", "write", "0x10", "0x1016", "1", "u32:0x007E01F4", "--bus", "can0"});
  run({"nmt", "start", "all", "--bus", "can0"});
  run({"run", board, "wheel", "read_identity", "--bus", "can0"});
  run({"check", board, "--bus", "can0"});
  EXPECT_THAT(opened, ElementsAre("can0", "can0", "can0", "can0", "can0"));
  CanFrame frame;
  EXPECT_EQ(bystander->receive(frame, std::chrono::nanoseconds(0)), CanStatus::timed_out);
}

}  // namespace
}  // namespace velmora_can_bridge
