// Texts in columns.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace velmora_can_bridge {

/// Rows of texts, printed as columns as wide as their widest text. Control characters
/// are escaped.
class Table {
 public:
  void add(std::vector<std::string> row);
  void print(std::ostream& out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
  std::vector<std::size_t> widths_;
};

}  // namespace velmora_can_bridge
