#include "operation_input.hpp"

#include <iterator>
#include <string_view>

#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

// Appending to a table keeps what the first elements of the seeds mean only while the length does
// not change: generate the seeds anew after a change. Not so for a new kind, as kinds are counted
// from behind these texts and the seeds hold no number beyond them.

constexpr std::string_view unknown_kinds[] = {"", "SDO_READ", "ci402"};

constexpr const char* names[] = {"a", "b", "c", "d", "e", "f", ""};
constexpr const char* devices[] = {"drive", "claw", "io", "wrapped", "", "nobody"};
constexpr const char* transports[] = {"", "sdo", "pdo", "SDO"};
constexpr const char* data_types[] = {"", "raw", "u8", "s8", "u16", "s16", "u32", "s32", "u24"};
constexpr const char* actions[] = {"extend", "home", "query", ""};
constexpr const char* led_operations[] = {"set_led", "set_color", "set_mode", ""};
constexpr const char* directions[] = {"RPDO", "RPDO", "RPDO", "TPDO", "rpdo", ""};

/// Controlwords, modes and targets of the drives, objects of "io", padding.
constexpr std::uint16_t indices[] = {0x2000, 0x2001, 0x6040, 0x6060, 0x6071, 0x607A,
                                     0x60FF, 0x7040, 0x7060, 0x0005, 0x0007, 0x0010,
                                     0xFFF0, 0x00AF, 0x2100, 0xFFFF};
constexpr std::uint8_t sub_indices[] = {0, 1, 2, 9, 255};
constexpr std::uint8_t bit_lengths[] = {8, 16, 32, 24, 64, 0, 1, 7, 9, 15, 48, 255};
constexpr std::uint8_t pdo_numbers[] = {1, 2, 3, 0, 255};

std::string_view take_kind(FuzzInput& input) {
  constexpr std::size_t unknown = std::size(unknown_kinds);
  const std::size_t number = input.byte() % (unknown + std::size(operation_kinds));
  return number < unknown ? unknown_kinds[number] : operation_kinds[number - unknown].kind;
}

PdoMapping take_mapping(FuzzInput& input) {
  PdoMapping mapping;
  mapping.index = input.pick(indices);
  mapping.sub_index = input.pick(sub_indices);
  mapping.bit_length = input.pick(bit_lengths);
  mapping.field = input.pick(names);
  return mapping;
}

PdoConfig take_pdo(FuzzInput& input) {
  PdoConfig pdo;
  pdo.number = input.pick(pdo_numbers);
  pdo.direction = input.pick(directions);
  for (unsigned left = input.byte() % 10U; left > 0; --left) {
    pdo.mappings.push_back(take_mapping(input));
  }
  return pdo;
}

std::vector<std::uint8_t> take_bytes(FuzzInput& input, unsigned most) {
  return input.bytes(input.byte() % (most + 1));
}

bool is_set(unsigned flags, unsigned bit) { return ((flags >> bit) & 1U) != 0; }

/// The members that choose objects, fields and the way to them.
void take_address(FuzzInput& input, OperationConfig& op) {
  op.transport = input.pick(transports);
  op.index = input.pick(indices);
  op.sub_index = input.pick(sub_indices);
  op.pdo_number = input.pick(pdo_numbers);
  op.pump_pdo_number = input.pick(pdo_numbers);
  op.field = input.pick(names);
  for (unsigned left = input.byte() % 5U; left > 0; --left) {
    op.fields.emplace_back(input.pick(names));
  }
}

void take_values(FuzzInput& input, OperationConfig& op) {
  op.data_type = input.pick(data_types);
  op.action = input.pick(actions);
  op.led_operation = input.pick(led_operations);
  op.bit_index = input.byte() % 10;
  op.index_offset = input.word();
  op.sub_indices = take_bytes(input, 4);
  op.fixed_data = take_bytes(input, 4);
  op.default_data = take_bytes(input, 4);
  op.rpdo_channels = take_bytes(input, 3);
  op.sdo_channels = take_bytes(input, 3);
}

void set_flags(unsigned flags, OperationConfig& op) {
  op.subindex_in_payload = is_set(flags, 0) ? 1 : 0;
  op.refresh_shadow = is_set(flags, 1) ? 0x80 : 0;
  op.named = is_set(flags, 2) ? 2 : 0;
  op.option_flag = is_set(flags, 3) ? 1 : 0;
  op.label = is_set(flags, 3) ? "label" : "";
  op.description = is_set(flags, 3) ? "description" : "";
}

}  // namespace

BoardConfig take_board(FuzzInput& input) {
  BoardConfig board;
  board.device_od_map = {{"drive", {"ci402", 0x6040, 0}},
                         {"claw", {"claw", 0x7040, 0x2100}},
                         {"io", {"io", 0x2000, 0}},
                         // Its other objects lie beyond 0xFFFF, so that sums wrap.
                         {"wrapped", {"claw", 0xFFF0, 0x6040}}};
  for (unsigned left = input.byte() % 6U; left > 0; --left) {
    board.pdos.push_back(take_pdo(input));
  }
  return board;
}

OperationStep take_step(FuzzInput& input) {
  OperationStep step;
  step.op.kind = take_kind(input);
  step.device = input.pick(devices);
  const unsigned flags = input.byte();
  step.forget = is_set(flags, 4);
  step.node_id = is_set(flags, 5) ? 127 : 5;
  set_flags(flags, step.op);
  step.payload = take_bytes(input, 15);
  take_address(input, step.op);
  step.bus.refused = input.word();
  step.bus.thrown = input.byte();
  step.bus.read_lengths ^= input.byte();
  take_values(input, step.op);
  return step;
}

}  // namespace velmora_can_bridge
