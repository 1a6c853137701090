#include <array>
#include <chrono>
#include <string_view>
#include <utility>

#include "command_bridge.hpp"
#include "commands.hpp"
#include "example_board.hpp"
#include "exit_status.hpp"
#include "interface_channel.hpp"
#include "report.hpp"
#include "requested_operation.hpp"
#include "table.hpp"
#include "velmora_can_bridge/bridge/simulated_board.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

/// What a step waits for once its operation has been answered.
struct Wait {
  /// Simulated time; for a wait with `until_data` the longest.
  milliseconds time{0};
  /// When not empty: the operation is run again and again until it answers these bytes.
  std::vector<std::uint8_t> until_data;
};

/// One operation of the tour.
struct Step {
  std::string_view title;
  const char* device;
  const char* operation;
  std::vector<std::string> payload;
  Wait wait;
  bool succeeds = true;
  /// Is explained before it is run.
  bool is_explained = false;
};

constexpr milliseconds patience{5000};
/// How often a wait looks.
constexpr milliseconds slice{100};

const std::vector<Step>& steps() {
  static const std::vector<Step> tour{
      {"Read four entries of the node's identity in one operation",
       "digital_io",
       "read_identity",
       {},
       {}},
      {"Write a typed value by SDO", "left_wheel", "set_profile_acceleration_left", {"5000"}, {}},
      {"Send no payload: the configured default is written",
       "digital_io",
       "set_heartbeat_time",
       {},
       {}},
      {"Name the sub-index in the payload: pump channel 3",
       "pumps",
       "set_pump_raw",
       {"3", "75%"},
       {}},
      {"A mistake: pump channel 77 does not exist",
       "pumps",
       "set_pump_raw",
       {"77", "u16:750"},
       {},
       false},

      {"Colour, mode and period of the LED in one frame; the first RPDO write loads the image",
       "led",
       "set_led",
       {"red=255", "green=128", "blue=0", "mode=breath", "period=800ms"},
       {}},
      {"Change the colour alone: mode and period ride along unchanged",
       "led",
       "set_led_color",
       {"0", "0", "255"},
       {}},
      {"A write that picks the RPDO by itself, as one maps the object",
       "led",
       "set_led_blue",
       {"64"},
       {}},
      {"A write that goes by SDO, as no RPDO maps the object",
       "left_wheel",
       "set_quick_stop_deceleration_left",
       {"20000"},
       {}},
      {"Switch outputs 0 and 4 on, leave the others alone",
       "digital_io",
       "set_outputs",
       {"0x11", "0x11"},
       {}},
      {"Set one bit of the second group",
       "digital_io",
       "set_output",
       {"field=outputs_2", "bit=7", "value=on"},
       {}},
      {"Set a bit that has a name", "digital_io", "switch_lamp", {"on"}, {}},
      {"Write an object of the device by its distance from the base",
       "digital_io",
       "write_object",
       {"0", "1", "0"},
       {}},
      {"Read one so: the lamp is still on", "digital_io", "read_object", {"0", "2"}, {}},

      {"Put the wheels into velocity mode", "left_wheel", "set_mode", {"velocity"}, {}},
      {"And the other one", "right_wheel", "set_mode", {"velocity"}, {}},
      {"Set a ramp by its distance from the controlword",
       "right_wheel",
       "set_acceleration",
       {"5000"},
       {}},
      {"Enable the left wheel", "left_wheel", "enable", {}, {}},
      {"Enable the right wheel", "right_wheel", "enable", {}, {}},
      {"Both wheels in one frame, in opposite directions",
       "left_wheel",
       "drive",
       {"0.3m/s", "-0.3m/s"},
       {milliseconds(500), {}},
       true,
       true},
      {"The statusword: operation enabled, target reached (0x0637)",
       "left_wheel",
       "read_statusword_left",
       {},
       {}},
      {"The actual velocity, at its target", "left_wheel", "read_object", {"0x2C"}, {}},
      {"Only as many fields as the payload covers: the right wheel keeps its value",
       "left_wheel",
       "drive_patch",
       {"150"},
       {}},
      {"One target, chosen by the mode: again the right wheel's rides along",
       "left_wheel",
       "set_target",
       {"200"},
       {}},
      {"Quick stop", "right_wheel", "quick_stop", {}, {milliseconds(300), {}}},
      {"The right wheel stands", "right_wheel", "read_object", {"0x2C"}, {}},
      {"Disable the left wheel", "left_wheel", "disable", {}, {}},

      {"Enable the claw, so that it can be homed", "claw", "enable", {}, {}},
      {"Home the claw", "claw", "claw_home", {}, {}},
      {"Ask until it has arrived: done, home", "claw", "claw_query", {}, {patience, {2, 1}}},
      {"Extend it", "claw", "claw_extend", {}, {}},
      {"Ask until it has arrived: done, extended", "claw", "claw_query", {}, {patience, {2, 2}}},

      {"A pump that is mapped goes by RPDO", "pumps", "set_pump", {"1", "40%"}, {}},
      {"One that is not goes by SDO", "pumps", "set_pump", {"4", "900"}, {}},
  };
  return tour;
}

/// The step as `command` of the program: "run" or "explain".
std::string command_text(const std::string& command, const Step& step) {
  std::string text =
      "velmora-can-bridge " + command + " robot_board.yaml " + step.device + " " + step.operation;
  for (const std::string& word : step.payload) {
    text += " " + word;
  }
  return text;
}

