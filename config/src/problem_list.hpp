// Collecting the problems of a file while it is read.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ground/quoted_text.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// A place in the file, counted from 1, columns in bytes; all 0 for the file as a whole.
struct Position {
  std::size_t line = 0;
  std::size_t column = 0;
};

/// The problems so far. Keeps 100 errors and 100 warnings and counts the others. A problem that is
/// reported again (a part of the file that aliases repeat) is kept once.
class ProblemList {
 public:
  void error(Position at, std::string message);
  void warning(Position at, std::string message);

  /// True also when the error was counted only.
  bool has_errors() const { return error_count_ != 0; }

  /// The kept problems in the order of the file, those of one place in the order of their report,
  /// and last the note about the others. Empties the list.
  std::vector<Problem> take();

 private:
  bool is_known(const Problem& problem) const;
  /// Keeps the problem when `count` of its severity allows it, and counts it.
  void add(Problem problem, std::size_t& count);

  std::vector<Problem> kept_;
  std::size_t error_count_ = 0;
  std::size_t warning_count_ = 0;
};

}  // namespace velmora_can_bridge
