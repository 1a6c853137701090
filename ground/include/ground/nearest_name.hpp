// Names that people type: what a wrong one was meant to be, and which there are.
#pragma once

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmora_can_bridge {

/// `text` with the letters of ASCII in lower case.
inline std::string in_lower_case(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
    const bool is_upper = 'A' <= character && character <= 'Z';
    return is_upper ? static_cast<char>(character - 'A' + 'a') : character;
  });
  return lower;
}

/// How many characters must be added, removed, replaced or exchanged with their neighbour to make
/// one of the other.
inline std::size_t edit_distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> before_last;
  std::vector<std::size_t> last(right.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t line = 1; line <= left.size(); ++line) {
    std::vector<std::size_t> row{line};
    for (std::size_t column = 1; column <= right.size(); ++column) {
      const bool is_same = left[line - 1] == right[column - 1];
      std::size_t distance = std::min(last[column - 1] + (is_same ? 0 : 1),
                                      std::min(row[column - 1], last[column]) + 1);
      if (line > 1 && column > 1 && left[line - 1] == right[column - 2] &&
          left[line - 2] == right[column - 1]) {
        distance = std::min(distance, before_last[column - 2] + 1);
      }
      row.push_back(distance);
    }
    before_last = std::exchange(last, std::move(row));
  }
  return last.back();
}

/// The candidate that `name` is a slip of the pen of: at most two changes away, and fewer than half
/// of its characters. Empty when none is near enough, and for a name of more than 40 bytes. The
/// first one of several that are equally near.
inline std::string_view nearest_name(std::string_view name,
                                     const std::vector<std::string_view>& candidates) {
  constexpr std::size_t longest_name = 40;
  constexpr std::size_t farthest = 2;
  if (name.size() > longest_name) {
    return {};
  }
  std::string_view nearest;
  std::size_t bound = std::min(farthest + 1, (name.size() + 1) / 2);
  for (const std::string_view candidate : candidates) {
    const std::size_t distance = edit_distance(name, candidate);
    if (distance < bound) {
      bound = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

/// "a, b or c".
inline std::string enumeration(const std::vector<std::string>& texts) {
  std::string joined;
  for (std::size_t position = 0; position < texts.size(); ++position) {
    const bool is_last = position + 1 == texts.size();
    joined += position == 0 ? "" : is_last ? " or " : ", ";
    joined += texts[position];
  }
  return joined;
}

}  // namespace velmora_can_bridge
