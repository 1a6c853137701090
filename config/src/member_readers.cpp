#include "member_readers.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

#include "ground/nearest_name.hpp"
#include "ground/number_text.hpp"

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

struct UnsignedNumber {
  /// The largest one in the place of a number that is too large.
  std::uint64_t number = 0;
  bool is_too_large = false;
};

std::optional<UnsignedNumber> unsigned_digits(std::string_view digits, int base) {
  std::uint64_t number = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, failure] = std::from_chars(digits.data(), end, number, base);
  if (stop != end || failure == std::errc::invalid_argument) {
    return std::nullopt;
  }
  if (failure != std::errc()) {
    return UnsignedNumber{std::numeric_limits<std::uint64_t>::max(), true};
  }
  return UnsignedNumber{number, false};
}

std::optional<UnsignedNumber> unsigned_number(std::string_view text) {
  constexpr std::string_view hexadecimal = "0x";
  if (has_prefix(text, hexadecimal)) {
    return unsigned_digits(text.substr(hexadecimal.size()), 16);
  }
  return unsigned_digits(text, 10);
}

bool has_leading_zero(std::string_view text) {
  return text.size() > 1 && text[0] == '0' && '0' <= text[1] && text[1] <= '9';
}

/// The number, or the one as far below 0; no value when no count is.
std::optional<Count> count_from(const UnsignedNumber& parsed, bool is_negative) {
  constexpr std::uint64_t farthest_below = std::uint64_t{1} << 63U;
  if (parsed.is_too_large || (is_negative && parsed.number > farthest_below)) {
    return std::nullopt;
  }
  return is_negative ? Count::of(static_cast<std::int64_t>(0 - parsed.number))
                     : Count::of_unsigned(parsed.number);
}

bool is_hexadecimal(std::string_view digits) {
  return !digits.empty() &&
         digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

/// The digits of a hexadecimal number that is written in another way, 60FF, 6041h or 0X10; empty
/// for any other text. Letters alone may be a word.
std::string_view foreign_hexadecimal(std::string_view text) {
  if (has_prefix(text, "0X")) {
    text.remove_prefix(2);
    return is_hexadecimal(text) ? text : std::string_view();
  }
  const bool has_suffix = text.size() > 1 && (text.back() == 'h' || text.back() == 'H');
  text.remove_suffix(has_suffix ? 1 : 0);
  const bool has_digit = text.find_first_of("0123456789") != std::string_view::npos;
  return has_digit && is_hexadecimal(text) ? text : std::string_view();
}

/// Why the scalar is no number, when that is not plain to see.
std::string number_hint(const YamlValue& value) {
  if (value.type != YamlType::scalar) {
    return "";
  }
  if (!unsigned_number(value.text)) {
    const std::string_view digits = foreign_hexadecimal(value.text);
    return digits.empty() ? "" : " (a hexadecimal number is written 0x" + shortened(digits) + ")";
  }
  if (value.is_text) {
    return " (a number has no quotes)";
  }
  return has_leading_zero(value.text) ? " (a number has no leading zeros)" : "";
}

std::string limit_text(std::uint64_t limit) {
  return limit == 0xFFFF ? "0xFFFF" : std::to_string(limit);
}

/// The choice that differs in its case alone, else the nearest; empty when none is near.
std::string_view meant_choice(const std::string& text,
                              const std::vector<std::string_view>& choices) {
  for (const std::string_view choice : choices) {
    if (in_lower_case(text) == in_lower_case(choice)) {
      return choice;
    }
  }
  return nearest_name(text, choices);
}

/// What people write for a key, and its name.
struct OtherName {
  std::string_view written;
  std::string_view key;
};

constexpr OtherName other_names[] = {
    {"sub", "sub_index"},     {"subindex", "sub_index"},
    {"sub_idx", "sub_index"}, {"bits", "bit_length"},
    {"length", "bit_length"}, {"size", "bit_length"},
    {"name", "field"},        {"name", "label"},
    {"id", "node_id"},        {"devices", "device_od_map"},
    {"base", "base_index"},   {"cobid", "cob_id"},
    {"min", "minimum"},       {"max", "maximum"},
    {"factor", "scale"},      {"enum", "values"},
    {"codes", "values"},      {"pdo", "pdo_number"},
    {"rpdo", "pdo_number"},   {"data", "fixed_data"},
    {"type", "data_type"},    {"offset", "index_offset"},
    {"mapping", "mappings"},  {"homing", "homing_record"},
    {"dir", "direction"},     {"operation", "kind"},
};

/// The one of `known` that `key` is another word for, or near to; empty when there is none.
std::string_view meant_key(std::string_view key, const std::vector<std::string_view>& known) {
  const std::string_view nearest = nearest_name(key, known);
  if (!nearest.empty()) {
    return nearest;
  }
  for (const OtherName& other : other_names) {
    const bool is_known = std::find(known.begin(), known.end(), other.key) != known.end();
    if (is_known && other.written == in_lower_case(key)) {
      return other.key;
    }
  }
  return {};
}

/// What to write in the place of a key that a record does not have.
std::string key_advice(std::string_view key, const std::vector<std::string_view>& known) {
  if (key == "<<") {
    return ", there are no merge keys; write the keys out, or let an alias stand for all of a "
           "value";
  }
  const std::size_t colon = key.find(':');
  if (colon != std::string_view::npos && colon > 0) {
    return ", write a blank behind the colon: " +
           quoted(std::string(key.substr(0, colon)) + ": " + std::string(key.substr(colon + 1)));
  }
  const std::string_view meant = meant_key(key, known);
  return meant.empty() ? "" : ", did you mean " + quoted(meant) + "?";
}

/// One byte of data; a larger number would have several.
void read_data_byte(const Item& item, std::uint8_t& target) {
  constexpr std::uint64_t two_bytes = 0xFFFF;
  const auto parsed = item.value.type == YamlType::scalar && !item.value.is_text
                          ? unsigned_number(item.value.text)
                          : std::nullopt;
  const bool is_long = parsed && parsed->number > 0xFF && parsed->number <= two_bytes;
  if (!is_long) {
    read_number<std::uint8_t>(item, target);
    return;
  }
  const auto number = static_cast<std::uint32_t>(parsed->number);
  report_unexpected(item, "a number from 0 to 255",
                    " (it has two bytes, the low one first: " + hex<2>(number) + ", " +
                        hex<2>(number >> 8U) + ")");
}

}  // namespace

