// Faults of simulated nodes that a script names, and what is told of them.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/fault.hpp"

namespace velmora_can_bridge {

class ScriptedFaults {
 public:
  /// Gives the nodes their faults. They outlive this; none is null.
  ScriptedFaults(std::vector<Fault> faults, std::vector<SimulatedBusNode*> nodes);

  /// Prints each fault that has struck since the last call, on a line.
  void tell_new(const CommandLineHost& host);

  /// Prints those that have not struck.
  void tell_missing(const CommandLineHost& host) const;

 private:
  const std::vector<Fault> faults_;
  const std::vector<SimulatedBusNode*> nodes_;
  // Places in faults_.
  std::set<std::size_t> struck_;
};

/// The faults of the script in the file `path`, none where there is no path; no value when there
/// are mistakes, which are printed.
std::optional<ScriptedFaults> load_faults(const CommandLineHost& host,
                                          const std::optional<std::string>& path,
                                          const std::vector<SimulatedBusNode*>& nodes);

}  // namespace velmora_can_bridge
