#include "table.hpp"

#include <algorithm>
#include <utility>

#include "printable.hpp"

namespace velmora_can_bridge {

void Table::add(std::vector<std::string> row) {
  widths_.resize(std::max(widths_.size(), row.size()));
  for (std::size_t column = 0; column < row.size(); ++column) {
    row[column] = printable(row[column]);
    widths_[column] = std::max(widths_[column], display_width(row[column]));
  }
  rows_.push_back(std::move(row));
}

void Table::print(std::ostream& out) const {
  for (const std::vector<std::string>& row : rows_) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      line += "  " + row[column] + std::string(widths_[column] - display_width(row[column]), ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

}  // namespace velmora_can_bridge
