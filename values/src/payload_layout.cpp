#include "velmora_can_bridge/values/payload_layout.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "ground/data_types.hpp"
#include "ground/drive_objects.hpp"
#include "ground/kind_tables.hpp"
#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "named_drive_modes.hpp"
#include "payload_value.hpp"
#include "velmora_can_bridge/values/object_value.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Layout = Expected<PayloadLayout>;

constexpr std::string_view sdo_transport = "sdo";

const DeviceOdEntry* find_device(const PayloadUse& use) {
  const auto found = use.node.board.device_od_map.find(use.device);
  return found == use.node.board.device_od_map.end() ? nullptr : &found->second;
}

Layout one_value(PayloadValue value) {
  PayloadLayout layout;
  layout.more_may_follow = value.type == ValueType::bytes && value.length == 0;
  layout.values.push_back(std::move(value));
  return layout;
}

Layout nothing(const PayloadUse& /*use*/, const Bytes& /*beginning*/) { return PayloadLayout{}; }

// --- by SDO ---

/// The description for bytes of that type. Of another sort of value, such as a float32, nothing
/// fits but the type: its counts and its unit are not those of a whole number.
ValueDescription as_type(const ValueDescription& meaning, ValueType type) {
  ValueDescription converted =
      meaning.type && !is_integer(*meaning.type) ? ValueDescription() : meaning;
  converted.type = type;
  return converted;
}

/// The description for the bytes of `data_type`; where it has their length, it knows more of them.
ValueDescription as_data_type(const ValueDescription& meaning, std::string_view data_type) {
  const ValueType type = find_value_type(data_type).value_or(ValueType::bytes);
  const bool fits = meaning.type && length_of(*meaning.type) == length_of(type);
  return fits ? meaning : as_type(meaning, type);
}

bool has_no_type(const OperationConfig& op) {
  return op.data_type.empty() || op.data_type == "raw";
}

std::optional<std::string> type_refusal(const OperationConfig& op) {
  const bool is_known = has_no_type(op) || sized_type_length(op.data_type);
  return is_known ? std::nullopt : std::make_optional("unknown data_type \"" + op.data_type + "\"");
}

/// The value of the operation's own object, as its `data_type` has it.
Layout typed_object(const PayloadUse& use) {
  const OperationConfig& op = use.operation;
  const std::string name = value_name(use.node, op.index, op.sub_index);
  if (has_no_type(op)) {
    return one_value(object_payload(&use.node, name, op.index, op.sub_index));
  }
  if (const auto refusal = type_refusal(op)) {
    return Unexpected{*refusal};
  }
  const ValueDescription meaning = object_value(&use.node, op.index, op.sub_index);
  return one_value(
      sized_value(name, as_data_type(meaning, op.data_type), *sized_type_length(op.data_type)));
}

Layout sub_index_and_data(const PayloadUse& use, const Bytes& beginning) {
  Layout layout =
      one_value(beginning.empty()
                    ? any_bytes("data")
                    : object_payload(&use.node, "data", use.operation.index, beginning.front()));
  layout->values.insert(layout->values.begin(), plain_value("sub_index", ValueType::u8));
  layout->selecting = 1;
  return layout;
}

Layout sdo_write(const PayloadUse& use, const Bytes& beginning) {
  const OperationConfig& op = use.operation;
  if (op.subindex_in_payload != 0) {
    return sub_index_and_data(use, beginning);
  }
  if (!op.fixed_data.empty()) {
    PayloadLayout layout;
    layout.remark = "always writes " + hex_bytes(op.fixed_data);
    return layout;
  }
  Layout layout = typed_object(use);
  if (layout && !op.default_data.empty()) {
    layout->values.front().is_optional = true;
    layout->remark = "writes " + hex_bytes(op.default_data) + " without it";
  }
  return layout;
}

Layout od_io_read(const PayloadUse& /*use*/, const Bytes& /*beginning*/) {
  PayloadLayout layout;
  layout.values = {plain_value("offset", ValueType::u16), plain_value("sub_index", ValueType::u8)};
  for (PayloadValue& value : layout.values) {
    value.is_optional = true;
  }
  layout.remark = "0 for what is left out";
  return layout;
}

const PdoMapping* find_rpdo_mapping(const BoardConfig& board, std::uint16_t index,
                                    std::uint8_t sub_index) {
  for (const PdoConfig& pdo : board.pdos) {
    const PdoMapping* const mapping =
        is_rpdo(pdo) ? find_mapping_by_object(pdo, index, sub_index) : nullptr;
    if (mapping != nullptr) {
      return mapping;
    }
  }
  return nullptr;
}