/// Transfers of one step, by kind.
class TransferCounts {
 public:
  void add(TransferKind kind) { ++counts_.at(static_cast<std::size_t>(kind)); }
  void clear() { counts_ = {}; }

  /// "1 SDO read, 2 RPDOs".
  std::string text() const {
    static constexpr std::array<const char*, 3> names{"SDO read", "SDO write", "RPDO"};
    std::string text;
    for (std::size_t kind = 0; kind < names.size(); ++kind) {
      if (counts_.at(kind) != 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(counts_.at(kind)) + " " +
                names.at(kind) + (counts_.at(kind) == 1 ? "" : "s");
      }
    }
    return text;
  }

 private:
  std::array<std::size_t, 3> counts_{};
};

/// The tour on its way over the board.
class Tour {
 public:
  Tour(const CommandLineHost& host, bool json, const BoardFile& file)
      : host_(host),
        json_(json),
        board_(file),
        bridge_(host, board_, file, {}, [this](const Transfer& transfer) { note(transfer); }) {
    overview_.add({"operation", "device", "on the bus", "result"});
  }

  ExitStatus run() {
    for (const Step& step : steps()) {
      if (is_interrupted(host_)) {
        return ExitStatus::interrupted;
      }
      run_step(step);
    }
    if (!json_) {
      overview_.print(host_);
    }
    return status_;
  }

 private:
  void note(const Transfer& transfer) {
    counts_.add(transfer.kind);
    if (!json_ && !quiet_) {
      host_.out << "  " << transfer_text(transfer) << '\n';
    }
  }

  void run_step(const Step& step) {
    if (!json_) {
      host_.out << "# " << step.title << '\n';
    }
    if (step.is_explained) {
      explain(step);
    }
    say("run", step);
    counts_.clear();
    OperationReport report = execute(step);
    const bool arrived = wait(step, report);
    if (json_) {
      print_result_json(host_, report);
    } else {
      // One that fails is a part of the tour.
      host_.out << result_text(report, host_.colour) << '\n';
    }
    overview_.add({step.operation, step.device, counts_.text(),
                   (report.result.ok ? "ok: " : "failed: ") + report.result.message});
    if (!is_interrupted(host_) && (report.result.ok != step.succeeds || !arrived)) {
      print_diagnostic(host_, std::string(step.operation) + " did not end as this tour expects");
      status_ = ExitStatus::operation_failed;
    }
  }

  void say(const std::string& command, const Step& step) {
    if (!json_) {
      host_.out << "$ " << command_text(command, step) << '\n';
    }
  }

  void explain(const Step& step) {
    say("explain", step);
    quiet_ = true;
    const Explanation explanation = bridge_.ask([&](Bridge& bridge) {
      return bridge.explain(step.device, step.operation, payload_of(bridge, step));
    });
    quiet_ = false;
    if (json_) {
      print_explanation_json(host_, explanation, exit_status_of(explanation));
    } else {
      host_.out << explanation_text(explanation);
    }
  }

  OperationReport execute(const Step& step) {
    return bridge_.ask([&](Bridge& bridge) {
      return bridge.run(step.device, step.operation, payload_of(bridge, step));
    });
  }

  /// The words of the steps are right: a test runs all of them.
  static std::vector<std::uint8_t> payload_of(const Bridge& bridge, const Step& step) {
    const auto found = find_operation(bridge.board(), "", step.device, step.operation);
    return *requested_payload(*found, {"", step.device, step.operation, step.payload},
                              bridge.motor_mode(step.device));
  }

  /// Lets the step's time pass, or asks again until the answer is the one waited for.
  bool wait(const Step& step, OperationReport& report) {
    const Wait& wait = step.wait;
    quiet_ = true;
    milliseconds passed{0};
    while (passed < wait.time && !is_interrupted(host_) &&
           (wait.until_data.empty() || report.result.data != wait.until_data)) {
      board_.tick(slice);
      passed += slice;
      show_wait(passed);
      if (!wait.until_data.empty()) {
        report = execute(step);
      }
    }
    quiet_ = false;
    end_wait(passed);
    return wait.until_data.empty() || report.result.data == wait.until_data;
  }

  /// On a terminal a wait takes its real time, on one line that grows.
  void show_wait(milliseconds passed) const {
    if (json_ || !host_.sleep) {
      return;
    }
    host_.out << "\r  ... " << passed.count() << " ms" << std::flush;
    host_.sleep(slice);
  }

  void end_wait(milliseconds passed) const {
    if (json_ || passed == milliseconds(0)) {
      return;
    }
    host_.out << (host_.sleep ? "\r" : "") << "  ... " << passed.count() << " ms later\n";
  }

  const CommandLineHost& host_;
  bool json_;
  SimulatedBoard board_;
  CommandBridge bridge_;
  TransferCounts counts_;
  Table overview_;
  bool quiet_ = false;
  ExitStatus status_ = ExitStatus::success;
};

}  // namespace

ExitStatus demo_command(const CommandLineHost& host, bool json) {
  const LoadedBoard loaded = parse_board(std::string(example_board()));
  return Tour(host, json, loaded.file.value()).run();
}

}  // namespace velmora_can_bridge
