#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::HasSubstr;

constexpr const char* watched_board = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
    pdos:
      - {number: 1, direction: TPDO, mappings: [{index: 0x6041, bit_length: 16}]}
)";

/// What a receive finds, and when.
struct Step {
  milliseconds after{0};
  CanStatus status = CanStatus::ok;
  CanFrame frame;
  /// Called when it is found.
  std::function<void()> then = nullptr;
};

/// Plays steps, then only lets time pass. The clock moves when somebody waits.
class PlayedEndpoint : public CanEndpoint {
 public:
  explicit PlayedEndpoint(std::deque<Step>& steps) : steps_(&steps) {}

  CanStatus send(const CanFrame& /*frame*/, nanoseconds /*patience*/) override {
    ADD_FAILURE() << "watching sends nothing";
    return CanStatus::failed;
  }
  CanStatus receive(CanFrame& frame, nanoseconds timeout) override {
    if (steps_->empty() || now_ + timeout < due_ + steps_->front().after) {
      now_ += timeout;
      return CanStatus::timed_out;
    }
    const Step step = steps_->front();
    steps_->pop_front();
    due_ += step.after;
    now_ = std::max(now_, due_);
    frame = step.status == CanStatus::ok ? step.frame : frame;
    if (step.then) {
      step.then();
    }
    return step.status;
  }
  std::chrono::steady_clock::time_point now() const override {
    return std::chrono::steady_clock::time_point(now_);
  }
  std::string explain(CanStatus status) const override {
    return "state " + std::to_string(static_cast<int>(status));
  }

 private:
  std::deque<Step>* const steps_;
  nanoseconds now_{0};
  nanoseconds due_{0};
};

class PlayedChannel : public CanChannel {
 public:
  explicit PlayedChannel(std::deque<Step>& steps) : steps_(&steps) {}
  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    for (unsigned id = 0; id <= 0x7FF; ++id) {
      const bool passes = std::any_of(filters.begin(), filters.end(), [&](const CanFilter& filter) {
        return ((id ^ filter.id) & filter.mask) == 0;
      });
      EXPECT_TRUE(passes) << id;
    }
    return std::make_unique<PlayedEndpoint>(*steps_);
  }

 private:
  std::deque<Step>* const steps_;
};

/// Counts how often what was written is handed on.
class CountingBuffer : public std::stringbuf {
 public:
  int flushes = 0;

 protected:
  int sync() override {
    ++flushes;
    return std::stringbuf::sync();
  }
};

class WatchCommand : public testing::Test {
 protected:
  WatchCommand() {
    const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
    folder = std::filesystem::path(testing::TempDir()) / ("velmora_watch_" + test);
    std::filesystem::create_directories(folder);
    board = (folder / "board.yaml").string();
    std::ofstream(board) << watched_board;
  }

  void TearDown() override { std::filesystem::remove_all(folder); }

