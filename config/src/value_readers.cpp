#include "value_readers.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "record_access.hpp"
#include "value_checks.hpp"

namespace velmora_can_bridge {
namespace {

constexpr ValueType all_types[] = {ValueType::u8,   ValueType::s8,   ValueType::u16,
                                   ValueType::s16,  ValueType::u32,  ValueType::s32,
                                   ValueType::u64,  ValueType::s64,  ValueType::float32,
                                   ValueType::text, ValueType::bytes};

bool is_digit(std::string_view text, std::size_t position) {
  return position < text.size() && '0' <= text[position] && text[position] <= '9';
}

bool is_one_of(std::string_view characters, std::string_view text, std::size_t position) {
  return position < text.size() && characters.find(text[position]) != std::string_view::npos;
}

/// What splits a word into name and value, or type and value.
bool has_sign_of_words(std::string_view text) {
  return text.find_first_of("=:") != std::string_view::npos;
}

bool has_blank(std::string_view text) {
  return text.find_first_of(" \t\r\n") != std::string_view::npos;
}

/// As "2", "-1", ".5" and "+.5" do.
bool begins_as_number(std::string_view text) {
  std::size_t position = is_one_of("+-", text, 0) ? 1 : 0;
  position += is_one_of(".", text, position) ? std::size_t{1} : std::size_t{0};
  return is_digit(text, position);
}

/// Behind a number, "x1" and "e-3" would be taken for the rest of it.
bool continues_number(std::string_view text) {
  if (is_digit(text, 0) || is_one_of("+-.", text, 0)) {
    return true;
  }
  const std::size_t sign = is_one_of("eE", text, 0) && is_one_of("+-", text, 1) ? 1 : 0;
  return is_one_of("xXeE", text, 0) && is_digit(text, 1 + sign);
}

void read_type(const Item& item, std::optional<ValueType>& target) {
  if (item.value.type == YamlType::scalar && (target = find_value_type(item.value.text))) {
    return;
  }
  std::vector<std::string> texts;
  for (const ValueType type : all_types) {
    texts.emplace_back(value_type_text(type));
  }
  report_unexpected(item, enumeration(texts));
}

void read_unit(const Item& item, std::string& target) {
  const std::optional<std::string> unit = text_of(item);
  if (!unit) {
    return;
  }
  if (unit->empty() || has_blank(*unit)) {
    report_unexpected(item, "a unit without blanks, such as mm/s");
  } else if (has_sign_of_words(*unit)) {
    report_unexpected(item, R"(a unit without "=" and ":", which split words, such as mm/s)");
  } else if (continues_number(*unit)) {
    report_unexpected(item,
                      "a unit that stands behind a number without being taken for a part of "
                      "it, so not one that begins with a digit, a sign, a point, or with x "
                      "or e before a digit");
  } else {
    target = *unit;
  }
}

void read_count(const Item& item, std::optional<Count>& target) { target = count_of(item); }

void read_scale(const Item& item, std::optional<double>& target) {
  target = positive_decimal_of(item);
}

/// Whether people can write the name of a code as one word in the place of a number.
bool is_word(std::string_view name) {
  return !name.empty() && !has_blank(name) && !begins_as_number(name) && !has_sign_of_words(name);
}

void read_codes(const Item& item, std::vector<NamedCode>& target) {
  if (!is_map(item, "a map from names to numbers")) {
    return;
  }
  for (const YamlEntry& entry : item.value.entries) {
    if (!is_word(entry.key())) {
      item.problems.error(entry.key_value->at,
                          "values: expected a word as name, found " + quoted(entry.key()) +
                              R"( (it has no blank, "=" or ":" and does not begin as a number))");
    }
    const std::string name = "values, " + shortened(entry.key());
    if (const std::optional<Count> code = count_of({name, *entry.value, item.problems})) {
      target.push_back({std::string(entry.key()), *code});
    }
  }
}

constexpr Member<ValueDescription> value_members[] = {
    {"type", optional, read_into<&ValueDescription::type, read_type>},
    {"unit", optional, read_into<&ValueDescription::unit, read_unit>},
    {"minimum", optional, read_into<&ValueDescription::minimum, read_count>},
    {"maximum", optional, read_into<&ValueDescription::maximum, read_count>},
    {"scale", optional, read_into<&ValueDescription::scale, read_scale>},
    {"values", optional, read_into<&ValueDescription::values, read_codes>},
};

constexpr Member<ValueAddress> object_members[] = {
    {"index", required, read_into<&ValueAddress::index, read_number<std::uint16_t, 1>>},
    {"sub_index", optional, read_into<&ValueAddress::sub_index, read_number<std::uint8_t>>},
    {"type", optional, read_with_values<ValueAddress>},
    {"unit", optional, read_with_values<ValueAddress>},
    {"minimum", optional, read_with_values<ValueAddress>},
    {"maximum", optional, read_with_values<ValueAddress>},
    {"scale", optional, read_with_values<ValueAddress>},
    {"values", optional, read_with_values<ValueAddress>},
};

void read_object(const Item& item, ValueAddress& address) {
  read_record("object", item, object_members, address);
}

/// The key of the first part of a description; null when the record describes nothing.
const YamlValue* first_value_key(const YamlValue& record) {
  for (const YamlEntry& entry : record.entries) {
    if (find_member(value_members, entry.key()) != nullptr) {
      return entry.key_value;
    }
  }
  return nullptr;
}

ValueDescription read_description(const YamlValue& record, ProblemList& problems) {
  ValueDescription value;
  for (const YamlEntry& entry : record.entries) {
    if (const Member<ValueDescription>* member = find_member(value_members, entry.key())) {
      member->read({member->name, *entry.value, problems}, value);
    }
  }
  return value;
}

/// Puts the descriptions of one node together: one for each object.
class DescriptionReader {
 public:
  DescriptionReader(NodeConfig& node, ProblemList& problems) : node_(&node), problems_(&problems) {}

