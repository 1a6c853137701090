// A board on which the lines of a script run.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "drive_condition.hpp"
#include "script_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// Runs lines one after another on one board, and prints what comes of each. One thread at a time.
class ScriptSession {
 public:
  /// Host, arguments and bus outlive the session.
  ScriptSession(const CommandLineHost& host, const ScriptArguments& arguments, BoardFile file,
                CommandBus& bus);

  const BoardFile& board() const { return file_; }

  /// Runs the line of that number, counted from 1. Messages and results say where it stands unless
  /// `place`, such as "tour.txt:12", is empty. The status that a program would end with that has
  /// run this line alone.
  ExitStatus run(const std::string& line, std::size_t number, const std::string& place);

  /// After an interruption: goes on, with a new bridge where a transfer was interrupted, which it
  /// does not survive. Modes of operation and images of RPDOs start anew then, as a remark says.
  void renew();

  /// Before the program ends: `CommandBridge::await_late_answers`.
  void await_late_answers() { bridge_->await_late_answers(); }

 private:
  /// Of a wait.
  struct Outcome {
    ExitStatus status = ExitStatus::success;
    std::string message;
    std::string reason;
  };

  static ExitStatus execute(const EmptyLine& line);
  ExitStatus execute(const OperationLine& line);
  ExitStatus execute(const PauseLine& line);
  ExitStatus execute(const WaitLine& line);
  ExitStatus run_operation(const OperationLine& line, const std::vector<std::uint8_t>& payload);
  ExitStatus explain_operation(const OperationLine& line, const std::vector<std::uint8_t>& payload);
  Expected<std::vector<std::uint8_t>> payload_of(const OperationLine& line);
  Outcome pause(std::chrono::milliseconds time);
  Outcome wait(const WaitLine& line, const NodeConfig& node, const DriveCondition& condition);
  ExitStatus print_wait(const std::string& what, std::chrono::milliseconds time,
                        const Outcome& outcome);
  ExitStatus refuse(const std::string& reason);
  std::string placed(const std::string& text) const;
  void begin_bridge();
  void pass(std::chrono::milliseconds time);
  bool is_simulated() const;
  std::chrono::nanoseconds now() const;

  const CommandLineHost* const host_;
  const ScriptArguments* const arguments_;
  const BoardFile file_;
  CommandBus* const bus_;
  const std::unique_ptr<CanEndpoint> clock_;
  std::optional<CommandBridge> bridge_;
  // Of the line under way.
  std::size_t number_ = 0;
  std::string place_;
};

}  // namespace velmora_can_bridge
