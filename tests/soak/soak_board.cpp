#include "soak_board.hpp"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <utility>

#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge::soak {
namespace {

using Operations = std::map<std::string, OperationConfig>;

PdoMapping thread_mapping(std::uint16_t index, const char* name, std::size_t thread) {
  const std::uint8_t sub_index = sub_index_of(thread);
  return {index, sub_index, 16, name + std::to_string(sub_index)};
}

PdoConfig thread_rpdo(std::uint8_t number, std::uint16_t index, const char* name,
                      std::size_t first) {
  PdoConfig pdo{number, "RPDO"};
  for (std::size_t thread = first; thread < first + threads / 2; ++thread) {
    pdo.mappings.push_back(thread_mapping(index, name, thread));
  }
  return pdo;
}

BoardConfig board_of(std::uint8_t node_id) {
  BoardConfig board;
  board.pdos = {thread_rpdo(1, field_object, "field_", 0),
                thread_rpdo(2, field_object, "field_", threads / 2),
                {led_rpdo,
                 "RPDO",
                 0,
                 {{led_object, 1, 24, "color"},
                  {led_object, 2, 8, "mode"},
                  {led_object, 3, 16, "period"},
                  {bits_object, 1, 8, "outputs"},
                  {bits_object, 2, 8, "flags"}}},
                thread_rpdo(5, pump_object, "pump_", 0)};
  board.pdos.back().cob_id = rpdo_cob_id(5, node_id);
  board.device_od_map = {{device_of("io", node_id), {"io", field_object, 0}},
                         {device_of("pumps", node_id), {"io", pump_object, 0}}};
  return board;
}

void add_drive_and_tpdos(BoardConfig& board, std::uint8_t node_id) {
  board.pdos.push_back(
      {drive_rpdo,
       "RPDO",
       0,
       {{drive_base, 0, 16, "controlword"}, {drive_base + 0xBF, 0, 32, "velocity"}}});
  board.pdos.push_back({1, "TPDO", 0, {{drive_base + 1, 0, 16, ""}, {bits_object, 1, 8, ""}}});
  board.pdos.push_back({2, "TPDO", 0, {{field_object, 1, 16, ""}, {field_object, 5, 16, ""}}});
  board.pdos.back().transmission = std::uint8_t{1};
  board.device_od_map.insert({{device_of("drive", node_id), {"ci402", drive_base, 0}},
                              {device_of("claw", node_id), {"claw", claw_base, homing_record}}});
}

OperationConfig operation(const char* kind, std::uint16_t index = 0, std::uint8_t sub_index = 0) {
  OperationConfig op;
  op.kind = kind;
  op.index = index;
  op.sub_index = sub_index;
  return op;
}

OperationConfig rpdo_operation(const char* kind, std::uint8_t rpdo,
                               std::vector<std::string> fields) {
  OperationConfig op = operation(kind);
  op.pdo_number = rpdo;
  op.fields = std::move(fields);
  return op;
}

/// Those of one thread end in its sub-index.
void add_thread_operations(Operations& ops, std::size_t thread) {
  const std::uint8_t sub_index = sub_index_of(thread);
  const std::string own = std::to_string(sub_index);
  const std::uint8_t rpdo = thread < threads / 2 ? 1 : 2;
  ops["read_field_" + own] = operation("sdo_read", field_object, sub_index);
  ops["read_word_" + own] = operation("sdo_read", word_object, sub_index);
  ops["read_text_" + own] = operation("sdo_read", text_object, sub_index);
  ops["read_pump_" + own] = operation("sdo_read", pump_object, sub_index);
  ops["write_field_" + own] = rpdo_operation("pdo_write", rpdo, {"field_" + own});
  ops["patch_field_" + own] = rpdo_operation("pdo_patch", rpdo, {"field_" + own});
  ops["refresh_field_" + own] = rpdo_operation("pdo_patch", rpdo, {"field_" + own});
  ops["refresh_field_" + own].refresh_shadow = 1;
  OperationConfig automatic = operation("auto_write", field_object, sub_index);
  automatic.pdo_number = rpdo;
  automatic.data_type = "u16";
  ops["auto_field_" + own] = automatic;
}

void add_led_operations(Operations& ops) {
  for (const auto& [name, fields] :
       std::initializer_list<std::pair<const char*, std::vector<std::string>>>{
           {"set_led", {"color", "mode", "period"}},
           {"set_color", {"color"}},
           {"set_mode", {"mode", "period"}}}) {
    ops[name] = rpdo_operation("led_write", led_rpdo, fields);
    ops[name].led_operation = name;
  }
  ops["read_led"] = operation("read_multi", led_object);
  ops["read_led"].sub_indices = {1, 2, 3};
}

void add_bit_operations(Operations& ops) {
  ops["patch_outputs"] = rpdo_operation("bit_patch", led_rpdo, {"outputs"});
  ops["patch_bit"] = rpdo_operation("pdo_bit_patch", led_rpdo, {"outputs", "flags"});
  ops["patch_bit_by_sdo"] = ops["patch_bit"];
  ops["patch_bit_by_sdo"].transport = "sdo";
  ops["read_bits"] = operation("read_multi", bits_object);
  ops["read_bits"].sub_indices = {1, 2};
}

void add_drive_operations(Operations& ops) {
  ops["enable"] = operation("ci402_enable");
  ops["disable"] = operation("ci402_disable");
  ops["quick_stop"] = operation("ci402_quick_stop");
  ops["set_drive_mode"] = operation("ci402_set_mode");
  ops["set_target"] = operation("ci402_set_target");
  ops["set_ramp"] = operation("ci402_ramp");
  ops["set_ramp"].index_offset = 0x43;
  for (const char* const action : {"extend", "home", "query"}) {
    ops[action] = operation("claw_action");
    ops[action].action = action;
  }
}

Operations operations() {
  Operations ops;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    add_thread_operations(ops, thread);
  }
  for (const auto& [name, index] :
       {std::pair("write_word", word_object), {"write_text", text_object}}) {
    ops[name] = operation("sdo_write", index);
    ops[name].subindex_in_payload = 1;
  }
  ops["read_words"] = operation("read_multi", word_object);
  ops["read_words"].sub_indices = {1, 2, 3, 4, 5, 6, 7, 8};
  ops["write_io"] = operation("od_io_write");
  ops["read_io"] = operation("od_io_read");
  ops["set_pump"] = operation("pump_duty", pump_object);
  ops["set_pump"].pump_pdo_number = 5;
  ops["set_pump"].rpdo_channels = {1, 2, 3, 4};
  ops["set_pump"].sdo_channels = {5, 6, 7, 8};
  add_led_operations(ops);
  add_bit_operations(ops);
  add_drive_operations(ops);
  // Loads an image from the node and sends it as it is.
  const char* const first_fields[] = {"field_1", "field_5", "color", "controlword", "pump_1"};
  for (std::uint8_t rpdo = 1; rpdo <= rpdos; ++rpdo) {
    const std::string name = "refresh_" + std::to_string(rpdo);
    ops[name] = rpdo_operation("pdo_patch", rpdo, {first_fields[rpdo - 1]});
    ops[name].refresh_shadow = 1;
  }
  return ops;
}

}  // namespace

