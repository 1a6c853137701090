// What an exit status means.
#pragma once

#include <string_view>

#include "velmora_can_bridge/bridge/explanation.hpp"
#include "velmora_can_bridge/bridge/operation_report.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// The word of the status, as `code` in JSON: "done", "failed", "usage", "no_answer", "bus_fault",
/// "interrupted".
std::string_view exit_status_word(ExitStatus status);

/// The status of a command that failed for `error`.
ExitStatus exit_status_of(const BusError& error);

/// The status of an operation: `operation_failed` when it was refused by a check of its own.
ExitStatus exit_status_of(const OperationReport& report);

/// The status that the operation would have.
ExitStatus exit_status_of(const Explanation& explanation);

/// The status of a command that ended with `status` of a bus.
ExitStatus exit_status_of(CanStatus status);

}  // namespace velmora_can_bridge