/// What "od_io_write" takes behind offset and sub-index; no value where it takes nothing there.
std::optional<PayloadValue> io_data(const PayloadUse& use, const Bytes& beginning) {
  const DeviceOdEntry* const device = find_device(use);
  if (device == nullptr || beginning.size() < 3) {
    return any_bytes("data");
  }
  const auto offset = static_cast<std::uint16_t>(little_endian_number(beginning.begin(), 2));
  const auto index = static_cast<std::uint16_t>(device->base_index + offset);
  const std::uint8_t sub_index = beginning[2];
  const PdoMapping* const mapping = use.operation.transport == sdo_transport
                                        ? nullptr
                                        : find_rpdo_mapping(use.node.board, index, sub_index);
  if (mapping == nullptr) {
    return object_payload(&use.node, "data", index, sub_index);
  }
  if (byte_length(*mapping) == 0) {
    return std::nullopt;
  }
  if (!is_possible(*mapping)) {
    return any_bytes("data");
  }
  PayloadValue value = field_value(use.node, *mapping);
  value.name = "data";
  return value;
}

Layout od_io_write(const PayloadUse& use, const Bytes& beginning) {
  PayloadLayout layout;
  layout.values = {plain_value("offset", ValueType::u16), plain_value("sub_index", ValueType::u8)};
  layout.selecting = layout.values.size();
  if (std::optional<PayloadValue> data = io_data(use, beginning)) {
    layout.more_may_follow = data->type == ValueType::bytes;
    layout.values.push_back(*std::move(data));
  }
  return layout;
}

// --- fields of RPDOs ---

std::uint8_t rpdo_number(const PayloadUse& use) {
  const OperationConfig& op = use.operation;
  return op.pdo_number != 0 ? op.pdo_number : find_rpdo_number(use.node.board, op.index);
}

std::string too_long_text(const PdoMapping& mapping) {
  return object_text(mapping.index, mapping.sub_index) + " is mapped with " +
         counted(mapping.bit_length, "bit") + ", a PDO has no more than 64";
}

Layout several_fields(const PayloadUse& use, std::uint8_t number) {
  const PdoConfig* const rpdo = find_pdo(use.node.board, PdoDirection::rpdo, number);
  if (rpdo == nullptr) {
    return Unexpected{"the node has no " + pdo_text(PdoDirection::rpdo, number)};
  }
  PayloadLayout layout;
  for (const std::string& name : use.operation.fields) {
    const PdoMapping* const mapping = find_field(*rpdo, name);
    if (mapping == nullptr) {
      return Unexpected{pdo_text(*rpdo) + " maps no field \"" + name + "\""};
    }
    if (!is_possible(*mapping)) {
      return Unexpected{too_long_text(*mapping)};
    }
    // What has less than a byte takes none of the payload.
    if (byte_length(*mapping) != 0) {
      layout.values.push_back(field_value(use.node, *mapping));
    }
  }
  return layout;
}

const PdoMapping* find_single_mapping(const PayloadUse& use, std::uint8_t number) {
  const OperationConfig& op = use.operation;
  if (op.field.empty()) {
    return find_mapping_by_object(use.node.board, number, op.index, op.sub_index);
  }
  const PdoConfig* const rpdo = find_pdo(use.node.board, PdoDirection::rpdo, number);
  return rpdo == nullptr ? nullptr : find_field(*rpdo, op.field);
}

Layout single_field(const PayloadUse& use, std::uint8_t number) {
  const OperationConfig& op = use.operation;
  const PdoMapping* const mapping = find_single_mapping(use, number);
  if (mapping == nullptr) {
    return Unexpected{
        pdo_text(PdoDirection::rpdo, number) + " does not map " +
        (op.field.empty() ? object_text(op.index, op.sub_index) : "a field \"" + op.field + "\"")};
  }
  if (!is_possible(*mapping)) {
    return Unexpected{too_long_text(*mapping)};
  }
  if (byte_length(*mapping) == 0) {
    return PayloadLayout{};
  }
  return one_value(field_value(use.node, *mapping));
}

Layout pdo_write(const PayloadUse& use, const Bytes& /*beginning*/) {
  const std::uint8_t number = rpdo_number(use);
  if (number == 0) {
    return Unexpected{"no RPDO of the node maps object " + hex<4>(use.operation.index)};
  }
  return use.operation.fields.empty() ? single_field(use, number) : several_fields(use, number);
}

