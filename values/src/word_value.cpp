#include "word_value.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "ground/little_endian.hpp"
#include "ground/parse_number.hpp"
#include "name_match.hpp"
#include "payload_value.hpp"
#include "short_word.hpp"
#include "typed_word.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

bool is_number(const PayloadValue& value) {
  return is_integer(value.type) || value.type == ValueType::float32;
}

Expected<Bytes> checked(const PayloadValue& value, Count count, std::string_view word) {
  if (const auto refusal = range_refusal(value, count)) {
    return Unexpected{short_word(word) + " is " + *refusal};
  }
  return little_endian_bytes(count.bits(), value.length);
}

// --- with a type before a colon ---

Expected<Bytes> wrong_type(const PayloadValue& value, std::string_view word) {
  return Unexpected{in_quotes(word) + " has the wrong type, expected " + payload_type_text(value)};
}

/// Whether range, unit or names say that the value is counted.
bool is_counted(const PayloadValue& value) {
  return !has_whole_range(value) || !value.unit.empty() || !value.values.empty();
}

/// Another type of the same length, where nobody tells the value's own.
bool may_be(const PayloadValue& value, ValueType type) {
  return !value.is_type_known && length_of(type) == value.length &&
         (is_integer(type) || !is_counted(value));
}

/// A number by itself, whatever the value is; the range stays the value's where it has one.
Expected<Bytes> number_of_type(const PayloadValue& value, ValueType type, std::string_view word,
                               std::string_view number) {
  Expected<Bytes> bytes = number_bytes(type, number);
  if (!bytes) {
    return Unexpected{in_quotes(word) + ": " + bytes.error()};
  }
  const std::optional<Count> count = parse_count(number);
  if (is_integer(value.type) && count && !has_whole_range(value) && !value.range.contains(*count)) {
    return Unexpected{short_word(number) + " is " + out_of_range_text(value)};
  }
  return bytes;
}

Expected<Bytes> typed_number(const PayloadValue& value, ValueType type, std::string_view word,
                             std::string_view number) {
  const bool takes_any = value.length == 0 && value.type == ValueType::bytes;
  const bool is_same = type == value.type && is_integer(type);
  if (!is_same && !takes_any && type != value.type && !(is_number(value) && may_be(value, type))) {
    return wrong_type(value, word);
  }
  if (!is_same) {
    return number_of_type(value, type, word, number);
  }
  if (!parse_number(number)) {
    return Unexpected{in_quotes(number) + " is not a decimal or 0x hexadecimal number"};
  }
  const std::optional<Count> count = parse_count(number);
  return count ? checked(value, *count, number)
               : Unexpected{short_word(number) + " is " + out_of_range_text(value)};
}

Expected<Bytes> hex_word(const PayloadValue& value, std::string_view word,
                         std::string_view digits) {
  Expected<Bytes> bytes = hex_digits_bytes(digits);
  if (!bytes) {
    return Unexpected{in_quotes(word) + ": " + bytes.error()};
  }
  if (value.length != 0 && bytes->size() != value.length) {
    return Unexpected{in_quotes(word) + " has the wrong width, expected " +
                      payload_type_text(value)};
  }
  if (!is_integer(value.type)) {
    return bytes;
  }
  const auto refusal = range_refusal(value, count_of(value, *bytes));
  return refusal ? Unexpected{short_word(word) + " is " + *refusal} : bytes;
}

Expected<Bytes> typed_word(const PayloadValue& value, std::string_view word, std::size_t colon) {
  const std::string_view prefix = word.substr(0, colon);
  const std::string_view rest = word.substr(colon + 1);
  if (prefix == "hex") {
    return hex_word(value, word, rest);
  }
  if (prefix == "text") {
    return is_number(value) ? wrong_type(value, word) : Bytes(rest.begin(), rest.end());
  }
  const std::optional<ValueType> type = find_value_type(prefix);
  if (!type || !length_of(*type)) {
    return Unexpected{"unknown type " + in_quotes(prefix) +
                      ", expected u8, s8, u16, s16, u32, s32, u64, s64, float32, hex or text"};
  }
  return typed_number(value, *type, word, rest);
}

// --- without one ---

/// A decimal number at the beginning of a word, and what stands behind it.
struct Measure {
  double number = 0;
  /// Where `number` is a whole one that a count can hold, and no exponent was written.
  std::optional<Count> whole;
  std::string_view unit;
};

