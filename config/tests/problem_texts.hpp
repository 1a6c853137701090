// How tests write down what they expect of a load.
#pragma once

#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {

using Texts = std::vector<std::string>;

/// Every kind, as messages list them.
inline const std::string all_kinds = [] {
  std::string text;
  for (const OperationKind& row : operation_kinds) {
    const bool is_last = &row == std::end(operation_kinds) - 1;
    text += std::string(text.empty() ? "" : is_last ? " or " : ", ") + std::string(row.kind);
  }
  return text;
}();

/// "line:column: error: message" of each problem; without the place for the file as a whole.
inline Texts texts_of(const std::vector<Problem>& problems) {
  Texts texts;
  for (const Problem& problem : problems) {
    const std::string text = problem_text("", problem);
    texts.push_back(text.substr(text.find_first_not_of(": ")));
  }
  return texts;
}

/// A file and the problems that loading it reports.
struct ProblemCase {
  std::string name;
  std::string yaml;
  Texts problems;
};

inline void PrintTo(const ProblemCase& row, std::ostream* out) { *out << row.name; }

/// A test name of a row of any table.
struct RowName {
  template <typename Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

}  // namespace velmora_can_bridge