std::string device_of(const char* name, std::uint8_t node_id) {
  return name + ('_' + std::to_string(node_id));
}

/// The fifth has that of the fourth TPDO in the predefined connection set, which no node has.
std::uint16_t rpdo_cob_id(std::uint8_t rpdo, std::uint8_t node_id) {
  const int base = rpdo == 5 ? 0x480 : 0x100 + 0x100 * rpdo;
  return static_cast<std::uint16_t>(base + node_id);
}

BoardFile soak_board() {
  BoardFile file;
  const Operations ops = operations();
  for (std::uint8_t node_id = 1; node_id <= nodes; ++node_id) {
    file.nodes.push_back({node_id, board_of(node_id), ops, {}});
    if (has_drive(node_id)) {
      add_drive_and_tpdos(file.nodes.back().board, node_id);
    }
  }
  return file;
}

void add_objects(SimulatedNode& node) {
  for (std::size_t thread = 0; thread < threads; ++thread) {
    const std::uint8_t sub_index = sub_index_of(thread);
    node.add_object(word_object, sub_index, {ObjectAccess::read_write, Bytes(4)});
    node.add_object(text_object, sub_index,
                    {ObjectAccess::read_write, start_text(), true, longest_text});
  }
}

Bytes start_text() {
  Bytes text(longest_text);
  std::fill(text.begin(), text.end(), std::uint8_t{'t'});
  return text;
}

Bytes bytes_of(std::uint32_t value, std::size_t size) {
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(value & 0xFFU);
    value >>= 8U;
  }
  return bytes;
}

std::uint32_t number_of(const Bytes& bytes) {
  std::uint32_t value = 0;
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    value = value << 8U | *byte;
  }
  return value;
}

std::uint32_t signed_number(std::size_t thread, std::uint32_t sequence, unsigned bits) {
  const unsigned below = bits - 4;
  return static_cast<std::uint32_t>(sub_index_of(thread)) << below |
         (sequence & ((1U << below) - 1));
}

}  // namespace velmora_can_bridge::soak
