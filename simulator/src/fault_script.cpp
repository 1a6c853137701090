#include "velmora_can_bridge/simulator/fault_script.hpp"

#include <optional>
#include <utility>

#include "fault_line.hpp"
#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t most_problems = 100;

/// Keeps the first of them.
void shorten(std::vector<FaultScriptProblem>& problems) {
  if (problems.size() <= most_problems) {
    return;
  }
  const std::size_t missing = problems.size() - most_problems;
  problems.resize(most_problems);
  problems.push_back(
      {0, 0, counted(missing, "more mistake") + (missing == 1 ? " is" : " are") + " not listed"});
}

}  // namespace

FaultScript parse_fault_script(std::string_view text,
                               const std::vector<const SimulatedBusNode*>& nodes) {
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  if (text.substr(0, byte_order_mark.size()) == byte_order_mark) {
    text.remove_prefix(byte_order_mark.size());
  }
  std::vector<Fault> faults;
  std::vector<FaultScriptProblem> problems;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    if (std::optional<Fault> fault = FaultLine(line, number, nodes, problems).read()) {
      faults.push_back(*std::move(fault));
    }
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  shorten(problems);
  if (!problems.empty()) {
    return Unexpected{std::move(problems)};
  }
  return faults;
}

}  // namespace velmora_can_bridge