Layout pdo_patch(const PayloadUse& use, const Bytes& beginning) {
  Layout layout = pdo_write(use, beginning);
  if (layout && !use.operation.fields.empty()) {
    for (PayloadValue& value : layout->values) {
      value.is_optional = true;
    }
    layout->remark = "a field that is left out keeps its value";
  }
  return layout;
}

std::size_t total_length(const PayloadLayout& layout) {
  std::size_t length = 0;
  for (const PayloadValue& value : layout.values) {
    length += value.length;
  }
  return length;
}

/// The mapping that is written alone; null where there is none or several are.
const PdoMapping* find_lone_mapping(const PayloadUse& use, std::uint8_t number) {
  const std::vector<std::string>& fields = use.operation.fields;
  if (fields.empty()) {
    return find_single_mapping(use, number);
  }
  const PdoConfig* const rpdo = find_pdo(use.node.board, PdoDirection::rpdo, number);
  return rpdo == nullptr || fields.size() != 1 ? nullptr : find_field(*rpdo, fields.front());
}

Layout auto_write(const PayloadUse& use, const Bytes& beginning) {
  const OperationConfig& op = use.operation;
  const std::uint8_t number = rpdo_number(use);
  if (number == 0 || op.transport == sdo_transport) {
    return typed_object(use);
  }
  if (const auto refusal = type_refusal(op)) {
    return Unexpected{*refusal};
  }
  Layout fields = pdo_write(use, beginning);
  if (!fields || has_no_type(op)) {
    return fields;
  }
  const std::size_t length = *sized_type_length(op.data_type);
  if (total_length(*fields) != length) {
    return Unexpected{"data_type " + op.data_type + " has " + counted(length, "byte") +
                      ", its fields have " + std::to_string(total_length(*fields))};
  }
  if (const PdoMapping* const mapping = find_lone_mapping(use, number)) {
    const ValueDescription meaning = object_value(&use.node, mapping->index, mapping->sub_index);
    return one_value(
        sized_value(fields->values.front().name, as_data_type(meaning, op.data_type), length));
  }
  return fields;
}

// --- LED commands ---

/// Where mode (1 byte) and period (2 bytes) stand in the payload of an LED command, if anywhere.
struct LedPayload {
  std::string_view operation;
  std::size_t length;
  std::optional<std::size_t> mode_position;
  /// It is refused unless it covers every field of the list.
  bool is_whole;
};

constexpr LedPayload led_payloads[] = {
    {"set_led", 6, 3, true}, {"set_color", 3, std::nullopt, false}, {"set_mode", 3, 0, false}};
constexpr std::int64_t highest_led_mode = 3;

/// Those of the values that make up the command's payload: all of them for a whole write.
Layout led_values(const LedPayload& led, PayloadLayout fields) {
  PayloadLayout layout;
  const std::size_t whole = total_length(fields);
  if (led.is_whole && whole != led.length) {
    return Unexpected{"the payload of " + std::string(led.operation) + " has " +
                      counted(led.length, "byte") + ", its fields have " + std::to_string(whole)};
  }
  std::size_t position = 0;
  for (PayloadValue& value : fields.values) {
    if (position >= led.length) {
      break;
    }
    if (position == led.mode_position && value.length == 1) {
      narrow(value, Count(), Count::of(highest_led_mode));
    }
    position += value.length;
    layout.values.push_back(std::move(value));
  }
  if (position != led.length) {
    return Unexpected{"the payload of " + std::string(led.operation) + " has " +
                      counted(led.length, "byte") + ", which is not where a field ends"};
  }
  return layout;
}

Layout led_write(const PayloadUse& use, const Bytes& beginning) {
  if (use.operation.fields.empty()) {
    return Unexpected{"led_write needs fields"};
  }
  for (const LedPayload& led : led_payloads) {
    if (led.operation == use.operation.led_operation) {
      Layout fields = pdo_write(use, beginning);
      return fields ? led_values(led, *std::move(fields)) : fields;
    }
  }
  return Unexpected{"unknown led_operation \"" + use.operation.led_operation + "\""};
}

// --- bits ---

Layout bit_patch(const PayloadUse& /*use*/, const Bytes& /*beginning*/) {
  PayloadLayout layout;
  layout.values = {plain_value("mask", ValueType::u8), plain_value("values", ValueType::u8)};
  return layout;
}

PayloadValue bit_value() {
  PayloadValue value = ranged_value("value", ValueType::u8, 0, 1);
  value.values = {{"off", Count()}, {"on", Count::of(1)}};
  return value;
}