  ExitStatus watch(const std::vector<std::string>& more = {"--for", "3"}) {
    std::vector<std::string> arguments{"watch", board, "--bus", "can7"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    std::ostream out_stream(&buffer);
    std::ostringstream err_stream;
    CommandLineHost host{out_stream, err_stream, false, {}, {}, &interrupted};
    host.open_interface = [&](const std::string& interface) {
      opened = interface;
      return std::make_unique<PlayedChannel>(steps);
    };
    const ExitStatus status = run_command_line(arguments, host);
    out = buffer.str();
    err = err_stream.str();
    return status;
  }

  std::filesystem::path folder;
  std::string board;
  std::deque<Step> steps;
  std::atomic<bool> interrupted{false};
  CountingBuffer buffer;
  std::string opened;
  std::string out;
  std::string err;
};

const CanFrame boot_up{0x710, 1, {0}};
const CanFrame operational{0x710, 1, {5}};
const CanFrame stopped{0x710, 1, {4}};
const CanFrame statusword{0x190, 2, {0x37, 0x02}};

TEST_F(WatchCommand, shows_each_frame_with_its_time) {
  steps = {{milliseconds(0), CanStatus::ok, boot_up},
           {milliseconds(250), CanStatus::ok, statusword},
           {milliseconds(1000), CanStatus::ok, {0x633, 8, {0x40, 0x08, 0x10, 0}}}};
  EXPECT_EQ(watch(), ExitStatus::success);
  EXPECT_EQ(opened, "can7");
  EXPECT_EQ(out,
            "   0.000  node 0x10  boot-up\n"
            "   0.250  node 0x10  TPDO 1     wheel 0x6041/0 = 37 02 (567, Operation enabled)\n"
            "   1.250  node 0x33 (not in the board file)  SDO        read 0x1008/0\n");
  EXPECT_EQ(err, "");
}

TEST_F(WatchCommand, flushes_each_line) {
  steps = {{milliseconds(0), CanStatus::ok, statusword},
           {milliseconds(1), CanStatus::ok, statusword}};
  watch();
  EXPECT_EQ(buffer.flushes, 2);
}

TEST_F(WatchCommand, shows_heartbeats_only_when_the_state_changes) {
  steps = {{milliseconds(0), CanStatus::ok, operational},
           {milliseconds(1), CanStatus::ok, operational},
           {milliseconds(1), CanStatus::ok, stopped},
           {milliseconds(1), CanStatus::ok, boot_up},
           {milliseconds(1), CanStatus::ok, boot_up},
           {milliseconds(1), CanStatus::ok, {0x710, 2, {5, 5}}}};
  watch();
  EXPECT_EQ(out,
            "   0.000  node 0x10  heartbeat  operational\n"
            "   0.002  node 0x10  heartbeat  stopped\n"
            "   0.003  node 0x10  boot-up\n"
            "   0.004  node 0x10  boot-up\n"
            "   0.005  node 0x10  heartbeat  05 05 (2 bytes, a heartbeat has 1)\n");
}

TEST_F(WatchCommand, shows_all_heartbeats_as_json) {
  steps = {{milliseconds(500), CanStatus::ok, operational},
           {milliseconds(500), CanStatus::ok, operational}};
  EXPECT_EQ(watch({"--json", "--for", "3"}), ExitStatus::success);
  std::istringstream lines(out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(nlohmann::json::parse(line)["t"], 0.5);
  EXPECT_EQ(nlohmann::json::parse(line)["changed"], true);
  std::getline(lines, line);
  EXPECT_EQ(nlohmann::json::parse(line)["t"], 1.0);
  EXPECT_EQ(nlohmann::json::parse(line)["changed"], false);
  EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(WatchCommand, ends_when_its_time_is_over) {
  steps = {{milliseconds(1499), CanStatus::ok, operational},
           {milliseconds(2), CanStatus::ok, stopped}};
  EXPECT_EQ(watch({"--for", "1.5"}), ExitStatus::success);
  EXPECT_EQ(out, "   1.499  node 0x10  heartbeat  operational\n");
}

TEST_F(WatchCommand, ends_when_interrupted) {
  steps = {{milliseconds(0), CanStatus::ok, operational},
           {milliseconds(5000), CanStatus::ok, stopped, [&] { interrupted = true; }},
           {milliseconds(0), CanStatus::ok, boot_up}};
  EXPECT_EQ(watch({}), ExitStatus::interrupted);
  EXPECT_EQ(out,
            "   0.000  node 0x10  heartbeat  operational\n"
            "   5.000  node 0x10  heartbeat  stopped\n");
}

TEST_F(WatchCommand, refuses_an_interface_that_does_not_work_from_the_start) {
  for (const CanStatus status :
       {CanStatus::interface_missing, CanStatus::interface_down, CanStatus::failed}) {
    steps = {{milliseconds(0), status, {}}, {milliseconds(0), CanStatus::ok, boot_up}};
    EXPECT_EQ(watch(), ExitStatus::bus_fault);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "velmora-can-bridge: state " + std::to_string(static_cast<int>(status)) + "\n");
  }
}

TEST_F(WatchCommand, tells_trouble_once_per_change_and_goes_on) {
  steps = {{milliseconds(0), CanStatus::error_passive, {}},
           {milliseconds(1), CanStatus::error_passive, {}},
           {milliseconds(1), CanStatus::bus_off, {}},
           {milliseconds(1), CanStatus::interface_down, {}},
           {milliseconds(900), CanStatus::interface_down, {}},
           {milliseconds(1), CanStatus::failed, {}},
           {milliseconds(1), CanStatus::failed, {}},
           {milliseconds(1), CanStatus::ok, boot_up},
           {milliseconds(1), CanStatus::ok, operational}};
  EXPECT_EQ(watch(), ExitStatus::success);
  EXPECT_EQ(err,
            "velmora-can-bridge: state 6\n"
            "velmora-can-bridge: state 5\n"
            "velmora-can-bridge: state 3\n"
            "velmora-can-bridge: state 7\n"
            "velmora-can-bridge: state 0\n");
  EXPECT_THAT(out, HasSubstr("boot-up\n"));
  EXPECT_THAT(out, HasSubstr("operational\n"));
}

TEST_F(WatchCommand, refuses_the_simulated_bus) {
  std::ostringstream out_stream;
  std::ostringstream err_stream;
  const CommandLineHost host{out_stream, err_stream, false, {}, {}, nullptr};
  EXPECT_EQ(run_command_line({"watch", board, "--bus", "sim"}, host), ExitStatus::bad_input);
  EXPECT_EQ(err_stream.str(),
            "velmora-can-bridge: name a CAN interface (--bus can0): nothing is simulated here\n");
}

TEST_F(WatchCommand, ends_when_nobody_takes_its_output) {
  steps = {{milliseconds(0), CanStatus::ok, boot_up}, {milliseconds(0), CanStatus::ok, boot_up}};
  std::ostream broken(nullptr);
  std::ostringstream err_stream;
  CommandLineHost host{broken, err_stream, false, {}, {}, nullptr};
  host.open_interface = [&](const std::string& /*interface*/) {
    return std::make_unique<PlayedChannel>(steps);
  };
  EXPECT_EQ(run_command_line({"watch", board, "--bus", "can0"}, host),
            ExitStatus::operation_failed);
}

TEST_F(WatchCommand, refuses_times_that_are_none) {
  for (const std::string time : {"-1", "nan", "inf", "1e10", "soon"}) {
    SCOPED_TRACE(time);
    EXPECT_EQ(watch({"--for=" + time}), ExitStatus::bad_input);
    EXPECT_THAT(err, HasSubstr("--for"));
  }
}

TEST_F(WatchCommand, needs_a_bus) {
  std::ostringstream out_stream;
  std::ostringstream err_stream;
  EXPECT_EQ(run_command_line({"watch", board}, {out_stream, err_stream, false, {}, {}, nullptr}),
            ExitStatus::bad_input);
  EXPECT_THAT(err_stream.str(), HasSubstr("--bus"));
}

TEST_F(WatchCommand, needs_a_board_file_without_errors) {
  std::ofstream(board) << "nodes: [{node_id: 0}]\n";
  EXPECT_EQ(watch(), ExitStatus::bad_input);
  EXPECT_THAT(err, HasSubstr(":1:19: error: "));
  EXPECT_EQ(opened, "");
}

}  // namespace
}  // namespace velmora_can_bridge
