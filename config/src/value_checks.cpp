#include "value_checks.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "record_access.hpp"

namespace velmora_can_bridge {
namespace {

bool has_counts(ValueType type) { return type != ValueType::text && type != ValueType::bytes; }

/// What the counts of a description must lie in, and how messages call it.
struct CountLimits {
  CountRange range;
  std::string name;
};

bool is_negative(const std::optional<Count>& count) { return count && count->is_negative(); }

bool has_negative_count(const ValueDescription& value) {
  bool found = is_negative(value.minimum) || is_negative(value.maximum);
  for (const NamedCode& named : value.values) {
    found = found || named.code.is_negative();
  }
  return found;
}

/// Of a whole number of that type; without a type of a field's bits, with a sign when one of the
/// counts has one. No value when nothing is known: `bit_length` is 0 where there is no field.
std::optional<CountLimits> limits_of(const ValueDescription& value, unsigned bit_length) {
  if (value.type) {
    const std::optional<std::size_t> length = length_of(*value.type);
    return is_integer(*value.type) && length
               ? std::make_optional(CountLimits{
                     range_of_bits(static_cast<unsigned>(*length) * 8, is_signed(*value.type)),
                     std::string(value_type_text(*value.type))})
               : std::nullopt;
  }
  if (bit_length == 0) {
    return std::nullopt;
  }
  return CountLimits{range_of_bits(bit_length, has_negative_count(value)),
                     counted(bit_length, "bit")};
}

void check_within(const CountLimits& limits, const std::string& name, Count count, Position at,
                  ProblemList& problems) {
  if (!limits.range.contains(count)) {
    problems.error(at, name + ": " + count_text(count) + " does not fit into " + limits.name +
                           " (" + count_text(limits.range.minimum) + " to " +
                           count_text(limits.range.maximum) + ")");
  }
}

/// A code that could be read, and where it stands.
struct PlacedCode {
  const NamedCode* named;
  Position at;
};

/// In one pass over the file's, of which some may be missing in `value`.
std::vector<PlacedCode> placed_codes(const YamlValue& source, const ValueDescription& value) {
  std::vector<PlacedCode> placed;
  for (const YamlEntry& entry : entries_at(source, "values")) {
    const std::size_t next = placed.size();
    if (next < value.values.size() && value.values[next].name == entry.key()) {
      placed.push_back({&value.values[next], entry.value->at});
    }
  }
  return placed;
}

void check_limits(const YamlValue& source, const ValueDescription& value, const CountLimits& limits,
                  ProblemList& problems) {
  if (value.minimum) {
    check_within(limits, "minimum", *value.minimum, member_or_record(source, "minimum").at,
                 problems);
  }
  if (value.maximum) {
    check_within(limits, "maximum", *value.maximum, member_or_record(source, "maximum").at,
                 problems);
  }
  for (const PlacedCode& code : placed_codes(source, value)) {
    check_within(limits, "values, " + shortened(code.named->name), code.named->code, code.at,
                 problems);
  }
}

void check_codes(const YamlValue& source, const ValueDescription& value, ProblemList& problems) {
  std::map<Count, std::string_view> first;
  for (const PlacedCode& code : placed_codes(source, value)) {
    const auto [found, is_new] = first.emplace(code.named->code, code.named->name);
    if (!is_new) {
      problems.error(code.at, "values: " + count_text(code.named->code) + " has the name " +
                                  quoted(found->second) + " already, a code has one name");
    }
  }
}

/// What only a number can have, and of that what only a whole one can.
void check_keys_of_numbers(const YamlValue& source, ValueType type, ProblemList& problems) {
  if (is_integer(type)) {
    return;
  }
  constexpr std::string_view keys[] = {"minimum", "maximum", "values", "scale"};
  const std::string type_text(value_type_text(type));
  for (const YamlEntry& entry : source.entries) {
    const auto* const key = std::find(std::begin(keys), std::end(keys), entry.key());
    const bool is_of_float = has_counts(type) && entry.key() == "scale";
    if (key == std::end(keys) || is_of_float) {
      continue;
    }
    problems.error(entry.key_value->at,
                   std::string(*key) + (has_counts(type)
                                            ? ": counts are for whole numbers, not for " + type_text
                                            : ": only a number has one, not " + type_text));
  }
}

/// A name that the description's own range shuts out.
void check_codes_in_range(const YamlValue& source, const ValueDescription& value,
                          ProblemList& problems) {
  for (const PlacedCode& code : placed_codes(source, value)) {
    const Count count = code.named->code;
    const bool is_below = value.minimum && count < *value.minimum;
    if (is_below || (value.maximum && *value.maximum < count)) {
      problems.warning(
          code.at, "values, " + shortened(code.named->name) + ": " + count_text(count) + " is " +
                       (is_below ? "less than the minimum, " : "more than the maximum, ") +
                       count_text(is_below ? *value.minimum : *value.maximum));
    }
  }
}

void check_parts(const YamlValue& source, const ValueDescription& value, unsigned bit_length,
                 ProblemList& problems) {
  if (value.type) {
    check_keys_of_numbers(source, *value.type, problems);
  }
  if (value.type && !has_counts(*value.type)) {
    return;
  }
  if (value.scale && source.find("unit") == nullptr) {
    problems.error(member_or_record(source, "scale").at,
                   "scale: a count is so much of what? write its unit as well");
  }
  if (value.type == ValueType::float32) {
    return;
  }
  if (value.minimum && value.maximum && *value.maximum < *value.minimum) {
    problems.error(member_or_record(source, "maximum").at,
                   "maximum: " + count_text(*value.maximum) + " is less than the minimum, " +
                       count_text(*value.minimum));
  }
  if (const std::optional<CountLimits> limits = limits_of(value, bit_length)) {
    check_limits(source, value, *limits, problems);
  }
  check_codes(source, value, problems);
  check_codes_in_range(source, value, problems);
}

/// What to write for such a field.
std::string types_of(const PdoMapping& mapping) {
  const bool is_broken = mapping.bit_length % 8 != 0;
  switch (is_broken ? 0 : byte_length(mapping)) {
    case 1:
      return "write u8 or s8";
    case 2:
      return "write u16 or s16";
    case 4:
      return "write u32, s32 or float32";
    case 8:
      return "write u64 or s64";
    default:
      return "leave the type out";
  }
}

void check_type_of_field(const YamlValue& source, ValueType type, const PdoMapping& mapping,
                         ProblemList& problems) {
  const bool fits = length_of(type) && *length_of(type) * 8 == mapping.bit_length;
  if (!fits) {
    problems.error(member_or_record(source, "type").at,
                   "type: " + std::string(value_type_text(type)) + " does not suit a field of " +
                       counted(mapping.bit_length, "bit") + ", " + types_of(mapping));
  }
}

}  // namespace

void check_object_value(const YamlValue& source, const ValueDescription& value,
                        ProblemList& problems) {
  check_parts(source, value, 0, problems);
}

void check_counts(const YamlValue& source, const ValueDescription& value, ValueType type,
                  ProblemList& problems) {
  ValueDescription typed = value;
  typed.type = type;
  if (const std::optional<CountLimits> limits = limits_of(typed, 0)) {
    check_limits(source, typed, *limits, problems);
  }
}

void check_field_value(const YamlValue& source, const ValueDescription& value,
                       const PdoMapping& mapping, ProblemList& problems) {
  const bool has_known_length = mapping.bit_length != 0;
  if (value.type && has_known_length) {
    check_type_of_field(source, *value.type, mapping, problems);
  }
  // What the type could not say may be right: nothing is judged by the bits in its place.
  const bool has_unreadable_type = !value.type && source.find("type") != nullptr;
  check_parts(source, value, has_unreadable_type ? 0 : mapping.bit_length, problems);
}

}  // namespace velmora_can_bridge
