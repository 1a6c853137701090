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
      {"Ask the node what it is", "digital_io", "read_device_type", {}},
      {"Read four entries of its identity in one operation", "digital_io", "read_identity", {}},
      {"Write a typed value", "left_wheel", "set_profile_acceleration_left", {"u32:5000"}},
      {"Send no payload: the configured default is written",
       "digital_io",
       "set_heartbeat_time",
       {}},
      {"The same with a payload of one's own", "digital_io", "set_heartbeat_time", {"u16:250"}},
      {"Name the sub-index in the payload: pump channel 3",
       "pumps",
       "set_pump_raw",
       {"03", "u16:750"}},
      {"A mistake: pump channel 77 does not exist",
       "pumps",
       "set_pump_raw",
       {"4D", "u16:750"},
       false},
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
