// How tests write down what they expect of a load.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

using Texts = std::vector<std::string>;

/// Every kind, as messages list them.
inline const std::string all_kinds =
    "sdo_write, sdo_read, od_io_read, od_io_write, led_write, read_multi, auto_write, pdo_write, "
    "pdo_patch, bit_patch, pdo_bit_patch, ci402_enable, ci402_disable, ci402_quick_stop, "
    "ci402_set_mode, ci402_set_target, ci402_ramp, claw_action or pump_duty";

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
