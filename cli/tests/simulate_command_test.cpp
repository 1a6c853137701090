#include <gmock/gmock.h>

#include "command_line_fixture.hpp"

namespace velmora_can_bridge {
namespace {

class Simulate : public CommandLine {
 protected:
  Simulate() { plug_in(); }
};

TEST_F(Simulate, serves_all_nodes_of_the_board_until_interrupted) {
  std::vector<std::uint16_t> seen;
  // Asks each node that boots for its device type, and ends the program after the second answer.
  const auto client =
      can0.open({{0, 0}}, [&](const CanFrame& frame, std::vector<CanFrame>& answers) {
        seen.push_back(frame.id);
        if ((frame.id & 0x780) == 0x700) {
          answers.push_back({static_cast<std::uint16_t>(frame.id - 0x100), 8, {0x40, 0x00, 0x10}});
        }
        interrupted = frame.id == 0x591;
      });
  EXPECT_EQ(run({"simulate", board, "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_EQ(out,
            "simulating nodes 0x10, 0x11 on can0; pre-operational until nmt start; Ctrl-C ends "
            "it\n");
  EXPECT_EQ(err, "");
  EXPECT_EQ(seen, (std::vector<std::uint16_t>{0x710, 0x711, 0x590, 0x591}));
}

TEST_F(Simulate, bus_that_does_not_work_ends_it) {
  can0.set_state(CanStatus::interface_missing);
  EXPECT_EQ(run({"simulate", board, "--bus", "can0"}), ExitStatus::bus_fault);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err,
            "velmora-can-bridge: there is no interface can0 (ip link lists those that there "
            "are)\n");
}

TEST_F(Simulate, trouble_on_the_way_is_told_once_and_waited_out) {
  int answers_seen = 0;
  const auto client =
      can0.open({{0, 0}}, [&](const CanFrame& frame, std::vector<CanFrame>& answers) {
        if (frame.id == 0x710 || (frame.id == 0x590 && answers_seen < 300)) {
          answers.push_back({0x610, 8, {0x40, 0x00, 0x10}});
        }
        answers_seen += frame.id == 0x590 ? 1 : 0;
        interrupted = answers_seen >= 300;
      });
  can0.set_state(CanStatus::error_passive);
  EXPECT_EQ(run({"simulate", board, "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_EQ(err,
            "velmora-can-bridge: can0 is error-passive: check wiring, termination and bit rate\n");
}

TEST_F(Simulate, tells_once_that_another_device_has_the_id_of_a_node) {
  int heartbeats = 0;
  // Answers for node 0x11 as well, and goes on for as long as node 0x10 sends heartbeats.
  const auto other =
      can0.open({{0, 0}}, [&](const CanFrame& frame, std::vector<CanFrame>& answers) {
        if (frame.id == 0x711) {
          answers.push_back({0x711, 1, {0}});
          answers.push_back({0x610, 8, {0x2B, 0x17, 0x10, 0, 1, 0}});
        }
        if (frame.id == 0x710) {
          answers.push_back({0x591, 8, {0x60, 0x00, 0x20}});
          ++heartbeats;
        }
        interrupted = heartbeats >= 200;
      });
  EXPECT_EQ(run({"simulate", board, "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_EQ(err,
            "velmora-can-bridge: node 0x11: another device on can0 has this node id, and sends as "
            "well\n");
}

TEST_F(Simulate, needs_an_interface) {
  EXPECT_EQ(run({"simulate", board}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: --bus is required (see --help)\n");
  EXPECT_EQ(run({"simulate", board, "--bus", "sim"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: name the CAN interface for the simulated nodes (--bus vcan0)\n");
}

TEST_F(Simulate, needs_a_board) {
  EXPECT_EQ(run({"simulate", "/nowhere", "--bus", "can0"}), ExitStatus::bad_input);
  EXPECT_THAT(err, testing::StartsWith("/nowhere: error: "));
}

}  // namespace
}  // namespace velmora_can_bridge