  void read_field(const YamlValue& source, const PdoMapping& mapping) {
    const YamlValue* const key = first_value_key(source);
    if (key == nullptr) {
      return;
    }
    if (is_dummy_entry(mapping)) {
      problems_->error(key->at, "mapping: a dummy entry carries no value that " +
                                    quoted(key->text) + " could describe");
      return;
    }
    const ValueDescription value = read_description(source, *problems_);
    check_field_value(source, value, mapping, *problems_);
    add(source, {mapping.index, mapping.sub_index}, value, key->at);
  }

  void read_other(const YamlValue& source, ValueAddress address) {
    const YamlValue* const key = first_value_key(source);
    if (key == nullptr) {
      return;
    }
    const ValueDescription value = read_description(source, *problems_);
    check_object_value(source, value, *problems_);
    add(source, address, value, key->at);
  }

 private:
  void add(const YamlValue& source, ValueAddress address, const ValueDescription& value,
           Position at) {
    if (!readable_address(source)) {
      return;
    }
    const auto [first, is_new] = first_.emplace(address, &source);
    if (is_new) {
      node_->values.emplace(address, value);
    } else if (first->second != &source) {
      problems_->error(at, "object " + object_text(address.index, address.sub_index) +
                               " is described twice, first in line " +
                               std::to_string(first_value_key(*first->second)->at.line));
    }
  }

  NodeConfig* node_;
  ProblemList* problems_;
  /// What describes each object. An alias that repeats it says nothing new.
  std::map<ValueAddress, const YamlValue*> first_;
};

}  // namespace

std::optional<ValueAddress> readable_address(const YamlValue& source) {
  ProblemList reported_before{};
  ValueAddress address;
  for (const Member<ValueAddress>& member : object_members) {
    if (const YamlValue* value = source.find(member.name)) {
      member.read({member.name, *value, reported_before}, address);
    }
  }
  const bool is_readable = address.index != 0 && !reported_before.has_errors();
  return is_readable ? std::make_optional(address) : std::nullopt;
}

void read_values(const YamlValue& source, NodeConfig& node, ProblemList& problems) {
  DescriptionReader reader(node, problems);
  const std::vector<const YamlValue*>& pdos = elements_at(source, "pdos");
  for (std::size_t pdo = 0; pdo < pdos.size(); ++pdo) {
    const std::vector<const YamlValue*>& mappings = elements_at(*pdos[pdo], "mappings");
    for (std::size_t position = 0; position < mappings.size(); ++position) {
      reader.read_field(*mappings[position], node.board.pdos[pdo].mappings[position]);
    }
  }
  const YamlValue* const objects = source.find("objects");
  std::vector<ValueAddress> addresses;
  if (objects == nullptr) {
    return;
  }
  read_list<ValueAddress, read_object>({"objects", *objects, problems}, addresses);
  for (std::size_t position = 0; position < addresses.size(); ++position) {
    reader.read_other(*objects->elements[position], addresses[position]);
  }
}

}  // namespace velmora_can_bridge
