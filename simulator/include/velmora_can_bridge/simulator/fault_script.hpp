/// Faults of simulated nodes, read from a script.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/fault.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One mistake in a script of faults.
struct FaultScriptProblem {
  /// Counted from 1; 0 when the problem is the script as a whole.
  std::size_t line = 0;
  /// Counted from 1, in bytes; 0 together with `line`.
  std::size_t column = 0;
  /// What is wrong and what was expected, one line. Text of the script is quoted, shortened to 40
  /// bytes, and free of control characters.
  std::string message{};
};

/// The faults in the order of their lines, or all mistakes in theirs.
using FaultScript = Expected<std::vector<Fault>, std::vector<FaultScriptProblem>>;

/// Reads a script, whose format docs/simulator.md describes: one fault a line, such as
/// "node 0x10 at 2.5 s: restart".
///
/// A node that is none of `nodes`, and an object or a drive that its node does not have, are
/// mistakes. At most 100 are told; one more at the end then tells how many are missing. `nodes`
/// are looked at during the call only; none is null. Safe to call from several threads at once.
FaultScript parse_fault_script(std::string_view text,
                               const std::vector<const SimulatedBusNode*>& nodes);

}  // namespace velmora_can_bridge
