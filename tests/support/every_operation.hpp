// Every kind of operation with its main variants, and what each may take from the heap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// One operation, which succeeds on the board of `every_operation_board` when the bus answers every
/// read with four bytes and takes every write and send.
struct EveryOperation {
  /// The kind, then the variant where there are several.
  const char* name;
  OperationConfig op;
  const char* device;
  std::vector<std::uint8_t> payload;
  /// Allocations of one such operation whose image is synced, the bytes that the bus gives
  /// included.
  std::size_t allocations;
  /// What they are for.
  const char* why;
};

inline void PrintTo(const EveryOperation& row, std::ostream* out) { *out << row.name; }

inline OperationConfig every_op(const char* kind, const char* transport = "") {
  OperationConfig op;
  op.kind = kind;
  op.transport = transport;
  return op;
}

/// On sub-index 1 of an object, which no RPDO maps unless another index is given.
inline OperationConfig every_object_op(const char* kind, std::uint16_t index = 0x3000) {
  OperationConfig op = every_op(kind);
  op.index = index;
  op.sub_index = 1;
  return op;
}

inline OperationConfig every_field_op(const char* kind, std::vector<std::string> fields,
                                      const char* transport = "") {
  OperationConfig op = every_op(kind, transport);
  op.pdo_number = 1;
  op.fields = std::move(fields);
  return op;
}

inline OperationConfig every_pump_op(const char* transport = "") {
  OperationConfig op = every_op("pump_duty", transport);
  op.index = 0x2100;
  op.pump_pdo_number = 1;
  op.rpdo_channels = {1};
  op.sdo_channels = {2};
  return op;
}

inline OperationConfig every_led_op(const char* operation, std::vector<std::string> fields) {
  OperationConfig op = every_op("led_write");
  op.pdo_number = 3;
  op.led_operation = operation;
  op.fields = std::move(fields);
  return op;
}

inline OperationConfig every_claw_op(const char* action) {
  OperationConfig op = every_op("claw_action");
  op.action = action;
  return op;
}

/// RPDO 1 carries fields of the device "io", RPDO 2 the drive "wheel", RPDO 3 an LED. No RPDO
/// carries the drive "lift" and the claw "claw".
inline BoardConfig every_operation_board() {
  BoardConfig board;
  board.pdos = {
      {1,
       "RPDO",
       0,
       {{0x2000, 1, 16, "left"},
        {0x2000, 2, 16, "right"},
        {0x2100, 1, 16, "duty"},
        {0x2101, 0, 8, "flags"},
        {0x2102, 0, 8, "mask"}}},
      {2, "RPDO", 0, {{0x6040, 0, 16, ""}, {0x6060, 0, 8, ""}, {0x60FF, 0, 32, ""}}},
      {3,
       "RPDO",
       0,
       {{0x2200, 1, 8, "red"},
        {0x2200, 2, 8, "green"},
        {0x2200, 3, 8, "blue"},
        {0x2200, 4, 8, "mode"},
        {0x2200, 5, 16, "period"}}},
  };
  board.device_od_map = {{"io", {"io", 0x2000, 0}},
                         {"wheel", {"ci402", 0x6040, 0}},
                         {"lift", {"ci402", 0x7040, 0}},
                         {"claw", {"claw", 0x6840, 0x3000}}};
  return board;
}

/// "pdo_write" of one 16-bit field found by name: what a control loop sends most.
inline OperationConfig field_by_name_op() {
  OperationConfig op = every_field_op("pdo_write", {});
  op.field = "right";
  return op;
}

