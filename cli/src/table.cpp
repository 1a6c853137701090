#include "table.hpp"

#include <algorithm>
#include <utility>

#include "ground/visible_text.hpp"

namespace velmora_can_bridge {
namespace {

/// Any byte of a UTF-8 character but its first.
bool is_continuation(char character) {
  return (static_cast<unsigned char>(character) & 0xC0U) == 0x80U;
}

/// Columns that `text`, which is UTF-8, takes on a terminal; wide characters count as one.
std::size_t display_width(const std::string& text) {
  return text.size() -
         static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

}  // namespace

void Table::add(std::vector<std::string> row) {
  widths_.resize(std::max(widths_.size(), row.size()));
  for (std::size_t column = 0; column < row.size(); ++column) {
    row[column] = visible_text(row[column]);
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
