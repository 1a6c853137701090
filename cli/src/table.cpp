#include "table.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

#include "ground/visible_text.hpp"
#include "wrapped_text.hpp"

namespace velmora_can_bridge {
namespace {

using Widths = std::vector<std::size_t>;

constexpr std::size_t usual_width = 80;

/// Blanks before each column.
constexpr std::size_t gap = 2;

std::size_t widest_word(const std::string& text) {
  std::size_t widest = 0;
  for (const std::string& word : words_of(text)) {
    widest = std::max(widest, display_width(word));
  }
  return widest;
}

std::size_t sum(const Widths& widths) {
  return std::accumulate(widths.begin(), widths.end(), std::size_t{0});
}

/// The widest column that is wider than it has to be; the number of columns when there is none.
std::size_t widest_to_narrow(const Widths& widths, const Widths& least) {
  std::size_t found = widths.size();
  for (std::size_t column = 0; column < widths.size(); ++column) {
    const bool can_narrow = widths[column] > least[column];
    if (can_narrow && (found == widths.size() || widths[column] > widths[found])) {
      found = column;
    }
  }
  return found;
}

/// Takes columns from the widest until all fit into `room` or are as narrow as `least` says.
void narrow(Widths& widths, const Widths& least, std::size_t room) {
  while (sum(widths) > room) {
    const std::size_t column = widest_to_narrow(widths, least);
    if (column == widths.size()) {
      return;
    }
    --widths[column];
  }
}

std::string line_of(const std::vector<std::vector<std::string>>& cells, const Widths& widths,
                    std::size_t number) {
  std::string line;
  for (std::size_t column = 0; column < cells.size(); ++column) {
    const std::string text = number < cells[column].size() ? cells[column][number] : "";
    line += std::string(gap, ' ') + text +
            std::string(widths[column] - std::min(display_width(text), widths[column]), ' ');
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

void print_row(std::ostream& out, const std::vector<std::string>& row, const Widths& widths) {
  std::vector<std::vector<std::string>> cells;
  std::size_t height = 0;
  for (std::size_t column = 0; column < row.size(); ++column) {
    cells.push_back(display_width(row[column]) <= widths[column]
                        ? std::vector<std::string>{row[column]}
                        : wrapped(row[column], widths[column]));
    height = std::max(height, cells.back().size());
  }
  for (std::size_t line = 0; line < height; ++line) {
    out << line_of(cells, widths, line) << '\n';
  }
}

}  // namespace

void Table::add(std::vector<std::string> row) {
  widths_.resize(std::max(widths_.size(), row.size()));
  word_widths_.resize(widths_.size());
  for (std::size_t column = 0; column < row.size(); ++column) {
    row[column] = visible_text(row[column]);
    widths_[column] = std::max(widths_[column], display_width(row[column]));
    word_widths_[column] = std::max(word_widths_[column], widest_word(row[column]));
  }
  rows_.push_back(std::move(row));
}

Table Table::without(std::size_t column) const {
  Table rest;
  for (std::vector<std::string> row : rows_) {
    row.erase(row.begin() + static_cast<std::ptrdiff_t>(std::min(column, row.size())),
              row.begin() + static_cast<std::ptrdiff_t>(std::min(column + 1, row.size())));
    rest.add(std::move(row));
  }
  return rest;
}

void Table::print(const CommandLineHost& host) const {
  const std::size_t width = host.width == 0 ? usual_width : host.width;
  const bool cuts_words = sum(word_widths_) + gap * word_widths_.size() > width;
  if (dispensable_ && cuts_words) {
    without(*dispensable_).print_rows(host.out, width);
  } else {
    print_rows(host.out, width);
  }
}

void Table::print_rows(std::ostream& out, std::size_t width) const {
  const std::size_t room = width - std::min(width, gap * widths_.size());
  Widths widths = widths_;
  narrow(widths, word_widths_, room);
  narrow(widths, Widths(widths.size(), 1), room);  // words are cut only where it must be
  for (const std::vector<std::string>& row : rows_) {
    print_row(out, row, widths);
  }
}

}  // namespace velmora_can_bridge
