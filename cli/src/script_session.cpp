#include "script_session.hpp"

#include <algorithm>
#include <utility>
#include <variant>

#include "exit_status.hpp"
#include "ground/drive_objects.hpp"
#include "ground/little_endian.hpp"
#include "ground/nearest_name.hpp"
#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "interface_channel.hpp"
#include "json_line.hpp"
#include "report.hpp"
#include "requested_operation.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

/// How often a wait looks.
constexpr milliseconds shortest_step{20};

/// The longest step of a pause in which nobody sees time pass.
constexpr milliseconds longest_step{10000};

/// How much of a simulated pause passes at once: the shorter the nearer its end.
milliseconds step_of(milliseconds left) {
  return std::clamp(left / 100, shortest_step, longest_step);
}

const NodeConfig* node_of_drive(const BoardFile& file, const std::string& device) {
  const auto has_drive = [&](const NodeConfig& node) {
    const auto found = node.board.device_od_map.find(device);
    return found != node.board.device_od_map.end() && is_drive(found->second);
  };
  const auto node = std::find_if(file.nodes.begin(), file.nodes.end(), has_drive);
  return node == file.nodes.end() ? nullptr : &*node;
}

/// "TEXT, did you mean "NAME"?".
std::string with_guess(const std::string& text, const std::string& name,
                       const std::vector<std::string_view>& names) {
  const std::string_view nearest = nearest_name(name, names);
  return nearest.empty() ? text : text + ", did you mean \"" + std::string(nearest) + "\"?";
}

std::string no_drive_text(const BoardFile& file, const std::string& device) {
  std::vector<std::string_view> names;
  for (const NodeConfig& node : file.nodes) {
    for (const auto& [name, entry] : node.board.device_od_map) {
      if (is_drive(entry)) {
        names.push_back(name);
      }
    }
  }
  return with_guess("\"" + device + "\" is no drive of the board", device, names);
}

std::string no_condition_text(const std::string& name) {
  std::vector<std::string_view> names;
  std::vector<std::string> texts;
  for (const DriveCondition& condition : drive_conditions()) {
    names.push_back(condition.name);
    texts.push_back(condition.name);
  }
  return with_guess("unknown condition \"" + name + "\"", name, names) + "; expected " +
         enumeration(texts);
}

std::string passed_text(nanoseconds time) {
  return std::to_string(duration_cast<milliseconds>(time).count()) + " ms";
}

/// "Operation enabled, statusword 0x0237".
std::string statusword_text(std::uint16_t statusword) {
  const std::optional<DriveState> state = drive_state_of(statusword);
  return std::string(state ? drive_state_text(*state) : "unknown state") + ", statusword " +
         hex<4>(statusword);
}

}  // namespace

ScriptSession::ScriptSession(const CommandLineHost& host, const ScriptArguments& arguments,
                             BoardFile file, CommandBus& bus)
    : host_(&host),
      arguments_(&arguments),
      file_(std::move(file)),
      bus_(&bus),
      clock_(bus.channel().open({})) {
  begin_bridge();
}

ExitStatus ScriptSession::run(const std::string& line, std::size_t number,
                              const std::string& place) {
  number_ = number;
  place_ = place;
  const Expected<ScriptLine> parsed = parse_script_line(line);
  if (!parsed) {
    return refuse(parsed.error());
  }
  if (!place.empty() && !arguments_->json && !std::holds_alternative<EmptyLine>(*parsed)) {
    host_->out << visible_text(placed(line.substr(0, line.find_last_not_of("\r \t") + 1))) << '\n';
  }
  return std::visit([this](const auto& asked) { return this->execute(asked); }, *parsed);
}

void ScriptSession::renew() {
  if (!bridge_->is_stopped()) {
    return;
  }
  bridge_->await_late_answers();
  begin_bridge();
  print_remark(*host_, "modes of operation and images of RPDOs start anew behind the interruption");
}

ExitStatus ScriptSession::execute(const EmptyLine& /*line*/) { return ExitStatus::success; }

ExitStatus ScriptSession::execute(const OperationLine& line) {
  const auto payload = payload_of(line);
  if (!payload) {
    return refuse(payload.error());
  }
  return line.explains ? explain_operation(line, *payload) : run_operation(line, *payload);
}

ExitStatus ScriptSession::execute(const PauseLine& line) {
  const nanoseconds start = now();
  const Outcome outcome = pause(line.time);
  return print_wait("", duration_cast<milliseconds>(now() - start), outcome);
}

ExitStatus ScriptSession::execute(const WaitLine& line) {
  const NodeConfig* const node = node_of_drive(file_, line.device);
  if (node == nullptr) {
    return refuse(no_drive_text(file_, line.device));
  }
  const DriveCondition* const condition = find_drive_condition(line.condition);
  if (condition == nullptr) {
    return refuse(no_condition_text(line.condition));
  }
  const nanoseconds start = now();
  const Outcome outcome = wait(line, *node, *condition);
  return print_wait(line.device + " " + line.condition, duration_cast<milliseconds>(now() - start),
                    outcome);
}

Expected<std::vector<std::uint8_t>> ScriptSession::payload_of(const OperationLine& line) {
  const auto found = find_operation(file_, arguments_->board, line.device, line.operation);
  if (!found) {
    return Unexpected{found.error()};
  }
  const std::uint8_t mode =
      bridge_->ask([&](const Bridge& bridge) { return bridge.motor_mode(line.device); });
  return requested_payload(
      *found, {arguments_->board, line.device, line.operation, line.payload, false}, mode);
}

