#include "problem_list.hpp"

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>

#include "ground/visible_text.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t kept_of_each_severity = 100;
constexpr std::size_t printed_bytes = 40;

/// How many of the text's bytes are printed: whole UTF-8 characters only.
std::size_t printed_length(std::string_view text) {
  if (text.size() <= printed_bytes) {
    return text.size();
  }
  std::size_t length = printed_bytes;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  return length;
}

/// What ends a quoted text, or would look like an escape in it.
std::string with_quotes_escaped(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '"' || character == '\\') {
      escaped += '\\';
    }
    escaped += character;
  }
  return escaped;
}

std::string escaped_in_problem(std::uint32_t code_point) {
  return code_point == '\n' ? "\\n" : escaped_code_point(code_point);
}

bool stands_before(const Problem& left, const Problem& right) {
  return std::tie(left.line, left.column) < std::tie(right.line, right.column);
}

std::size_t missing(std::size_t count) {
  return count > kept_of_each_severity ? count - kept_of_each_severity : 0;
}

}  // namespace

std::string shortened(std::string_view text) {
  const std::size_t length = printed_length(text);
  const std::string printed = with_hidden_escaped(with_quotes_escaped(text.substr(0, length)),
                                                  escaped_in_problem, escaped_byte);
  return length < text.size() ? printed + "..." : printed;
}

std::string quoted(std::string_view text) { return '"' + shortened(text) + '"'; }

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
