#include "object_facts.hpp"

#include <charconv>
#include <string_view>
#include <system_error>
#include <vector>

#include "ground/common_objects.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "record_access.hpp"

namespace velmora_can_bridge {
namespace {

std::optional<ProfileObject> common_object(std::uint16_t index, std::uint8_t sub_index) {
  for (const CommonObjectRow& row : common_objects) {
    if (row.index == index && row.sub_index == sub_index) {
      return ProfileObject{row.length, true, row.is_writable, false, false, std::string(row.name)};
    }
  }
  return std::nullopt;
}

/// The first mapping of an object, and where it stands; null when there is none.
struct MappedAt {
  const YamlValue* source = nullptr;
  const PdoMapping* mapping = nullptr;
};

MappedAt find_mapping(const NodeFacts& facts, std::uint16_t index, std::uint8_t sub_index) {
  if (!facts.knows_pdos) {
    return {};
  }
  const std::vector<const YamlValue*>& pdos = elements_at(facts.source, "pdos");
  for (std::size_t position = 0; position < pdos.size(); ++position) {
    const PdoConfig& pdo = facts.node.board.pdos[position];
    const PdoMapping* const found = find_mapping_by_object(pdo, index, sub_index);
    if (found != nullptr) {
      const auto place = static_cast<std::size_t>(found - pdo.mappings.data());
      return {elements_at(*pdos[position], "mappings")[place], found};
    }
  }
  return {};
}

std::optional<KnownLength> described_length(const NodeFacts& facts, std::uint16_t index,
                                            std::uint8_t sub_index) {
  const auto described = facts.node.values.find({index, sub_index});
  if (described == facts.node.values.end() || !described->second.type) {
    return std::nullopt;
  }
  const std::optional<std::size_t> length = length_of(*described->second.type);
  if (!length) {
    return std::nullopt;
  }
  return KnownLength{*length,
                     "is described as " + std::string(value_type_text(*described->second.type))};
}

bool is_decimal_index(std::string_view text) {
  return text.size() == 4 && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// The number that the decimal digits would be with "0x" before them.
std::uint16_t with_prefix(std::string_view digits) {
  std::uint16_t number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  return number;
}

bool is_known(const NodeFacts& facts, std::uint16_t index) {
  return profile_object(facts, index, 0) ||
         (facts.knows_pdos && find_rpdo_number(facts.node.board, index) != 0);
}

}  // namespace

std::optional<ProfileObject> profile_object(const NodeFacts& facts, std::uint16_t index,
                                            std::uint8_t sub_index) {
  if (auto common = common_object(index, sub_index)) {
    return common;
  }
  const auto found = facts.device_objects.find({index, sub_index});
  return found == facts.device_objects.end() ? std::nullopt : std::make_optional(found->second);
}

std::optional<ProfileObject> lone_object(const NodeFacts& facts, std::uint16_t index,
                                         std::uint8_t sub_index) {
  if (sub_index == 0) {
    return std::nullopt;
  }
  for (const CommonObjectRow& row : common_objects) {
    if (row.is_alone && row.index == index) {
      return common_object(index, 0);
    }
  }
  const auto found = facts.device_objects.find({index, 0});
  return found != facts.device_objects.end() && found->second.is_of_drive
             ? std::make_optional(found->second)
             : std::nullopt;
}

std::optional<KnownLength> known_length(const NodeFacts& facts, std::uint16_t index,
                                        std::uint8_t sub_index) {
  auto described = described_length(facts, index, sub_index);
  return described ? described : carried_length(facts, index, sub_index);
}

std::optional<KnownLength> carried_length(const NodeFacts& facts, std::uint16_t index,
                                          std::uint8_t sub_index) {
  const auto profile = profile_object(facts, index, sub_index);
  if (profile && profile->length != 0) {
    return KnownLength{profile->length, "is " + profile->name};
  }
  const MappedAt mapped = find_mapping(facts, index, sub_index);
  if (mapped.mapping == nullptr || mapped.mapping->bit_length % 8 != 0 ||
      mapped.mapping->bit_length == 0) {
    return std::nullopt;
  }
  return KnownLength{byte_length(*mapped.mapping),
                     "is mapped in line " + std::to_string(mapped.source->at.line)};
}

std::optional<ValueType> profile_type(const ProfileObject& object) {
  return find_value_type((object.is_signed ? "s" : "u") + std::to_string(object.length * 8));
}

bool may_be_mapped(const NodeFacts& facts, ValueAddress address) {
  return !facts.knows_pdos ||
         find_mapping(facts, address.index, address.sub_index).mapping != nullptr;
}

void check_described_type(const NodeFacts& facts, const YamlValue& source, ValueAddress address,
                          ProblemList& problems) {
  const YamlValue* const type = source.find("type");
  const auto object = profile_object(facts, address.index, address.sub_index);
  if (type == nullptr || !object) {
    return;
  }
  const std::optional<ValueType> described = find_value_type(type->text);
  const std::optional<ValueType> expected = profile_type(*object);
  if (!described || !expected || described == expected || length_of(*described) != object->length) {
    return;
  }
  problems.error(type->at, "type: " + std::string(value_type_text(*described)) + ", but " +
                               object_text(address.index, address.sub_index) + " is " +
                               object->name + ", write " + std::string(value_type_text(*expected)));
}

void check_index_digits(const NodeFacts& facts, const YamlValue& record, std::uint16_t index,
                        ProblemList& problems) {
  constexpr std::uint16_t first_object = 0x1000;
  const YamlValue* const value = record.find("index");
  if (value == nullptr || !is_decimal_index(value->text)) {
    return;
  }
  const std::uint16_t meant = with_prefix(value->text);
  const std::string message =
      "index: " + value->text + " is " + hex<4>(index) + ", did you mean " + hex<4>(meant) + "?";
  if (index < first_object && meant >= first_object) {
    problems.error(value->at, message);
  } else if (!is_known(facts, index) && is_known(facts, meant)) {
    problems.warning(value->at, message);
  }
}

bool is_short_field(const PdoMapping& mapping) {
  return carries_object(mapping) && byte_length(mapping) == 0;
}

}  // namespace velmora_can_bridge