ExitStatus ScriptSession::run_operation(const OperationLine& line,
                                        const std::vector<std::uint8_t>& payload) {
  const OperationReport report = bridge_->ask([&](Bridge& bridge) {
    return bridge.run(line.device, line.operation, payload,
                      RunOptions{Detail::result, arguments_->force});
  });
  for (const BusError& error : report.tolerated) {
    print_diagnostic(*host_, placed("failed on the way: " + bus_error_text(error)));
  }
  if (arguments_->json) {
    print_result_json(*host_, report, std::nullopt, number_);
  } else if (report.result.ok) {
    print_result(*host_, report);
  } else {
    host_->err << visible_text(placed("")) << result_text(report, host_->err_colour);
  }
  return exit_status_of(report);
}

ExitStatus ScriptSession::explain_operation(const OperationLine& line,
                                            const std::vector<std::uint8_t>& payload) {
  const Explanation explanation = bridge_->ask([&](Bridge& bridge) {
    return bridge.explain(line.device, line.operation, payload, arguments_->force);
  });
  const ExitStatus status = exit_status_of(explanation);
  if (arguments_->json) {
    print_explanation_json(*host_, explanation, status, number_);
  } else {
    host_->out << explanation_text(explanation);
  }
  return status;
}

ScriptSession::Outcome ScriptSession::pause(milliseconds time) {
  const nanoseconds end = now() + time;
  while (now() < end && !is_interrupted(*host_)) {
    const auto left = std::chrono::ceil<milliseconds>(end - now());
    pass(std::min(left, is_simulated() && !host_->sleep ? step_of(left) : shortest_step));
  }
  return is_interrupted(*host_)
             ? Outcome{ExitStatus::interrupted, "not waited to the end", "interrupted"}
             : Outcome{};
}

/// Asks the drive again and again, the first time after a slice.
ScriptSession::Outcome ScriptSession::wait(const WaitLine& line, const NodeConfig& node,
                                           const DriveCondition& condition) {
  const std::uint16_t index =
      drive_index(node.board.device_od_map.at(line.device), DriveObject::statusword);
  const std::string failure = line.device + " is not " + line.condition;
  const nanoseconds end = now() + line.patience;
  while (true) {
    // What a drive shows at once may be of the command before.
    pass(std::clamp(std::chrono::ceil<milliseconds>(end - now()), milliseconds(0), shortest_step));
    if (is_interrupted(*host_)) {
      return {ExitStatus::interrupted, failure, "interrupted"};
    }
    const auto read =
        bridge_->ask([&](Bridge& bridge) { return bridge.read_object(node.node_id, index, 0); });
    if (!read) {
      return {exit_status_of(read.error()), failure, bus_error_text(read.error())};
    }
    const auto statusword = static_cast<std::uint16_t>(little_endian_number(*read));
    const DriveProgress reached = progress(condition, statusword);
    if (reached == DriveProgress::reached) {
      return {};
    }
    if (reached == DriveProgress::given_up || now() >= end) {
      return {ExitStatus::operation_failed, failure, statusword_text(statusword)};
    }
  }
}

ExitStatus ScriptSession::print_wait(const std::string& what, milliseconds time,
                                     const Outcome& outcome) {
  const bool is_done = outcome.status == ExitStatus::success;
  const std::string after = passed_text(time);
  if (arguments_->json) {
    nlohmann::ordered_json json{{"line", number_},
                                {"wait", what},
                                {"ok", is_done},
                                {"code", exit_status_word(outcome.status)},
                                {"milliseconds", time.count()}};
    if (!is_done) {
      json["message"] = outcome.message;
      json["reason"] = outcome.reason;
    }
    print_json_line(*host_, json);
  } else if (is_done) {
    host_->out << "  ... " << after << " later\n";
  } else {
    host_->err << visible_text(placed(""))
               << failure_text(outcome.message + " after " + after, outcome.reason,
                               host_->err_colour);
  }
  return outcome.status;
}

/// What is wrong with the line itself.
ExitStatus ScriptSession::refuse(const std::string& reason) {
  print_diagnostic(*host_, placed(reason));
  if (arguments_->json) {
    print_json_line(*host_, {{"line", number_},
                             {"ok", false},
                             {"code", exit_status_word(ExitStatus::bad_input)},
                             {"message", reason}});
  }
  return ExitStatus::bad_input;
}

std::string ScriptSession::placed(const std::string& text) const {
  return place_.empty() ? text : place_ + ": " + text;
}

void ScriptSession::begin_bridge() {
  bridge_.emplace(*host_, bus_->channel(), file_, sdo_times(arguments_->bus),
                  [this](const Transfer& transfer) {
                    if (arguments_->transfers) {
                      host_->err << visible_text(transfer_text(transfer)) << '\n';
                    }
                  });
}

/// Lets so much time pass on the bus, and for the nodes of a simulated one.
void ScriptSession::pass(milliseconds time) {
  if (!is_simulated()) {
    bridge_->idle(time);
    return;
  }
  CanFrame none;
  clock_->receive(none, time);
  bridge_->idle(milliseconds(0));
  bus_->tick(time);
  if (host_->sleep) {
    host_->sleep(time);
  }
}

bool ScriptSession::is_simulated() const { return arguments_->bus.bus == simulated_bus; }

nanoseconds ScriptSession::now() const { return clock_->now().time_since_epoch(); }

}  // namespace velmora_can_bridge
