// All kinds at once on one controller.
#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "support/every_kind.hpp"
#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t steps = 51;

/// A node that answers every read with 09 09 09 09 and keeps the frames of each RPDO. Lets other
/// threads run inside each call, and notes when two sends overlap.
class BusyBackend : public CanOpenBackend {
 public:
  std::atomic<bool> sends_overlapped{false};

  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                Bytes& data) override {
    std::this_thread::yield();
    data = {9, 9, 9, 9};
    return true;
  }

  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const Bytes& /*data*/) override {
    std::this_thread::yield();
    return true;
  }

  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t rpdo, const Frame& data,
                 std::uint8_t length) override {
    std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock()) {
      sends_overlapped = true;
      lock.lock();
    }
    std::this_thread::yield();
    frames_[rpdo].emplace_back(data.begin(), data.begin() + length);
    return true;
  }

  /// Only when no operation runs.
  const std::vector<Bytes>& frames(std::uint8_t rpdo) { return frames_[rpdo]; }

  /// The last of the frames; no bytes when there is none.
  Bytes last_frame(std::uint8_t rpdo) {
    return frames(rpdo).empty() ? Bytes() : frames(rpdo).back();
  }

 private:
  std::mutex mutex_;
  std::map<std::uint8_t, std::vector<Bytes>> frames_;
};

/// One thread's operation, repeated with a payload for each step.
struct Runner {
  OperationConfig op;
  const char* device;
  Bytes (*payload)(std::uint8_t step);
};

Bytes none(std::uint8_t /*step*/) { return {}; }
Bytes one(std::uint8_t step) { return {step}; }

OperationConfig kind(const char* text, std::vector<std::string> fields = {},
                     std::uint8_t pdo_number = 1) {
  OperationConfig op;
  op.kind = text;
  op.pdo_number = pdo_number;
  op.fields = std::move(fields);
  return op;
}

OperationConfig on_object(const char* text, std::uint16_t index) {
  OperationConfig op;
  op.kind = text;
  op.index = index;
  op.sub_indices = {1, 2};
  return op;
}

OperationConfig claw(const char* action) {
  OperationConfig op;
  op.kind = "claw_action";
  op.action = action;
  return op;
}

OperationConfig leds() {
  OperationConfig op = kind("led_write", {"red", "green", "blue"}, 4);
  op.led_operation = "set_color";
  return op;
}

OperationConfig pump() {
  OperationConfig op = on_object("pump_duty", 0x2100);
  op.pump_pdo_number = 1;
  op.rpdo_channels = {1};
  return op;
}

/// Every kind, each on bytes and a device of its own. "stop" is the controlword of "stopped", which
/// quick stop does not mirror.
std::vector<Runner> every_kind() {
  return {
      {on_object("sdo_write", 0x3000), "", one},
      {on_object("sdo_read", 0x3000), "", none},
      {on_object("read_multi", 0x3000), "", none},
      {kind("od_io_read"), "io",
       [](std::uint8_t step) {
         return Bytes{step, 0, 0};
       }},
      {kind("od_io_write"), "io",
       [](std::uint8_t step) {
         return Bytes{4, 0, 0, step};
       }},
      {leds(), "",
       [](std::uint8_t step) {
         return Bytes{step, step, step};
       }},
      {on_object("auto_write", 0x2005), "", one},
      {kind("pdo_write", {"write"}), "", one},
      {kind("pdo_patch", {"stop"}, 2), "", one},
      {kind("bit_patch", {"masked"}), "",
       [](std::uint8_t step) {
         return Bytes{0x7F, step};
       }},
      {kind("pdo_bit_patch", {"bits"}), "",
       [](std::uint8_t step) {
         return Bytes{1, 7, static_cast<std::uint8_t>(step & 1U)};
       }},
      {kind("ci402_enable"), "enabled", none},
      {kind("ci402_disable"), "disabled", none},
      {kind("ci402_quick_stop"), "stopped", none},
      {kind("ci402_set_mode"), "switched", one},
      {kind("ci402_set_target"), "moved",
       [](std::uint8_t step) {
         return Bytes{step, 0xFF};
       }},
      {kind("ci402_ramp"), "moved",
       [](std::uint8_t step) {
         return Bytes{step, 0, 0, 0};
       }},
      {claw("extend"), "extender", none},
      {claw("home"), "homer", none},
      {claw("query"), "extender", none},
      {pump(), "io",
       [](std::uint8_t step) {
         return Bytes{1, step, static_cast<std::uint8_t>(~step)};
       }},
  };
}

