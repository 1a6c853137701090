// Texts in columns.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// Rows of texts, printed as columns as wide as their widest text, or narrower where the terminal
/// is: texts of the widest columns then go on in the next line. Control characters are escaped.
class Table {
 public:
  void add(std::vector<std::string> row);

  /// The column, counted from 0, is left out where words would have to be cut else.
  void give_up(std::size_t column) { dispensable_ = column; }

  /// To `host.out`, in lines of at most `host.width` columns, where that is room for two columns
  /// of blanks and one of text for each column of the table.
  void print(const CommandLineHost& host) const;

 private:
  Table without(std::size_t column) const;
  void print_rows(std::ostream& out, std::size_t width) const;

  std::vector<std::vector<std::string>> rows_;
  std::vector<std::size_t> widths_;
  // Of the longest word in each column.
  std::vector<std::size_t> word_widths_;
  std::optional<std::size_t> dispensable_;
};

}  // namespace velmora_can_bridge
