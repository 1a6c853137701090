#include "velmora_can_bridge/config/payload_description.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "ground/data_types.hpp"
#include "ground/kind_tables.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"

namespace velmora_can_bridge {
namespace {

/// "name (2 bytes)".
std::string sized(const std::string& name, std::size_t length) {
  return name + " (" + counted(length, "byte") + ")";
}

std::string describe_data_type(const std::string& type) {
  if (type.empty() || type == "raw") {
    return "raw (any length)";
  }
  const std::optional<std::size_t> length = sized_type_length(type);
  if (!length) {
    return "none is accepted (unknown data type)";
  }
  return sized(type, *length);
}

std::string describe_none(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return "none";
}

std::string describe_sdo_write(const OperationConfig& op, const BoardConfig& /*board*/) {
  if (op.subindex_in_payload != 0) {
    return "sub-index (1 byte), data (any length)";
  }
  if (!op.fixed_data.empty()) {
    return "ignored (always writes " + hex_bytes(op.fixed_data) + ")";
  }
  const std::string type = describe_data_type(op.data_type);
  return op.default_data.empty() ? type : type + ", or none for " + hex_bytes(op.default_data);
}

std::string describe_od_io_read(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return "offset (2 bytes), sub-index (1 byte), 0 where left out";
}

std::string describe_od_io_write(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return "offset (2 bytes), sub-index (1 byte), data (any length)";
}

const PdoConfig* find_rpdo(const OperationConfig& op, const BoardConfig& board) {
  const std::uint8_t number =
      op.pdo_number != 0 ? op.pdo_number : find_rpdo_number(board, op.index);
  return find_pdo(board, PdoDirection::rpdo, number);
}

std::string describe_field(const PdoConfig* rpdo, const std::string& field) {
  const PdoMapping* const mapping = rpdo == nullptr ? nullptr : find_field(*rpdo, field);
  return mapping == nullptr ? field + " (not mapped)" : sized(field, byte_length(*mapping));
}

std::string describe_single_field(const OperationConfig& op, const BoardConfig& board,
                                  const PdoConfig* rpdo) {
  if (!op.field.empty()) {
    return describe_field(rpdo, op.field);
  }
  const PdoMapping* const mapping =
      rpdo == nullptr ? nullptr
                      : find_mapping_by_object(board, rpdo->number, op.index, op.sub_index);
  const std::string object = object_text(op.index, op.sub_index);
  return mapping == nullptr ? object + " (not mapped)" : sized(object, byte_length(*mapping));
}

/// The fields of the operation, or its one field, with their bytes.
std::string describe_fields(const OperationConfig& op, const BoardConfig& board) {
  const PdoConfig* const rpdo = find_rpdo(op, board);
  if (op.fields.empty()) {
    return describe_single_field(op, board, rpdo);
  }
  std::string text;
  for (const std::string& field : op.fields) {
    text += (text.empty() ? "" : ", ") + describe_field(rpdo, field);
  }
  return text;
}

std::string describe_led_write(const OperationConfig& op, const BoardConfig& board) {
  const std::string colour = "colour (3 bytes)";
  const std::string mode = "mode 0 to 3 (1 byte), period (2 bytes)";
  const std::string fields = " into " + describe_fields(op, board);
  if (op.led_operation == "set_color") {
    return colour + fields;
  }
  return (op.led_operation == "set_mode" ? mode : colour + ", " + mode) + fields;
}

std::string describe_auto_write(const OperationConfig& op, const BoardConfig& board) {
  const std::string type = describe_data_type(op.data_type);
  return op.fields.empty() ? type : type + " into " + describe_fields(op, board);
}

std::string describe_pdo_patch(const OperationConfig& op, const BoardConfig& board) {
  return describe_fields(op, board) + (op.fields.empty() ? "" : "; may end after any field");
}

std::string describe_bit_patch(const OperationConfig& op, const BoardConfig& /*board*/) {
  const std::string& field = op.fields.empty() ? op.field : op.fields.front();
  return "mask (1 byte), value (1 byte) for " + field;
}

std::string describe_pdo_bit_patch(const OperationConfig& op, const BoardConfig& /*board*/) {
  if (op.named != 0) {
    return "0 or 1 (1 byte) for bit " + std::to_string(op.bit_index) + " of " +
           (op.fields.empty() ? "no field" : op.fields.front());
  }
  std::string fields;
  for (std::size_t position = 0; position < op.fields.size(); ++position) {
    fields +=
        (position == 0 ? "" : ", ") + std::to_string(position + 1) + " " + op.fields[position];
  }
  return "field (" + fields + "), bit (0 to 7), 0 or 1; 1 byte each";
}

std::string describe_set_mode(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return "mode (1 byte): 1 position, 3 velocity, 4 torque, 6 homing";
}

std::string describe_set_target(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return sized("s16", 2);
}

std::string describe_ramp(const OperationConfig& /*op*/, const BoardConfig& /*board*/) {
  return sized("u32", 4);
}

std::string describe_channels(const std::vector<std::uint8_t>& channels, const std::string& way) {
  std::string text;
  for (const std::uint8_t channel : channels) {
    text += (text.empty() ? "" : " ") + std::to_string(channel);
  }
  return text.empty() ? "" : ", " + text + " by " + way;
}

std::string describe_pump_duty(const OperationConfig& op, const BoardConfig& /*board*/) {
  const std::string payload = "channel (1 byte), duty (2 bytes)";
  if (op.transport == "sdo") {
    return payload + ", every channel by SDO";
  }
  return payload +
         describe_channels(op.rpdo_channels, "RPDO " + std::to_string(op.pump_pdo_number)) +
         describe_channels(op.sdo_channels, "SDO");
}

struct Row {
  std::string_view kind;
  std::string (*describe)(const OperationConfig& op, const BoardConfig& board);
};

constexpr Row rows[] = {
    {"sdo_write", describe_sdo_write},
    {"sdo_read", describe_none},
    {"od_io_read", describe_od_io_read},
    {"od_io_write", describe_od_io_write},
    {"led_write", describe_led_write},
    {"read_multi", describe_none},
    {"auto_write", describe_auto_write},
    {"pdo_write", describe_fields},
    {"pdo_patch", describe_pdo_patch},
    {"bit_patch", describe_bit_patch},
    {"pdo_bit_patch", describe_pdo_bit_patch},
    {"ci402_enable", describe_none},
    {"ci402_disable", describe_none},
    {"ci402_quick_stop", describe_none},
    {"ci402_set_mode", describe_set_mode},
    {"ci402_set_target", describe_set_target},
    {"ci402_ramp", describe_ramp},
    {"claw_action", describe_none},
    {"pump_duty", describe_pump_duty},
};
static_assert(has_rows_for(rows, operation_kinds), "a kind of operation_kinds has no description");
static_assert(has_rows_for(operation_kinds, rows), "a described kind is not in operation_kinds");

}  // namespace

std::string describe_payload(const OperationConfig& op, const BoardConfig& board) {
  for (const Row& row : rows) {
    if (row.kind == op.kind) {
      return row.describe(op, board);
    }
  }
  return "unknown";
}

}  // namespace velmora_can_bridge
