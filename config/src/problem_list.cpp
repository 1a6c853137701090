#include "problem_list.hpp"

#include <algorithm>
#include <tuple>
#include <utility>

namespace velmora_can_bridge {
namespace {

constexpr std::size_t kept_of_each_severity = 100;

bool stands_before(const Problem& left, const Problem& right) {
  return std::tie(left.line, left.column) < std::tie(right.line, right.column);
}

std::size_t missing(std::size_t count) {
  return count > kept_of_each_severity ? count - kept_of_each_severity : 0;
}

}  // namespace

void ProblemList::error(Position at, std::string message) {
  add({Severity::error, at.line, at.column, std::move(message)}, error_count_);
}

void ProblemList::warning(Position at, std::string message) {
  add({Severity::warning, at.line, at.column, std::move(message)}, warning_count_);
}

std::vector<Problem> ProblemList::take() {
  std::vector<Problem> problems = std::exchange(kept_, {});
  std::stable_sort(problems.begin(), problems.end(), stands_before);
  const std::size_t errors = missing(std::exchange(error_count_, 0));
  const std::size_t warnings = missing(std::exchange(warning_count_, 0));
  if (errors + warnings != 0) {
    problems.push_back({errors != 0 ? Severity::error : Severity::warning, 0, 0,
                        "too many problems: " + std::to_string(errors) + " more errors and " +
                            std::to_string(warnings) + " more warnings are not listed"});
  }
  return problems;
}

bool ProblemList::is_known(const Problem& problem) const {
  return std::any_of(kept_.begin(), kept_.end(), [&](const Problem& other) {
    return other.line == problem.line && other.column == problem.column &&
           other.severity == problem.severity && other.message == problem.message;
  });
}

void ProblemList::add(Problem problem, std::size_t& count) {
  if (count < kept_of_each_severity) {
    if (is_known(problem)) {
      return;
    }
    kept_.push_back(std::move(problem));
  }
  ++count;
}

}  // namespace velmora_can_bridge
