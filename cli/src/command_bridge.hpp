// The board of a command, which the user can interrupt.
#pragma once

#include <chrono>

#include "stoppable_channel.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// A `Bridge` that ends soon after `CommandLineHost::interrupted` is set. One thread at a time.
///
/// It says then, as a diagnostic, what it still waits for. The transfer under way ends with the
/// node's next answer or its time-out, every later one fails at once, as "interrupted". Warnings of
/// the bus are diagnostics, too.
class CommandBridge {
 public:
  /// Host and channel outlive this object. `told` is told of every transfer that has ended.
  CommandBridge(const CommandLineHost& host, CanChannel& channel, BoardFile file,
                SdoTimes times = {}, TransferHook told = {});

  /// What `question(bridge)` answers. Then prints the warnings of the bus that came meanwhile.
  template <typename Question>
  auto ask(const Question& question) {
    auto answer = question(bridge_);
    bridge_.poll(std::chrono::milliseconds(0));
    return answer;
  }

  /// Lets so much time pass on the bus, and prints its warnings. An interruption meanwhile concerns
  /// no transfer, and leaves the bridge as it is.
  void idle(std::chrono::milliseconds time);

  /// Whether an interruption has ended the bridge: every later transfer fails.
  bool is_stopped() const { return is_stopped_; }

  /// Before the program ends: `Bridge::await_late_answers`. An interruption ends the wait, and a
  /// diagnostic then says which nodes may still answer.
  void await_late_answers();

 private:
  BridgeSettings settings(SdoTimes times);
  void begin(const Transfer& transfer);
  void end(const Transfer& transfer);
  void stop(std::chrono::nanoseconds left);
  void stop_bridge();

  const CommandLineHost* const host_;
  const TransferHook told_;
  // The transfer under way, and whether a frame of it is on the bus.
  const Transfer* under_way_ = nullptr;
  bool is_sent_ = false;
  bool has_said_ = false;
  bool is_idle_ = false;
  bool is_stopped_ = false;
  StoppableChannel channel_;
  Bridge bridge_;
};

}  // namespace velmora_can_bridge