Layout pdo_bit_patch(const PayloadUse& use, const Bytes& /*beginning*/) {
  const std::vector<std::string>& fields = use.operation.fields;
  if (fields.empty()) {
    return Unexpected{"pdo_bit_patch needs fields"};
  }
  if (use.operation.named != 0) {
    return one_value(bit_value());
  }
  const std::size_t reachable = std::min<std::size_t>(fields.size(), 0xFF);
  PayloadValue field =
      ranged_value("field", ValueType::u8, 1, static_cast<std::int64_t>(reachable));
  for (std::size_t position = 0; position < reachable; ++position) {
    field.values.push_back({fields[position], Count::of_unsigned(position + 1)});
  }
  PayloadLayout layout;
  layout.values = {std::move(field), ranged_value("bit", ValueType::u8, 0, 7), bit_value()};
  return layout;
}

// --- drives ---

ValueDescription drive_value(const PayloadUse& use, DriveObject object) {
  const DeviceOdEntry* const drive = find_device(use);
  return drive == nullptr ? ValueDescription()
                          : object_value(&use.node, drive_index(*drive, object), 0);
}

Layout set_mode(const PayloadUse& use, const Bytes& /*beginning*/) {
  ValueDescription meaning =
      as_type(drive_value(use, DriveObject::modes_of_operation), ValueType::s8);
  if (meaning.values.empty()) {
    meaning.values = named_drive_modes();
  }
  return one_value(sized_value("mode", meaning, 1));
}

Layout set_target(const PayloadUse& use, const Bytes& /*beginning*/) {
  const ValueDescription meaning =
      as_type(drive_value(use, target_object(use.motor_mode)), ValueType::s16);
  return one_value(sized_value("target", meaning, 2));
}

Layout ramp(const PayloadUse& use, const Bytes& /*beginning*/) {
  const DeviceOdEntry* const drive = find_device(use);
  const auto object = static_cast<DriveObject>(use.operation.index_offset);
  const ValueDescription meaning = as_type(drive_value(use, object), ValueType::u32);
  const std::string name =
      drive == nullptr ? "value" : value_name(use.node, drive_index(*drive, object), 0);
  return one_value(sized_value(name, meaning, 4));
}

// --- pumps ---

PayloadValue channel_value(const OperationConfig& op) {
  std::vector<std::uint8_t> channels = op.rpdo_channels;
  channels.insert(channels.end(), op.sdo_channels.begin(), op.sdo_channels.end());
  if (op.transport == sdo_transport || channels.empty()) {
    return plain_value("channel", ValueType::u8);
  }
  const auto [least, greatest] = std::minmax_element(channels.begin(), channels.end());
  return ranged_value("channel", ValueType::u8, *least, *greatest);
}

Layout pump_duty(const PayloadUse& use, const Bytes& beginning) {
  PayloadLayout layout;
  layout.values.push_back(channel_value(use.operation));
  // Without a channel yet the first one stands for all.
  const std::uint8_t channel =
      beginning.empty() ? static_cast<std::uint8_t>(layout.values.front().range.minimum.bits())
                        : beginning.front();
  layout.values.push_back(
      sized_value("duty", object_value(&use.node, use.operation.index, channel), 2));
  layout.selecting = 1;
  return layout;
}

struct Row {
  std::string_view kind;
  Layout (*layout)(const PayloadUse& use, const Bytes& beginning);
};

constexpr Row rows[] = {
    {"sdo_write", sdo_write},
    {"sdo_read", nothing},
    {"od_io_read", od_io_read},
    {"od_io_write", od_io_write},
    {"led_write", led_write},
    {"read_multi", nothing},
    {"auto_write", auto_write},
    {"pdo_write", pdo_write},
    {"pdo_patch", pdo_patch},
    {"bit_patch", bit_patch},
    {"pdo_bit_patch", pdo_bit_patch},
    {"ci402_enable", nothing},
    {"ci402_disable", nothing},
    {"ci402_quick_stop", nothing},
    {"ci402_set_mode", set_mode},
    {"ci402_set_target", set_target},
    {"ci402_ramp", ramp},
    {"claw_action", nothing},
    {"pump_duty", pump_duty},
};
static_assert(has_rows_for(rows, operation_kinds), "a kind of operation_kinds has no layout");
static_assert(has_rows_for(operation_kinds, rows),
              "a kind with a layout is not in operation_kinds");

}  // namespace

Expected<PayloadLayout> payload_layout(const PayloadUse& use,
                                       const std::vector<std::uint8_t>& beginning) {
  for (const Row& row : rows) {
    if (row.kind == use.operation.kind) {
      return if_possible(row.layout(use, beginning));
    }
  }
  return Unexpected{"unknown operation kind \"" + use.operation.kind + "\""};
}

}  // namespace velmora_can_bridge