inline std::vector<EveryOperation> every_operation() {
  OperationConfig by_object = every_object_op("pdo_write", 0x2000);
  by_object.sub_index = 2;
  OperationConfig read_four = every_object_op("read_multi");
  read_four.sub_indices = {1, 2, 3, 4};
  OperationConfig typed = every_object_op("sdo_write");
  typed.data_type = "u16";
  OperationConfig fixed = every_object_op("sdo_write");
  fixed.fixed_data = {1, 2};
  OperationConfig with_sub_index = every_object_op("sdo_write");
  with_sub_index.subindex_in_payload = 1;
  OperationConfig refreshing = field_by_name_op();
  refreshing.refresh_shadow = 1;
  OperationConfig named_bit = every_field_op("pdo_bit_patch", {"flags"});
  named_bit.named = 1;
  OperationConfig named_bit_by_sdo = every_field_op("pdo_bit_patch", {"flags"}, "sdo");
  named_bit_by_sdo.named = 1;
  OperationConfig automatic = every_object_op("auto_write", 0x2000);
  OperationConfig automatic_with_fields = automatic;
  automatic_with_fields.fields = {"left", "right"};
  OperationConfig patch_by_sdo = every_field_op("bit_patch", {"flags"}, "sdo");
  const std::vector<std::string> colors{"red", "green", "blue"};

  return {
      {"sdo_write raw", every_object_op("sdo_write"), "", {1, 2}, 1, "the data"},
      {"sdo_write typed", typed, "", {1, 2}, 1, "the data"},
      {"sdo_write fixed data", fixed, "", {}, 1, "the data"},
      {"sdo_write sub-index in payload", with_sub_index, "", {1, 1, 2}, 1, "the data"},
      {"sdo_read", every_object_op("sdo_read"), "", {}, 1, "what was read"},
      {"od_io_read", every_op("od_io_read"), "io", {0, 0x10, 1}, 1, "what was read"},
      {"od_io_write rpdo", every_op("od_io_write"), "io", {0, 0, 2, 1, 2}, 1, "the data"},
      {"od_io_write sdo", every_op("od_io_write", "sdo"), "io", {0, 0, 2, 1, 2}, 1, "the data"},
      {"led_write set_led",
       every_led_op("set_led", {"red", "green", "blue", "mode", "period"}),
       "",
       {1, 2, 3, 1, 0, 0},
       6,
       "the list of fields in the derived write, the bytes of each of five"},
      {"led_write set_color",
       every_led_op("set_color", colors),
       "",
       {1, 2, 3},
       9,
       "the list of fields in the derived write, five reads, the bytes of three fields"},
      {"led_write set_mode",
       every_led_op("set_mode", {"mode", "period"}),
       "",
       {1, 0, 0},
       8,
       "the list of fields in the derived write, five reads, the bytes of two fields"},
      {"read_multi of four", read_four, "", {}, 5, "four reads, the joined bytes"},
      {"auto_write rpdo", automatic, "", {1, 2}, 1, "the data"},
      {"auto_write rpdo fields",
       automatic_with_fields,
       "",
       {1, 2, 3, 4},
       4,
       "the data, the list of fields in the derived write, the bytes of each of two"},
      {"auto_write sdo", every_object_op("auto_write"), "", {1, 2}, 1, "the data"},
      {"pdo_write field by name",
       field_by_name_op(),
       "",
       {1, 2},
       0,
       "the payload is stored as it is"},
      {"pdo_write by object", by_object, "", {1, 2}, 0, "the payload is stored as it is"},
      {"pdo_write two fields",
       every_field_op("pdo_write", {"left", "right"}),
       "",
       {1, 2, 3, 4},
       2,
       "the bytes of each field"},
      {"pdo_write two fields sdo",
       every_field_op("pdo_write", {"left", "right"}, "sdo"),
       "",
       {1, 2, 3, 4},
       2,
       "the bytes of each field"},
      {"pdo_write refresh", refreshing, "", {1, 2}, 5, "five reads"},
      {"pdo_patch one of two",
       every_field_op("pdo_patch", {"left", "right"}),
       "",
       {1, 2},
       1,
       "the bytes of the one field that the payload covers"},
      {"bit_patch rpdo",
       every_field_op("bit_patch", {"flags"}),
       "",
       {0x0F, 5},
       1,
       "the byte that is stored"},
      {"bit_patch sdo",
       patch_by_sdo,
       "",
       {0x0F, 5},
       2,
       "the byte that was read, the byte that is written"},
      {"pdo_bit_patch rpdo", named_bit, "", {1}, 1, "the byte that is stored"},
      {"pdo_bit_patch sdo",
       named_bit_by_sdo,
       "",
       {1},
       2,
       "the byte that is stored, the byte that is written"},
      {"ci402_enable",
       every_op("ci402_enable"),
       "wheel",
       {},
       3,
       "the bytes of mode and two controlwords"},
      {"ci402_disable", every_op("ci402_disable"), "wheel", {}, 1, "the bytes of the controlword"},
      {"ci402_quick_stop",
       every_op("ci402_quick_stop"),
       "wheel",
       {},
       1,
       "the bytes of the controlword"},
      {"ci402_set_mode", every_op("ci402_set_mode"), "wheel", {3}, 1, "the byte of the mode"},
      {"ci402_set_target rpdo",
       every_op("ci402_set_target"),
       "wheel",
       {1, 2},
       3,
       "the bytes of the target, the message and its part that both paths share"},
      {"ci402_set_target sdo",
       every_op("ci402_set_target"),
       "lift",
       {1, 2},
       3,
       "the bytes of the target, the message and its part that both paths share"},
      {"ci402_ramp",
       every_op("ci402_ramp"),
       "wheel",
       {1, 2, 3, 4},
       2,
       "the bytes of the ramp, the message"},
      {"claw_action extend",
       every_claw_op("extend"),
       "claw",
       {},
       5,
       "the bytes of mode, two controlwords and command, the message"},
      {"claw_action home",
       every_claw_op("home"),
       "claw",
       {},
       4,
       "the bytes of mode and two controlwords, the message"},
      {"claw_action query", every_claw_op("query"), "claw", {}, 3, "two reads, what is answered"},
      {"pump_duty rpdo", every_pump_op(), "io", {1, 1, 2}, 1, "the bytes of the duty"},
      {"pump_duty sdo", every_pump_op(), "io", {2, 1, 2}, 1, "the bytes of the duty"},
  };
}

}  // namespace velmora_can_bridge
