#include "command_bus.hpp"

#include <algorithm>
#include <utility>

#include "interface_channel.hpp"
#include "report.hpp"

namespace velmora_can_bridge {

SdoTimes sdo_times(const BusArguments& arguments) {
  SdoTimes times;
  times.frame_timeout = std::chrono::milliseconds(arguments.timeout);
  times.quarantine = times.frame_timeout;
  times.transfer_timeout = std::max(times.transfer_timeout, times.frame_timeout);
  return times;
}

std::unique_ptr<CommandBus> CommandBus::open(const CommandLineHost& host,
                                             const BusArguments& arguments,
                                             const BoardFile* board) {
  std::unique_ptr<CommandBus> bus(new CommandBus(host, arguments));
  return bus->is_ready(board) ? std::move(bus) : nullptr;
}

CommandBus::CommandBus(const CommandLineHost& host, BusArguments arguments)
    : host_(&host), arguments_(std::move(arguments)) {}

bool CommandBus::is_ready(const BoardFile* board) {
  const bool simulates = arguments_.bus == simulated_bus;
  if (simulates && board == nullptr) {
    print_diagnostic(*host_,
                     "nothing to simulate: name a board file (--board FILE), or a CAN "
                     "interface (--bus can0)");
    return false;
  }
  if (!arguments_.trace.empty()) {
    Expected<std::unique_ptr<FrameLog>> log = FrameLog::open(arguments_.trace, arguments_.bus);
    if (!log) {
      print_diagnostic(*host_, log.error());
      return false;
    }
    log_ = std::move(*log);
  }
  if (simulates) {
    simulation_.emplace(*board);
  } else {
    interface_ = interface_channel(*host_, arguments_.bus);
  }
  if (log_) {
    traced_.emplace(simulates ? static_cast<CanChannel&>(*simulation_) : *interface_, *log_);
  }
  return true;
}

CanChannel& CommandBus::channel() {
  if (traced_) {
    return *traced_;
  }
  if (simulation_) {
    return *simulation_;
  }
  return *interface_;
}

void CommandBus::tick(std::chrono::milliseconds elapsed) {
  if (simulation_) {
    simulation_->tick(elapsed);
  }
}

ExitStatus CommandBus::finish(ExitStatus status) {
  if (!log_ || log_->is_complete()) {
    return status;
  }
  print_diagnostic(*host_, "cannot write all of " + arguments_.trace);
  return status == ExitStatus::success ? ExitStatus::operation_failed : status;
}

}  // namespace velmora_can_bridge
