// The bus that a command works on.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velmora_can_bridge/bridge/frame_log.hpp"
#include "velmora_can_bridge/bridge/simulated_board.hpp"
#include "velmora_can_bridge/bridge/tracing_channel.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// The bus that stands for the simulated board.
inline constexpr const char* simulated_bus = "sim";

/// What the arguments say of the bus.
struct BusArguments {
  /// `simulated_bus`, or a CAN interface.
  std::string bus = simulated_bus;
  /// A file for every frame; empty for none.
  std::string trace;
  /// How long an SDO answer is waited for, in milliseconds.
  std::uint32_t timeout = 500;
};

/// The waits that the arguments ask for; the quarantine follows the time-out of a frame.
SdoTimes sdo_times(const BusArguments& arguments);

/// A simulated board or a CAN interface, with the log of its frames.
class CommandBus {
 public:
  /// No object when the log cannot be written or would overwrite a file that is none, or when the
  /// simulated bus is asked for without a board to simulate; the diagnostic is printed then.
  /// `board` may be null; `host` outlives the bus.
  static std::unique_ptr<CommandBus> open(const CommandLineHost& host,
                                          const BusArguments& arguments, const BoardFile* board);

  CanChannel& channel();

  /// Lets time pass on the simulated nodes, if there are any.
  void tick(std::chrono::milliseconds elapsed);

  /// Called at the end with the status of the command. Gives it back; that of a failure when the
  /// log could not be written, which is a diagnostic.
  ExitStatus finish(ExitStatus status);

 private:
  CommandBus(const CommandLineHost& host, BusArguments arguments);

  bool is_ready(const BoardFile* board);

  const CommandLineHost* const host_;
  const BusArguments arguments_;
  std::optional<SimulatedBoard> simulation_;
  std::unique_ptr<CanChannel> interface_;
  std::unique_ptr<FrameLog> log_;
  std::optional<TracingChannel> traced_;
};

}  // namespace velmora_can_bridge