class AllOperations : public testing::Test {
 protected:
  AllOperations() {
    board.pdos = {
        {1,
         "RPDO",
         0,
         {{0x2000, 0, 8, "write"},
          {0x2002, 0, 8, "masked"},
          {0x2003, 0, 8, "bits"},
          {0x2004, 0, 8, "io"},
          {0x2005, 0, 8, "object"},
          {0x2100, 1, 16, "duty"}}},
        {2,
         "RPDO",
         0,
         {{0x4000, 0, 16, "enable"},
          {0x4100, 0, 16, "disable"},
          {0x4200, 0, 8, "stop"},
          {0x4320, 0, 8, "mode"},
          {0x4520, 0, 8, "extender's mode"},
          {0x4600, 0, 8, "homer's controlword"}}},
        {3, "RPDO", 0, {{0x44BF, 0, 32, "velocity"}}},
        {4, "RPDO", 0, {{0x2200, 0, 8, "red"}, {0x2201, 0, 8, "green"}, {0x2202, 0, 8, "blue"}}}};
    board.device_od_map = {{"io", {"io", 0x2000, 0}},
                           {"enabled", {"ci402", 0x4000, 0}},
                           {"disabled", {"ci402", 0x4100, 0}},
                           {"stopped", {"ci402", 0x4200, 0}},
                           {"switched", {"ci402", 0x4300, 0}},
                           {"moved", {"ci402", 0x44BF - 0xBF, 0}},
                           {"extender", {"claw", 0x4500, 0x5000}},
                           {"homer", {"claw", 0x4600, 0x5100}}};
  }

  /// Runs every runner on a thread of its own, and `beside(step)` on one more. Counts the failures.
  template <typename Beside>
  unsigned run_all(const std::vector<Runner>& runners, const Beside& beside) {
    std::atomic<unsigned> failures{0};
    std::promise<void> begin;
    const std::shared_future<void> begun(begin.get_future());
    std::vector<std::thread> running;
    const auto repeat = [&](const auto& operation) {
      running.emplace_back([&failures, begun, operation] {
        begun.wait();
        for (std::uint8_t step = 1; step <= steps; ++step) {
          failures += operation(step) ? 0U : 1U;
        }
      });
    };
    for (const Runner& runner : runners) {
      repeat([this, &runner](std::uint8_t step) {
        return controller
            .execute_configured_operation(runner.op, runner.device, runner.payload(step))
            .ok;
      });
    }
    repeat([&beside](std::uint8_t step) { return beside(step); });
    begin.set_value();
    for (std::thread& thread : running) {
      thread.join();
    }
    return failures;
  }

  /// Sends the RPDO once more with `byte` in `field`.
  void send(std::uint8_t rpdo, const char* field, std::uint8_t byte) {
    EXPECT_EQ(controller.execute_configured_operation(kind("pdo_patch", {field}, rpdo), "", {byte}),
              ok("OK"));
  }

  std::uint8_t node_id = 5;
  BusyBackend node;
  BoardConfig board;
  CanOpenNodeController controller{node_id, node, board};
};

TEST_F(AllOperations, kinds_of_the_mix_are_all_there_are) {
  expect_row_for_every_kind(every_kind());
}

