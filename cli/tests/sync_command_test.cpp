#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
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
class SyncCommand : public CommandLine {
 protected:
  SyncCommand() {
    open_interface = [this](const std::string& interface) -> std::unique_ptr<CanChannel> {
      opened.push_back(interface);
      return std::make_unique<SharedChannel>(bus);
    };
  }

  /// COB-ID and length of the frames so far.
  std::vector<std::string> frames() {
    std::vector<std::string> texts;
    CanFrame frame;
    while (bystander->receive(frame, std::chrono::nanoseconds(0)) == CanStatus::ok) {
      texts.push_back(std::to_string(frame.id) + " " + std::to_string(frame.length));
    }
    return texts;
  }

  InProcessBus bus{BusTime::real, "can0"};
  const std::unique_ptr<CanEndpoint> bystander = bus.open({{0, 0}});
};

TEST_F(SyncCommand, sends_so_many_frames) {
  EXPECT_EQ(run({"sync", "--bus", "can0", "--period", "1", "--count", "3"}), ExitStatus::success);
  EXPECT_THAT(opened, ElementsAre("can0"));
  EXPECT_THAT(frames(), ElementsAre("128 0", "128 0", "128 0"));
  EXPECT_EQ(out, "sending the SYNC on can0 every 1 ms; Ctrl-C ends it\nsent 3 frames\n");
  EXPECT_EQ(err, "");
}

TEST_F(SyncCommand, runs_until_interrupted_without_a_count) {
  int seen = 0;
  const auto node =
      bus.open({{0x080}}, [&](const CanFrame& /*frame*/, std::vector<CanFrame>& /*answers*/) {
        interrupted = ++seen == 5;
      });
  EXPECT_EQ(run({"sync", "--bus", "can0", "--period", "1"}), ExitStatus::interrupted);
  EXPECT_THAT(out, HasSubstr("\nsent 5 frames\n"));
}

TEST_F(SyncCommand, prints_json) {
  EXPECT_EQ(run({"sync", "--bus", "can0", "--period", "1", "--count", "2", "--json"}),
            ExitStatus::success);
  EXPECT_EQ(out, R"({"sent":2,"not_sent":0,"ok":true,"code":"done"})"
                 "\n");
}

TEST_F(SyncCommand, tells_that_the_interface_does_not_work) {
  bus.set_state(CanStatus::interface_missing);
  EXPECT_EQ(run({"sync", "--bus", "can0", "--period", "1"}), ExitStatus::bus_fault);
  EXPECT_THAT(err, HasSubstr("there is no interface can0"));
  EXPECT_EQ(out, "");
}

TEST_F(SyncCommand, prints_json_when_the_interface_does_not_work_from_the_start) {
  bus.set_state(CanStatus::interface_missing);
  EXPECT_EQ(run({"sync", "--bus", "can0", "--period", "1", "--json"}), ExitStatus::bus_fault);
  EXPECT_EQ(out, R"({"sent":0,"not_sent":1,"ok":false,"code":"bus_fault"})"
                 "\n");
}

TEST_F(SyncCommand, shows_the_interface_so_that_a_terminal_obeys_nothing_in_it) {
  EXPECT_EQ(run({"sync", "--bus", "c\u200B0", "--period", "1", "--count", "1"}),
            ExitStatus::success);
  EXPECT_THAT(out, HasSubstr(R"(the SYNC on c\u200B0 every)"));
}

TEST_F(SyncCommand, refuses_the_simulated_bus) {
  EXPECT_EQ(run({"sync", "--bus", "sim", "--period", "1"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: name a CAN interface (--bus can0): nothing is simulated here\n");
}

TEST_F(SyncCommand, refuses_what_it_cannot_send) {
  struct Case {
    std::vector<std::string> arguments;
    std::string culprit;
  };
  for (const Case& row :
       {Case{{"--bus", "can0"}, "--period"}, Case{{"--period", "1"}, "--bus"},
        Case{{"--bus", "can0", "--period", "0"}, "--period"},
        Case{{"--bus", "can0", "--period", "3600001"}, "--period"},
        Case{{"--bus", "can0", "--period", "0.5"}, "--period"},
        Case{{"--bus", "can0", "--period", "010"}, "--period: \"010\" begins with 0"},
        Case{{"--bus", "--json", "--period", "1"}, "--bus: \"--json\" is no name of an interface"},
        Case{{"--bus", "can0", "--period", "1", "--count", "010"}, "--count"},
        Case{{"--bus", "can0", "--period", "1", "--count", "0"}, "--count"}}) {
    std::vector<std::string> arguments{"sync"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    EXPECT_EQ(run(arguments), ExitStatus::bad_input);
    EXPECT_THAT(err, HasSubstr(row.culprit));
  }
  EXPECT_THAT(frames(), IsEmpty());
}

}  // namespace
}  // namespace velmora_can_bridge
