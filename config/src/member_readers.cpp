#include "member_readers.hpp"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <system_error>
#include <utility>

namespace velmora_can_bridge {
namespace {

std::string found_text(const YamlValue& value) {
  switch (value.type) {
    case YamlType::null:
      return "nothing";
    case YamlType::list:
      return "a list";
    case YamlType::map:
      return "a map";
    case YamlType::scalar:
      break;
  }
  return (value.is_text ? "the text " : "") + quoted(value.text);
}

bool has_prefix(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

/// A number too large for the result gives the largest result.
std::optional<std::uint64_t> unsigned_digits(std::string_view digits, int base) {
  std::uint64_t number = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, failure] = std::from_chars(digits.data(), end, number, base);
  if (stop != end || failure == std::errc::invalid_argument) {
    return std::nullopt;
  }
  return failure == std::errc() ? number : std::numeric_limits<std::uint64_t>::max();
}

std::optional<std::uint64_t> unsigned_number(std::string_view text) {
  constexpr std::string_view hexadecimal = "0x";
  if (has_prefix(text, hexadecimal)) {
    return unsigned_digits(text.substr(hexadecimal.size()), 16);
  }
  return unsigned_digits(text, 10);
}

bool has_leading_zero(std::string_view text) {
  return text.size() > 1 && text[0] == '0' && '0' <= text[1] && text[1] <= '9';
}

/// Why the scalar is no number, when that is not plain to see.
std::string number_hint(const YamlValue& value) {
  if (value.type != YamlType::scalar || !unsigned_number(value.text)) {
    return "";
  }
  if (value.is_text) {
    return " (a number has no quotes)";
  }
  return has_leading_zero(value.text) ? " (a number has no leading zeros)" : "";
}

std::string limit_text(std::uint64_t limit) {
  return limit == 0xFFFF ? "0xFFFF" : std::to_string(limit);
}

/// How many characters must be added, removed or replaced to make one of the other.
std::size_t edit_distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t line = 1; line <= left.size(); ++line) {
    std::size_t diagonal = std::exchange(row[0], line);
    for (std::size_t column = 1; column <= right.size(); ++column) {
      const std::size_t replaced = diagonal + (left[line - 1] == right[column - 1] ? 0 : 1);
      const std::size_t shifted = std::min(row[column - 1], row[column]) + 1;
      diagonal = std::exchange(row[column], std::min(replaced, shifted));
    }
  }
  return row.back();
}

}  // namespace

void report_unexpected(const Item& item, const std::string& expectation, const std::string& hint) {
  item.problems.error(item.value.at, shortened(item.name) + ": expected " + expectation +
                                         ", found " + found_text(item.value) + hint);
}

std::string_view nearest_name(std::string_view name,
                              const std::vector<std::string_view>& candidates) {
  constexpr std::size_t longest_name = 40;
  constexpr std::size_t farthest = 2;
  if (name.size() > longest_name) {
    return {};
  }
  std::string_view nearest;
  // At most two changes, and fewer than half of the characters.
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

std::string enumeration(const std::vector<std::string>& texts) {
  std::string joined;
  for (std::size_t position = 0; position < texts.size(); ++position) {
    const bool is_last = position + 1 == texts.size();
    joined += position == 0 ? "" : is_last ? " or " : ", ";
    joined += texts[position];
  }
  return joined;
}

std::optional<std::uint64_t> number_among(const Item& item, const std::vector<NumberRange>& ranges,
                                          const std::string& expectation) {
  const YamlValue& value = item.value;
  if (value.type == YamlType::scalar && !value.is_text && !has_leading_zero(value.text)) {
    const std::optional<std::uint64_t> number = unsigned_number(value.text);
    const bool is_allowed =
        number && std::any_of(ranges.begin(), ranges.end(), [&](const NumberRange& range) {
          return range.low <= *number && *number <= range.high;
        });
    if (is_allowed) {
      return number;
    }
  }
  report_unexpected(item, expectation, number_hint(value));
  return std::nullopt;
}

std::optional<std::uint64_t> number_between(const Item& item, std::uint64_t low,
                                            std::uint64_t high) {
  return number_among(item, {{low, high}},
                      "a number from " + limit_text(low) + " to " + limit_text(high));
}

std::optional<std::string> text_of(const Item& item) {
  if (item.value.type == YamlType::scalar) {
    return item.value.text;
  }
  report_unexpected(item, "a text");
  return std::nullopt;
}

bool is_list(const Item& item) {
  if (item.value.type == YamlType::list) {
    return true;
  }
  report_unexpected(item, "a list");
  return false;
}

bool is_map(const Item& item, const std::string& expectation) {
  if (item.value.type == YamlType::map) {
    return true;
  }
  report_unexpected(item, expectation);
  return false;
}

void report_unknown_key(const Item& record, const YamlEntry& entry,
                        const std::vector<std::string_view>& known) {
  const std::string_view nearest = nearest_name(entry.key(), known);
  const std::string suggestion = nearest.empty() ? "" : ", did you mean " + quoted(nearest) + "?";
  record.problems.error(entry.key_value->at, std::string(record.name) + ": unknown key " +
                                                 quoted(entry.key()) + suggestion);
}

std::optional<bool> flag_of(const Item& item) {
  struct Row {
    std::string_view text;
    bool flag;
  };
  static constexpr Row rows[] = {{"true", true}, {"false", false}, {"1", true}, {"0", false}};
  if (item.value.type == YamlType::scalar && !item.value.is_text) {
    for (const Row& row : rows) {
      if (item.value.text == row.text) {
        return row.flag;
      }
    }
  }
  report_unexpected(item, "true, false, 1 or 0");
  return std::nullopt;
}

void read_text(const Item& item, std::string& target) {
  if (std::optional<std::string> text = text_of(item)) {
    target = std::move(*text);
  }
}

}  // namespace velmora_can_bridge