void report_unexpected(const Item& item, const std::string& expectation, const std::string& hint) {
  item.problems.error(item.value.at, shortened(item.name) + ": expected " + expectation +
                                         ", found " + found_text(item.value) + hint);
}

std::optional<std::uint64_t> number_among(const Item& item, const std::vector<NumberRange>& ranges,
                                          const std::string& expectation) {
  const YamlValue& value = item.value;
  if (value.type == YamlType::scalar && !value.is_text && !has_leading_zero(value.text)) {
    const std::optional<UnsignedNumber> parsed = unsigned_number(value.text);
    const bool is_allowed =
        parsed && std::any_of(ranges.begin(), ranges.end(), [&](const NumberRange& range) {
          return range.low <= parsed->number && parsed->number <= range.high;
        });
    if (is_allowed) {
      return parsed->number;
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

std::optional<Count> count_of(const Item& item) {
  const YamlValue& value = item.value;
  const bool is_negative = has_prefix(value.text, "-");
  const std::string_view digits = std::string_view(value.text).substr(is_negative ? 1 : 0);
  if (value.type == YamlType::scalar && !value.is_text && !has_leading_zero(digits)) {
    const std::optional<UnsignedNumber> number = unsigned_number(digits);
    if (const auto count = number ? count_from(*number, is_negative) : std::nullopt) {
      return count;
    }
  }
  report_unexpected(item, "a whole number of at most 64 bits", number_hint(value));
  return std::nullopt;
}

std::optional<double> positive_decimal_of(const Item& item) {
  const std::string& text = item.value.text;
  if (item.value.type == YamlType::scalar && !item.value.is_text && !has_leading_zero(text)) {
    double number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number);
    if (stop == end && failure == std::errc() && number > 0 && std::isfinite(number)) {
      return number;
    }
  }
  report_unexpected(item, "a decimal number above 0, such as 0.001");
  return std::nullopt;
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
  record.problems.error(entry.key_value->at, std::string(record.name) + ": unknown key " +
                                                 quoted(entry.key()) +
                                                 key_advice(entry.key(), known));
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

void report_no_choice(const Item& item, const std::vector<std::string_view>& choices,
                      const std::string& expectation) {
  const bool is_scalar = item.value.type == YamlType::scalar;
  const std::string_view meant = is_scalar ? meant_choice(item.value.text, choices) : "";
  report_unexpected(item, expectation,
                    meant.empty() ? "" : ", did you mean " + quoted(meant) + "?");
}

void read_data(const Item& item, std::vector<std::uint8_t>& target) {
  read_list<std::uint8_t, read_data_byte>(item, target);
}

void read_text(const Item& item, std::string& target) {
  if (std::optional<std::string> text = text_of(item)) {
    target = std::move(*text);
  }
}

}  // namespace velmora_can_bridge