TEST_F(AllOperations, at_once_none_loses_what_another_has_written) {
  send(2, "stop", 0);  // mirrors go into a loaded image
  const std::vector<Runner> runners = every_kind();
  const unsigned failures = run_all(runners, [&](std::uint8_t /*step*/) {
    return controller.motor_mode("switched") <= steps && controller.motor_mode("stopped") == 0;
  });
  EXPECT_EQ(failures, 0U);
  EXPECT_FALSE(node.sends_overlapped);

  EXPECT_EQ(node.last_frame(1), (Bytes{steps, steps, 0x89, steps, steps, steps, 0xFF ^ steps}));
  EXPECT_EQ(node.frames(2).size(), steps + 1U);
  EXPECT_EQ(node.last_frame(3), (Bytes{steps, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(node.last_frame(4), (Bytes{steps, steps, steps}));
  send(2, "stop", steps);
  EXPECT_EQ(node.last_frame(2), (Bytes{0x0F, 0, 0x06, 0, steps, steps, 3, 0x1F}));
  EXPECT_EQ(controller.motor_mode("switched"), steps);
  EXPECT_EQ(controller.motor_mode("extender"), 3);
  EXPECT_EQ(controller.motor_mode("homer"), 6);
  EXPECT_EQ(controller.motor_mode("moved"), 0);
}

TEST_F(AllOperations, at_once_on_one_device_bring_only_modes_and_commands_that_were_given) {
  board.pdos.push_back(
      {5,
       "RPDO",
       0,
       {{0x4700, 0, 16, "controlword"}, {0x4720, 0, 8, "mode"}, {0x2300, 0, 8, "x"}}});
  board.device_od_map["busy"] = {"claw", 0x4700, 0x5200};
  const std::vector<Runner> runners{
      {kind("ci402_enable"), "busy", none},
      {kind("ci402_disable"), "busy", none},
      {kind("ci402_quick_stop"), "busy", none},
      {kind("ci402_set_mode"), "busy", [](std::uint8_t /*step*/) { return Bytes{4}; }},
      {kind("ci402_set_mode"), "busy", [](std::uint8_t /*step*/) { return Bytes{1}; }},
      {claw("extend"), "busy", none},
      {claw("home"), "busy", none},
      {claw("query"), "busy", none},
      {kind("pdo_patch", {"x"}, 5), "", one},
  };
  send(5, "x", 0);
  const unsigned failures = run_all(runners, [&](std::uint8_t /*step*/) {
    const std::set<int> given{0, 1, 3, 4, 6};
    return given.count(controller.motor_mode("busy")) == 1;
  });
  send(5, "x", 0);

  EXPECT_EQ(failures, 0U);
  const std::set<Bytes> commands{{9, 9}, {0x06, 0}, {0x0F, 0}, {0x1F, 0}};
  const std::set<int> modes{9, 1, 3, 4, 6};
  for (const Bytes& frame : node.frames(5)) {
    EXPECT_EQ(commands.count({frame[0], frame[1]}), 1U);
    EXPECT_EQ(modes.count(frame[2]), 1U);
  }
  EXPECT_NE(node.last_frame(5).at(2), 9);
  EXPECT_NE(controller.motor_mode("busy"), 0);
}

TEST_F(AllOperations, devices_that_are_first_recorded_at_once_keep_modes_of_their_own) {
  std::vector<std::string> names;
  std::vector<Runner> runners;
  for (int device = 0; device < 16; ++device) {
    names.push_back("drive " + std::to_string(device));
    board.device_od_map[names.back()] = {"ci402", static_cast<std::uint16_t>(0x8000 + device), 0};
  }
  runners.reserve(names.size());
  for (const std::string& name : names) {
    runners.push_back({kind("ci402_set_mode"), name.c_str(), one});
  }
  const unsigned failures = run_all(runners, [&](std::uint8_t /*step*/) {
    return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
      return controller.motor_mode(name) <= steps;
    });
  });
  EXPECT_EQ(failures, 0U);
  for (const std::string& name : names) {
    EXPECT_EQ(controller.motor_mode(name), steps);
  }
}

}  // namespace
}  // namespace velmora_can_bridge