/// What the number is to be taken for that no double holds: it has a negative exponent, or is too
/// large. A number so long without an exponent does not come from people.
double too_large_or_small(std::string_view number) {
  const double infinity = std::numeric_limits<double>::infinity();
  const bool is_small =
      number.find("e-") != std::string_view::npos || number.find("E-") != std::string_view::npos;
  return is_small ? 0 : number.front() == '-' ? -infinity : infinity;
}

std::optional<Measure> parse_measure(std::string_view word) {
  const std::string_view digits = word.substr(word.substr(0, 1) == "-" ? 1 : 0);
  // from_chars would take "infinity" and "nan".
  if (digits.empty() || std::string_view(".0123456789").find(digits.front()) == std::string::npos) {
    return std::nullopt;
  }
  Measure measure;
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, measure.number);
  if (error == std::errc::invalid_argument) {
    return std::nullopt;
  }
  if (error == std::errc::result_out_of_range) {
    measure.number =
        too_large_or_small({word.data(), static_cast<std::size_t>(stop - word.data())});
  }
  const auto length = static_cast<std::size_t>(stop - word.data());
  measure.whole = parse_count(word.substr(0, length));
  measure.unit = word.substr(length);
  return measure;
}

/// The half that the number is meant to be: decimal halves come out of a division beside it.
double with_exact_half(double number) {
  constexpr double most_error = 0.01;
  const double doubled = number * 2;
  const double half = std::round(doubled);
  const double error = 4 * std::numeric_limits<double>::epsilon() * std::abs(doubled);
  return std::abs(doubled - half) <= std::min(error, most_error) ? half / 2 : number;
}

std::optional<Count> nearest_count(double number) {
  constexpr double beyond_signed = 9223372036854775808.0;
  constexpr double beyond_unsigned = 18446744073709551616.0;
  const double rounded = std::round(with_exact_half(number));
  if (!(rounded >= -beyond_signed && rounded < beyond_unsigned)) {
    return std::nullopt;
  }
  return rounded < 0 ? Count::of(static_cast<std::int64_t>(rounded))
                     : Count::of_unsigned(static_cast<std::uint64_t>(rounded));
}

/// What stands behind the number is no unit, but shows what was meant.
std::optional<std::string> slip_text(const PayloadValue& value, const Measure& measure,
                                     std::string_view word) {
  const std::string_view rest = measure.unit;
  if (rest.find_first_not_of(" \t") != 0) {
    return in_quotes(word) + " has a blank; write number and unit without a blank";
  }
  if (rest.front() == ',') {
    return in_quotes(word) + " has a comma; write a point, as in 0.5" + value.unit;
  }
  const bool is_hexadecimal_number = rest.front() == 'x' || rest.front() == 'X';
  if (is_hexadecimal_number && is_hexadecimal(rest.substr(1)) && word.front() == '-') {
    return in_quotes(word) + ": a hexadecimal number has no sign; write it in decimal";
  }
  return std::nullopt;
}

Expected<Bytes> measured(const PayloadValue& value, const Measure& measure, std::string_view word) {
  if (const auto slip = slip_text(value, measure, word)) {
    return Unexpected{*slip};
  }
  if (value.unit.empty()) {
    return Unexpected{in_quotes(word) + " has a unit, this value has none"};
  }
  if (measure.unit != value.unit) {
    return Unexpected{in_quotes(word) + " is in " + short_word(measure.unit) + ", expected " +
                      value.unit};
  }
  const double number = measure.number / value.scale.value_or(1);
  if (value.type == ValueType::float32) {
    return float_bytes(number);
  }
  const std::optional<Count> count =
      value.scale || !measure.whole ? nearest_count(number) : measure.whole;
  if (!count) {
    return Unexpected{short_word(word) + " is " + out_of_range_text(value)};
  }
  if (const auto refusal = range_refusal(value, *count)) {
    return Unexpected{short_word(word) + ", which is " + count_text(*count) + " counts, is " +
                      *refusal};
  }
  return little_endian_bytes(count->bits(), value.length);
}

/// Digits of whole bytes, as many as the value has: lowest first, so that zeros behind change
/// nothing, and those before are left out where there are too many.
std::string padded_digits(const PayloadValue& value, std::string_view word) {
  std::string digits = (word.size() % 2 == 0 ? "" : "0") + std::string(word);
  const std::size_t wanted = value.length == 0 ? digits.size() : value.length * 2;
  while (digits.size() > wanted && digits.compare(0, 2, "00") == 0) {
    digits.erase(0, 2);
  }
  digits.resize(std::max(digits.size(), wanted), '0');
  return digits;
}

