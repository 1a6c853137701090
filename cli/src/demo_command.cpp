#include <array>
#include <string_view>
#include <utility>
#include <variant>

#include "commands.hpp"
#include "example_board.hpp"
#include "payload_words.hpp"
#include "report.hpp"
#include "simulated_board.hpp"

namespace velmora_can_bridge {
namespace {

/// One operation of the tour.
struct Step {
  std::string_view title;
  const char* device;
  const char* operation;
  std::vector<std::string> payload;
  bool succeeds = true;
};

const std::vector<Step>& steps() {
  static const std::vector<Step> tour{
      {"Read four entries of the node's identity in one operation",
       "digital_io",
       "read_identity",
       {}},
      {"Write a typed value by SDO", "left_wheel", "set_profile_acceleration_left", {"u32:5000"}},
      {"Send no payload: the configured default is written",
       "digital_io",
       "set_heartbeat_time",
       {}},
      {"Name the sub-index in the payload: pump channel 3",
       "pumps",
       "set_pump_raw",
       {"03", "u16:750"}},
      {"A mistake: pump channel 77 does not exist",
       "pumps",
       "set_pump_raw",
       {"4D", "u16:750"},
       false},
      {"Colour, mode and period of the LED in one frame; the first RPDO write loads the image",
       "led",
       "set_led",
       {"FF8000", "02", "u16:800"}},
      {"Change the colour alone: mode and period ride along unchanged",
       "led",
       "set_led_color",
       {"0000FF"}},
      {"A write that picks the RPDO by itself, as one maps the object",
       "led",
       "set_led_blue",
       {"u8:64"}},
      {"A write that goes by SDO, as no RPDO maps the object",
       "left_wheel",
       "set_quick_stop_deceleration_left",
       {"u32:20000"}},
      {"Both wheels in one frame", "left_wheel", "drive", {"s32:300", "s32:-300"}},
      {"Only as many fields as the payload covers: the right wheel keeps its value",
       "left_wheel",
       "drive_patch",
       {"s32:0"}},
      {"Switch outputs 0 and 4 on, leave the others alone",
       "digital_io",
       "set_outputs",
       {"11", "11"}},
      {"Set one bit of the second group", "digital_io", "set_output", {"02", "07", "01"}},
      {"Set a bit that has a name", "digital_io", "switch_lamp", {"01"}},
      {"Write an object of the device by its distance from the base",
       "digital_io",
       "write_object",
       {"u16:0", "01", "00"}},
      {"Read one so: the lamp is still on", "digital_io", "read_object", {"u16:0", "02"}},
  };
  return tour;
}

std::string command_text(const Step& step) {
  std::string text =
      std::string("velmora-can-bridge run robot_board.yaml ") + step.device + " " + step.operation;
  for (const std::string& word : step.payload) {
    text += " " + word;
  }
  return text;
}

OperationReport run(SimulatedBoard& board, const Step& step) {
  OperationReport report{step.operation, step.device, {}, {}};
  SimulatedBoardNode* const node = board.find_node(step.device);
  const auto payload = parse_payload_words(step.payload);
  report.result = node->run(node->config().operations.at(step.operation), step.device,
                            std::get<std::vector<std::uint8_t>>(payload));
  report.refusal = node->refusal();
  return report;
}

}  // namespace

ExitStatus demo_command(const CommandLineOutput& output, bool json) {
  const LoadedBoard loaded = parse_board(std::string(example_board()));
  SimulatedBoard board(*loaded.file, [&](const std::string& line) {
    if (!json) {
      output.out << "  " << line << '\n';
    }
  });
  ExitStatus status = ExitStatus::success;
  for (const Step& step : steps()) {
    if (!json) {
      output.out << "# " << step.title << "\n$ " << command_text(step) << '\n';
    }
    const OperationReport report = run(board, step);
    (json ? print_result_json : print_result)(output, report);
    if (!json) {
      output.out << '\n';
    }
    if (report.result.ok != step.succeeds) {
      print_diagnostic(
          output, "this step should have " + std::string(step.succeeds ? "succeeded" : "failed"));
      status = ExitStatus::operation_failed;
    }
  }
  return status;
}

}  // namespace velmora_can_bridge
