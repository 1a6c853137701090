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

TEST_F(Simulate, tells_each_fault_that_strikes_and_then_the_others) {
  const std::string script = write_file("faults.txt",
                                        "node 0x11 at 0 s: no answer from then on\n"
                                        "# node 0x10 is well at first\n"
                                        "node 0x10 after 2 reads of 0x1000/0: abort 0x08000000\n"
                                        "node 0x10 at 0 s: hold 0x6064/0\n"
                                        "node 0x10 at 3600 s: restart  # too late\n");
  std::vector<std::uint16_t> seen;
  // Asks each node that boots for its device type, node 0x10 again until it has aborted.
  const auto client =
      can0.open({{0, 0}}, [&](const CanFrame& frame, std::vector<CanFrame>& answers) {
        seen.push_back(frame.id);
        interrupted = frame.id == 0x590 && frame.data[0] == 0x80;
        if (!interrupted) {
          answers.push_back(
              {static_cast<std::uint16_t>(0x600 + frame.id % 0x80), 8, {0x40, 0x00, 0x10}});
        }
      });

  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", script}), ExitStatus::interrupted);

  EXPECT_EQ(seen, (std::vector<std::uint16_t>{0x710, 0x711, 0x590, 0x590, 0x590}));
  EXPECT_EQ(out,
            "simulating nodes 0x10, 0x11 on can0; pre-operational until nmt start; Ctrl-C ends it\n"
            "fault at 0.000 s, line 4: node 0x10 at 0 s: hold 0x6064/0\n"
            "fault at 0.000 s, line 3: node 0x10 after 2 reads of 0x1000/0: abort 0x08000000\n"
            "fault at 0.000 s, line 1: node 0x11 at 0 s: no answer from then on\n"
            "fault that never struck, line 5: node 0x10 at 3600 s: restart\n");
  EXPECT_EQ(err, "");
}

TEST_F(Simulate, tells_when_a_fault_strikes) {
  const std::string script = write_file("faults.txt", "node 0x11 at 12.345 s: restart\n");
  int booted = 0;
  const auto client =
      can0.open({{0x711}}, [&](const CanFrame& /*frame*/, std::vector<CanFrame>& /*answers*/) {
        interrupted = ++booted == 2;
      });

  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", script}), ExitStatus::interrupted);

  EXPECT_THAT(out,
              testing::EndsWith("\nfault at 12.345 s, line 1: node 0x11 at 12.345 s: restart\n"));
}

TEST_F(Simulate, starts_nothing_when_the_script_has_mistakes) {
  const std::string script = write_file("faults.txt",
                                        "node 0x12 at 1 s: restart\n"
                                        "node 0x10 at 1 s: restart\n"
                                        "node 0x10 at 1 s: hold 0x5FFF/0\n");
  std::vector<std::uint16_t> seen;
  const auto client = can0.open(
      {{0, 0}}, [&](const CanFrame& frame, std::vector<CanFrame>&) { seen.push_back(frame.id); });

  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", script}), ExitStatus::bad_input);

  EXPECT_EQ(err, script + ":1:6: error: no node 0x12 is simulated, expected 0x10 or 0x11\n" +
                     script + ":3:24: error: node 0x10 has no object 0x5FFF/0\n");
  EXPECT_EQ(out, "");
  EXPECT_THAT(seen, testing::IsEmpty());
  EXPECT_THAT(opened, testing::IsEmpty());
}

TEST_F(Simulate, needs_a_script_that_can_be_read) {
  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", "/nowhere"}),
            ExitStatus::bad_input);
  EXPECT_EQ(err, "/nowhere: error: cannot be read: No such file or directory\n");
  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", folder.string()}),
            ExitStatus::bad_input);
  EXPECT_EQ(err, folder.string() + ": error: cannot be read: Is a directory\n");
  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", "/dev/zero"}),
            ExitStatus::bad_input);
  EXPECT_EQ(err, "/dev/zero: error: the file is larger than 2000000 bytes\n");
  EXPECT_EQ(run({"simulate", board, "--bus", "can0", "--script", "--for"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: --script: \"--for\" names no script (see --help)\n");
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
