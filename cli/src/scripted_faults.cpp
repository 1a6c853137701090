#include "scripted_faults.hpp"

#include <algorithm>
#include <chrono>
#include <ostream>
#include <utility>

#include "ground/read_file.hpp"
#include "ground/visible_text.hpp"
#include "report.hpp"
#include "velmora_can_bridge/simulator/fault_script.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t longest_script = 2'000'000;

/// "2.500 s".
std::string seconds_text(std::chrono::milliseconds time) {
  const std::string digits = std::to_string(time.count());
  const std::string padded = std::string(4 - std::min<std::size_t>(digits.size(), 4), '0') + digits;
  return padded.substr(0, padded.size() - 3) + "." + padded.substr(padded.size() - 3) + " s";
}

std::string fault_text(const Fault& fault) {
  return "line " + std::to_string(fault.line) + ": " + visible_text(fault.text);
}

/// That the file as a whole is of no use.
FaultScript failed(const std::string& reason) {
  return Unexpected{std::vector<FaultScriptProblem>{{0, 0, reason}}};
}

FaultScript read_script(const std::string& path, const std::vector<SimulatedBusNode*>& nodes) {
  const Expected<std::string> text = read_file(path, longest_script);
  if (!text) {
    return failed(text.error());
  }
  if (text->size() > longest_script) {
    return failed("the file is larger than " + std::to_string(longest_script) + " bytes");
  }
  return parse_fault_script(*text, {nodes.begin(), nodes.end()});
}

}  // namespace

ScriptedFaults::ScriptedFaults(std::vector<Fault> faults, std::vector<SimulatedBusNode*> nodes)
    : faults_(std::move(faults)), nodes_(std::move(nodes)) {
  for (SimulatedBusNode* const node : nodes_) {
    node->set_faults(faults_);
  }
}

void ScriptedFaults::tell_new(const CommandLineHost& host) {
  for (SimulatedBusNode* const node : nodes_) {
    for (const FaultEffect& effect : node->take_fault_effects()) {
      host.out << "fault at " << seconds_text(effect.time) << ", "
               << fault_text(faults_[effect.fault]) << std::endl;
      struck_.insert(effect.fault);
    }
  }
}

void ScriptedFaults::tell_missing(const CommandLineHost& host) const {
  for (std::size_t place = 0; place < faults_.size(); ++place) {
    if (struck_.count(place) == 0) {
      host.out << "fault that never struck, " << fault_text(faults_[place]) << '\n';
    }
  }
}

std::optional<ScriptedFaults> load_faults(const CommandLineHost& host,
                                          const std::optional<std::string>& path,
                                          const std::vector<SimulatedBusNode*>& nodes) {
  if (!path) {
    return ScriptedFaults({}, nodes);
  }
  FaultScript faults = read_script(*path, nodes);
  if (faults) {
    return ScriptedFaults(*std::move(faults), nodes);
  }
  for (const FaultScriptProblem& problem : faults.error()) {
    print_problem(host, *path, {Severity::error, problem.line, problem.column, problem.message});
  }
  return std::nullopt;
}

}  // namespace velmora_can_bridge
