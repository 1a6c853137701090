#include "velmora_can_bridge/values/value_words.hpp"

#include <algorithm>
#include <string_view>

#include "device_type_words.hpp"
#include "drive_words.hpp"
#include "ground/drive_objects.hpp"
#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "read_description.hpp"
#include "velmora_can_bridge/values/error_words.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned bits_of_a_byte = 8;
// Numbers up to this length are more usual than texts of so many characters.
constexpr std::size_t usual_number_size = 4;

/// What standards give words to.
enum class StandardObject : std::uint8_t {
  none,
  device_type,
  error_register,
  error_list_entry,
  controlword,
  statusword,
  error_code,
};

StandardObject object_of_drive(const DeviceOdEntry& device, std::uint16_t index) {
  if (!is_drive(device)) {
    return StandardObject::none;
  }
  if (index == drive_index(device, DriveObject::statusword)) {
    return StandardObject::statusword;
  }
  if (index == drive_index(device, DriveObject::controlword)) {
    return StandardObject::controlword;
  }
  // Of a device whose objects begin at 0 there is none below.
  const bool is_below = device.base_index != 0 && index == device.base_index - 1;
  return is_below ? StandardObject::error_code : StandardObject::none;
}

StandardObject object_of_any_node(std::uint16_t index, std::uint8_t sub_index) {
  if (index == 0x1003 && sub_index != 0) {
    return StandardObject::error_list_entry;
  }
  if (index == 0x1000 && sub_index == 0) {
    return StandardObject::device_type;
  }
  const bool is_error_register = index == 0x1001 && sub_index == 0;
  return is_error_register ? StandardObject::error_register : StandardObject::none;
}

StandardObject standard_object(const NodeConfig* node, std::uint16_t index,
                               std::uint8_t sub_index) {
  const StandardObject common = object_of_any_node(index, sub_index);
  if (common != StandardObject::none || node == nullptr || sub_index != 0) {
    return common;
  }
  for (const auto& device : node->board.device_od_map) {
    const StandardObject found = object_of_drive(device.second, index);
    if (found != StandardObject::none) {
      return found;
    }
  }
  return StandardObject::none;
}

std::string standard_words(StandardObject object, std::uint64_t bits) {
  switch (object) {
    case StandardObject::device_type:
      return device_type_words(static_cast<std::uint32_t>(bits));
    case StandardObject::error_register:
      return error_register_words(static_cast<std::uint8_t>(bits));
    case StandardObject::error_list_entry:
    case StandardObject::error_code:
      return emergency_words(static_cast<std::uint16_t>(bits));
    case StandardObject::controlword:
      return controlword_words(static_cast<std::uint16_t>(bits));
    case StandardObject::statusword:
      return statusword_words(static_cast<std::uint16_t>(bits));
    case StandardObject::none:
      break;
  }
  return {};
}

bool is_code(const Count& code, const ValueNumber& number) {
  if (const auto* const with_sign = std::get_if<std::int64_t>(&number)) {
    return code == Count::of(*with_sign);
  }
  const auto* const without_sign = std::get_if<std::uint64_t>(&number);
  return without_sign != nullptr && code == Count::of_unsigned(*without_sign);
}

std::string name_of(const ValueDescription& value, const ValueNumber& number) {
  for (const NamedCode& each : value.values) {
    if (is_code(each.code, number)) {
      return each.name;
    }
  }
  return {};
}

std::string with_unit(const ValueDescription& value, const ValueNumber& number) {
  if (value.unit.empty()) {
    return {};
  }
  return (value.scale ? scaled_text(number, *value.scale) : number_text(number)) + " " + value.unit;
}

ValueReading read_number(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                         const ValueDescription& value, std::uint64_t bits, unsigned bit_length) {
  ValueReading reading;
  const ValueNumber number = number_of_bits(bits, bit_length, value.type);
  reading.number = number;
  const StandardObject object = standard_object(node, index, sub_index);
  reading.is_typed = value.type.has_value() || object != StandardObject::none;
  reading.words = name_of(value, number);
  if (reading.words.empty()) {
    reading.words = standard_words(object, bits);
  }
  if (reading.words.empty()) {
    reading.words = with_unit(value, number);
  }
  return reading;
}

/// Devices fill what is left of a text with zeros.
ValueReading read_text(const Bytes& bytes, bool is_typed) {
  ValueReading reading;
  reading.words.assign(bytes.begin(), bytes.end());
  reading.words.erase(reading.words.find_last_not_of('\0') + 1);
  reading.is_text = true;
  reading.is_typed = is_typed;
  return reading;
}

bool may_be_text(const Bytes& bytes) {
  const bool is_usual_number = is_number_size(bytes.size()) && bytes.size() <= usual_number_size;
  return !bytes.empty() && !is_usual_number &&
         std::all_of(bytes.begin(), bytes.end(),
                     [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; });
}

/// Whether the words say more than the number, and do not begin with it as "300 mm/s" does.
bool stand_beside(const std::string& words, const std::string& number) {
  return !words.empty() && words.compare(0, number.size() + 1, number + " ") != 0;
}

std::string joined_text(const ValueReading& reading, std::string_view before_words,
                        std::string_view behind_words) {
  if (reading.is_text) {
    return '"' + reading.words + '"';
  }
  if (!reading.number) {
    return reading.words;
  }
  const std::string number = number_text(*reading.number);
  if (stand_beside(reading.words, number)) {
    return number + std::string(before_words) + reading.words + std::string(behind_words);
  }
  return reading.words.empty() ? number : reading.words;
}

}  // namespace

ValueReading read_value(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                        const std::vector<std::uint8_t>& bytes) {
  const ValueDescription value = read_description(node, index, sub_index);
  const bool is_text = value.type ? *value.type == ValueType::text : may_be_text(bytes);
  if (is_text) {
    return read_text(bytes, value.type.has_value());
  }
  if (value.type == ValueType::bytes || !is_number_size(bytes.size())) {
    ValueReading reading;
    reading.is_typed = value.type.has_value();
    return reading;
  }
  return read_number(node, index, sub_index, value, little_endian_number(bytes),
                     static_cast<unsigned>(bytes.size() * bits_of_a_byte));
}

ValueReading read_field(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                        std::uint64_t bits, unsigned bit_length) {
  return read_number(node, index, sub_index, read_description(node, index, sub_index), bits,
                     bit_length);
}

std::string value_words(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                        const std::vector<std::uint8_t>& bytes) {
  return read_value(node, index, sub_index, bytes).words;
}

std::string reading_text(const ValueReading& reading) { return joined_text(reading, ", ", ""); }

std::string bracketed_reading_text(const ValueReading& reading) {
  return joined_text(reading, " (", ")");
}

std::string value_text(const std::vector<std::uint8_t>& bytes, const ValueReading& reading) {
  if (bytes.empty()) {
    return "no bytes";
  }
  const std::string text = reading_text(reading);
  return hex_bytes(bytes) + (text.empty() ? "" : " (" + text + ")");
}

}  // namespace velmora_can_bridge