/// How bytes are written that look like this word.
std::string bytes_hint(const PayloadValue& value, std::string_view word) {
  if (is_hexadecimal(word)) {
    return "hex:" + short_word(padded_digits(value, word));
  }
  return value.length == 0 ? "hex:0F00" : "hex:" + padded_digits(value, "0F");
}

bool is_named(const PayloadValue& value, std::string_view word) {
  return std::any_of(value.values.begin(), value.values.end(),
                     [&](const NamedCode& code) { return code.name == word; });
}

/// Hexadecimal digits may be meant as a number: of names they stand for whole ones alone.
Expected<Bytes> named_code(const PayloadValue& value, std::string_view word) {
  if (is_hexadecimal(word) && !is_named(value, word)) {
    return Unexpected{in_quotes(word) + " is neither a number nor a name; write 0x" +
                      short_word(word) + " for the number, " + bytes_hint(value, word) +
                      " for bytes"};
  }
  if (value.values.empty()) {
    return Unexpected{in_quotes(word) + " is no number; write bytes as " + bytes_hint(value, "")};
  }
  std::vector<std::string_view> names;
  for (const NamedCode& code : value.values) {
    names.push_back(code.name);
  }
  const Expected<std::size_t> found = match_name(names, word, "code");
  if (!found) {
    return Unexpected{found.error()};
  }
  return checked(value, value.values[*found].code, word);
}

/// Eight for some readers, ten for others, and sixteen for who thinks of bytes.
bool begins_with_0(std::string_view number) {
  const std::string_view digits = number.substr(number.substr(0, 1) == "-" ? 1 : 0);
  return digits.size() > 1 && digits.front() == '0' && is_hexadecimal(digits);
}

Expected<Bytes> bare_integer(const PayloadValue& value, std::string_view word) {
  if (parse_number(word)) {
    const std::optional<Count> count = parse_count(word);
    if (count && begins_with_0(word)) {
      return Unexpected{in_quotes(word) + " begins with 0; write " + count_text(*count) +
                        " for the number, " + bytes_hint(value, word) + " for bytes"};
    }
    return count ? checked(value, *count, word)
                 : Unexpected{short_word(word) + " is " + out_of_range_text(value)};
  }
  const std::optional<Measure> measure = parse_measure(word);
  // "5A" are digits, and a current where the unit is A.
  const bool has_unit = measure && !measure->unit.empty() && measure->unit == value.unit;
  if (is_named(value, word) || !measure || (is_hexadecimal(word) && !has_unit)) {
    return named_code(value, word);
  }
  if (measure->unit.empty()) {
    return Unexpected{
        in_quotes(word) + " is no whole number of counts" +
        (value.unit.empty() ? "" : "; with " + value.unit + " behind it, it is converted")};
  }
  return measured(value, *measure, word);
}

Expected<Bytes> bare_float(const PayloadValue& value, std::string_view word) {
  const std::optional<Measure> measure = parse_measure(word);
  if (measure && !measure->unit.empty()) {
    return measured(value, *measure, word);
  }
  return measure ? float_bytes(measure->number) : number_bytes(ValueType::float32, word);
}

Expected<Bytes> bare_word(const PayloadValue& value, std::string_view word) {
  if (is_integer(value.type)) {
    return bare_integer(value, word);
  }
  if (value.type == ValueType::float32) {
    return bare_float(value, word);
  }
  if (value.type == ValueType::text) {
    return Bytes(word.begin(), word.end());
  }
  return Unexpected{in_quotes(word) + " does not say its type; write a number as u16:" +
                    (parse_number(word) ? short_word(word) : "500") + ", bytes as " +
                    bytes_hint(value, word) + ", text as text:..."};
}

}  // namespace

Expected<std::vector<std::uint8_t>> word_bytes(const PayloadValue& value, std::string_view word) {
  const std::size_t colon = word.find(':');
  // A text of its own may hold a colon.
  const bool is_typed = colon != std::string_view::npos &&
                        (value.type != ValueType::text || word.substr(0, colon) == "text" ||
                         word.substr(0, colon) == "hex");
  return is_typed ? typed_word(value, word, colon) : bare_word(value, word);
}

}  // namespace velmora_can_bridge
