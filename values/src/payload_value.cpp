#include "payload_value.hpp"

#include <algorithm>

#include "ground/drive_objects.hpp"
#include "ground/pdo.hpp"
#include "velmora_can_bridge/values/object_value.hpp"

namespace velmora_can_bridge {
namespace {

constexpr unsigned bits_per_byte = 8;
constexpr std::size_t longest_number = 8;

/// The shortest whole number that holds so many bytes.
ValueType integer_of(std::size_t length, bool has_sign) {
  if (length == 1) {
    return has_sign ? ValueType::s8 : ValueType::u8;
  }
  if (length == 2) {
    return has_sign ? ValueType::s16 : ValueType::u16;
  }
  if (length <= 4) {
    return has_sign ? ValueType::s32 : ValueType::u32;
  }
  return has_sign ? ValueType::s64 : ValueType::u64;
}

/// A range or a code below 0 tells a sign where no type does.
bool has_sign(const ValueDescription& meaning) {
  if (meaning.type) {
    return is_signed(*meaning.type);
  }
  const auto is_below_0 = [](const NamedCode& code) { return code.code.is_negative(); };
  return (meaning.minimum && meaning.minimum->is_negative()) ||
         (meaning.maximum && meaning.maximum->is_negative()) ||
         std::any_of(meaning.values.begin(), meaning.values.end(), is_below_0);
}

void take_meaning(PayloadValue& value, const ValueDescription& meaning) {
  value.unit = meaning.unit;
  value.scale = meaning.scale;
  value.values = meaning.values;
  if (is_integer(value.type)) {
    narrow(value, meaning);
  }
}

/// In bytes, of the first PDO that maps the object; 0 where none does, or its bits are no whole
/// bytes.
std::size_t mapped_length(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index) {
  for (const PdoConfig& pdo : node.board.pdos) {
    const PdoMapping* const mapping = find_mapping_by_object(pdo, index, sub_index);
    if (mapping != nullptr && carries_object(*mapping)) {
      const bool is_whole = mapping->bit_length % bits_per_byte == 0 && is_possible(*mapping);
      return is_whole ? byte_length(*mapping) : 0;
    }
  }
  return 0;
}

}  // namespace

bool is_possible(const PdoMapping& mapping) { return byte_length(mapping) <= longest_number; }

PayloadValue plain_value(const std::string& name, ValueType type) {
  PayloadValue value;
  value.name = name;
  value.type = type;
  value.length = length_of(type).value_or(0);
  value.is_type_known = true;
  if (is_integer(type)) {
    value.range =
        range_of_bits(static_cast<unsigned>(value.length) * bits_per_byte, is_signed(type));
  }
  return value;
}

PayloadValue ranged_value(const std::string& name, ValueType type, std::int64_t minimum,
                          std::int64_t maximum) {
  PayloadValue value = plain_value(name, type);
  value.range = {Count::of(minimum), Count::of(maximum)};
  return value;
}

PayloadValue any_bytes(const std::string& name) {
  PayloadValue value = plain_value(name, ValueType::bytes);
  value.is_type_known = false;
  return value;
}

PayloadValue sized_value(const std::string& name, const ValueDescription& meaning,
                         std::size_t length) {
  const bool is_number = meaning.type && is_integer(*meaning.type);
  const bool is_float = meaning.type == ValueType::float32 && length == 4;
  PayloadValue value =
      plain_value(name, is_float ? ValueType::float32 : integer_of(length, has_sign(meaning)));
  value.is_type_known = is_number || is_float || has_sign(meaning);
  value.length = length;
  if (is_integer(value.type)) {
    value.range =
        range_of_bits(static_cast<unsigned>(length) * bits_per_byte, is_signed(value.type));
  }
  if (is_number || is_float || !meaning.type) {
    take_meaning(value, meaning);
  }
  return value;
}

PayloadValue object_payload(const NodeConfig* node, const std::string& name, std::uint16_t index,
                            std::uint8_t sub_index) {
  const ValueDescription meaning =
      node == nullptr ? ValueDescription() : object_value(node, index, sub_index);
  if (!meaning.type) {
    const std::size_t length = node == nullptr ? 0 : mapped_length(*node, index, sub_index);
    return length == 0 ? any_bytes(name) : sized_value(name, meaning, length);
  }
  PayloadValue value = plain_value(name, *meaning.type);
  take_meaning(value, meaning);
  return value;
}

PayloadValue field_value(const NodeConfig& node, const PdoMapping& mapping) {
  const std::string name =
      mapping.field.empty() ? value_name(node, mapping.index, mapping.sub_index) : mapping.field;
  return sized_value(name, object_value(&node, mapping.index, mapping.sub_index),
                     byte_length(mapping));
}

std::string value_name(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index) {
  for (const PdoConfig& pdo : node.board.pdos) {
    const PdoMapping* const mapping = find_mapping_by_object(pdo, index, sub_index);
    if (mapping != nullptr && !mapping->field.empty()) {
      return mapping->field;
    }
  }
  for (const auto& device : node.board.device_od_map) {
    const DriveObjectRow* const row = find_drive_object(device.second, index);
    if (row != nullptr && sub_index == 0) {
      std::string name(row->name);
      std::replace(name.begin(), name.end(), ' ', '_');
      return name;
    }
  }
  return "value";
}

void narrow(PayloadValue& value, Count minimum, Count maximum) {
  value.range = {std::max(value.range.minimum, minimum), std::min(value.range.maximum, maximum)};
}

void narrow(PayloadValue& value, const ValueDescription& meaning) {
  narrow(value, meaning.minimum.value_or(value.range.minimum),
         meaning.maximum.value_or(value.range.maximum));
}

Expected<PayloadLayout> if_possible(Expected<PayloadLayout> layout) {
  if (!layout) {
    return layout;
  }
  for (const PayloadValue& value : layout->values) {
    if (is_integer(value.type) && value.range.maximum < value.range.minimum) {
      return Unexpected{"the range of " + value.name + " and that of the operation do not meet"};
    }
  }
  return layout;
}

}  // namespace velmora_can_bridge
