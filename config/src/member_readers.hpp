// Readers of values: each takes an item and fills its target, or reports why it cannot and leaves
// the target alone. They compose: a list of records is read_list<Record, read_the_record>.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ground/nearest_name.hpp"
#include "problem_list.hpp"
#include "velmora_can_bridge/config/value_description.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// A value to read, and how messages call it.
struct Item {
  std::string_view name;
  const YamlValue& value;
  ProblemList& problems;
};

template <typename Target>
using Reader = void (*)(const Item& item, Target& target);

enum class Presence { required, optional };
inline constexpr Presence required = Presence::required;
inline constexpr Presence optional = Presence::optional;

/// One key of a record in the file, and how its value comes into the record.
template <typename Record>
struct Member {
  std::string_view name;
  Presence presence = Presence::optional;
  Reader<Record> read = nullptr;
};

/// Reports "<name>: expected <expectation>, found <what stands there>" and then `hint`.
void report_unexpected(const Item& item, const std::string& expectation,
                       const std::string& hint = "");

/// Numbers from `low` to `high`, both among them.
struct NumberRange {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

/// The number, decimal without leading zeros or hexadecimal after "0x", when it lies in one of
/// `ranges`. Else reports it, with `expectation`.
std::optional<std::uint64_t> number_among(const Item& item, const std::vector<NumberRange>& ranges,
                                          const std::string& expectation);

/// As `number_among`, from `low` to `high`.
std::optional<std::uint64_t> number_between(const Item& item, std::uint64_t low,
                                            std::uint64_t high);

/// The whole number, written as those of `number_among` and with "-" before it where it is below 0.
/// Else reports it.
std::optional<Count> count_of(const Item& item);

/// The number above 0, "250", "0.001" or "1e-3", as the nearest `double`. Else reports it; so what
/// is too large or too small for one.
std::optional<double> positive_decimal_of(const Item& item);

/// The text of any scalar. Else reports it.
std::optional<std::string> text_of(const Item& item);

/// What true, false, 1 or 0 says. Else reports it.
std::optional<bool> flag_of(const Item& item);

/// True when the value is a list. Else reports it.
bool is_list(const Item& item);

/// True when the value is a map. Else reports it, with `expectation`.
bool is_map(const Item& item, const std::string& expectation);

/// Reports a key of the record that no member has.
void report_unknown_key(const Item& record, const YamlEntry& entry,
                        const std::vector<std::string_view>& known);

template <typename Number, std::uint64_t low = 0,
          std::uint64_t high = std::numeric_limits<Number>::max()>
void read_number(const Item& item, Number& target) {
  if (const std::optional<std::uint64_t> number = number_between(item, low, high)) {
    target = static_cast<Number>(*number);
  }
}

template <typename Flag>
void read_flag(const Item& item, Flag& target) {
  if (const std::optional<bool> flag = flag_of(item)) {
    target = Flag{*flag};
  }
}

void read_text(const Item& item, std::string& target);

/// Reports that none of `choices` stands there, and which of them may be meant.
void report_no_choice(const Item& item, const std::vector<std::string_view>& choices,
                      const std::string& expectation);

/// One of the texts of the array `choices`, exactly.
template <const auto& choices>
void read_choice(const Item& item, std::string& target) {
  std::vector<std::string> expected;
  for (const std::string_view choice : choices) {
    if (item.value.type == YamlType::scalar && item.value.text == choice) {
      target = choice;
      return;
    }
    expected.push_back(quoted(choice));
  }
  report_no_choice(item, {std::begin(choices), std::end(choices)}, enumeration(expected));
}

/// One element for each of the file's, also for those that could not be read.
template <typename Element, Reader<Element> read_element>
void read_list(const Item& item, std::vector<Element>& target) {
  if (!is_list(item)) {
    return;
  }
  for (const YamlValue* value : item.value.elements) {
    read_element({item.name, *value, item.problems}, target.emplace_back());
  }
}

/// As `read_list`, of the bytes that are written: a hint tells how a number that needs more than
/// one of them is written.
void read_data(const Item& item, std::vector<std::uint8_t>& target);

/// A map from names, which are not empty, to records.
template <typename Map, Reader<typename Map::mapped_type> read_value>
void read_named(const Item& item, Map& target) {
  if (!is_map(item, "a map from names to records")) {
    return;
  }
  for (const YamlEntry& entry : item.value.entries) {
    if (entry.key().empty()) {
      item.problems.error(entry.key_value->at, std::string(item.name) + ": a name is empty");
    }
    read_value({entry.key(), *entry.value, item.problems}, target[std::string(entry.key())]);
  }
}

template <typename Value, typename Record>
Record record_of(Value Record::*member);
template <typename Value, typename Record>
Value value_of(Value Record::*member);

/// Reads into one member of a record: a row of a member table.
template <auto member, Reader<decltype(value_of(member))> read>
void read_into(const Item& item, decltype(record_of(member))& record) {
  read(item, record.*member);
}

template <typename Record, std::size_t size>
std::vector<std::string_view> names_of(const Member<Record> (&members)[size]) {
  std::vector<std::string_view> names;
  for (const Member<Record>& member : members) {
    names.push_back(member.name);
  }
  return names;
}

template <typename Record, std::size_t size>
const Member<Record>* find_member(const Member<Record> (&members)[size], std::string_view name) {
  for (const Member<Record>& member : members) {
    if (member.name == name) {
      return &member;
    }
  }
  return nullptr;
}

/// Reads every key by the row of its name; reports unknown and missing keys. `noun` is what
/// messages call such a record.
template <typename Record, std::size_t size>
void read_record(std::string_view noun, const Item& item, const Member<Record> (&members)[size],
                 Record& record) {
  const Item named{noun, item.value, item.problems};
  if (!is_map(named, "a map")) {
    return;
  }
  for (const YamlEntry& entry : item.value.entries) {
    if (const Member<Record>* member = find_member(members, entry.key())) {
      member->read({member->name, *entry.value, item.problems}, record);
    } else {
      report_unknown_key(named, entry, names_of(members));
    }
  }
  for (const Member<Record>& member : members) {
    if (member.presence == Presence::required && item.value.find(member.name) == nullptr) {
      item.problems.error(item.value.at,
                          std::string(noun) + ": missing key " + quoted(member.name));
    }
  }
}

}  // namespace velmora_can_bridge
