/// The records that go into and come out of an operation.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One configured operation: what to do, on which object, with which payload layout.
///
/// A plain value: copying duplicates every string and list. The member comments name the operation
/// kinds that read the member; every other kind ignores it. Multi-byte payload values are
/// little-endian. Members "used as boolean" are clear when 0 and set otherwise.
struct OperationConfig {
  /// Selects the handler. Compared byte for byte, so case and blanks matter. All kinds.
  std::string kind{};
  /// Short name for people. No kind reads it.
  std::string label{};
  /// Longer text for people. No kind reads it.
  std::string description{};
  /// Free for the rest of the system, used as boolean. No kind reads it.
  std::uint8_t option_flag = 0;
  /// "sdo" forces the SDO path; any other text, the empty one included, allows the RPDO path.
  /// od_io_write, bit_patch, ci402_set_target, pump_duty, pdo_bit_patch, auto_write, pdo_write,
  /// pdo_patch, led_write.
  std::string transport{};
  /// Object-dictionary index. sdo_read, sdo_write, read_multi, bit_patch, pdo_write, pdo_patch,
  /// pdo_bit_patch, auto_write, led_write, pump_duty.
  std::uint16_t index = 0;
  /// Object-dictionary sub-index. sdo_read, sdo_write, auto_write, pdo_write, pdo_patch.
  std::uint8_t sub_index = 0;
  /// Used as boolean: payload byte 0 is the sub-index, the data follow it. sdo_write.
  std::uint8_t subindex_in_payload = 0;
  /// Sub-indices read one after another at `index`, duplicates again. read_multi.
  std::vector<std::uint8_t> sub_indices{};
  /// When not empty: the bytes written, whatever the payload holds. sdo_write.
  std::vector<std::uint8_t> fixed_data{};
  /// The bytes written when the payload is empty. sdo_write.
  std::vector<std::uint8_t> default_data{};
  /// Type that the payload is cut to: "raw" or empty (the whole payload), "u8", "s8", "u16", "s16",
  /// "u32", "s32". sdo_write, auto_write.
  std::string data_type{};
  /// Name of one mapped PDO field, used when `fields` is empty. bit_patch, pdo_write, pdo_patch,
  /// auto_write.
  std::string field{};
  /// RPDO number; 0 finds the RPDO that maps `index`. bit_patch, pdo_write, pdo_patch,
  /// pdo_bit_patch, auto_write, led_write.
  std::uint8_t pdo_number = 0;
  /// Used as boolean: reload the RPDO's image from the device before the write. pdo_write,
  /// pdo_patch, pdo_bit_patch, auto_write, led_write.
  std::uint8_t refresh_shadow = 0;
  /// Bit position, 0 to 7, of the named form. pdo_bit_patch.
  std::uint8_t bit_index = 0;
  /// Used as boolean: the payload is the bit's value alone. pdo_bit_patch.
  std::uint8_t named = 0;
  /// Mapped PDO fields in payload order. bit_patch, pdo_write, pdo_patch, pdo_bit_patch, led_write,
  /// auto_write.
  std::vector<std::string> fields{};
  /// Added to the device's `base_index`; the sum wraps at 16 bits. ci402_ramp.
  std::uint16_t index_offset = 0;
  /// "extend", "home" or "query". claw_action.
  std::string action{};
  /// "set_led", "set_color" or "set_mode". led_write.
  std::string led_operation{};
  /// Number of the RPDO that carries pump channels. pump_duty.
  std::uint8_t pump_pdo_number = 0;
  /// Pump channels reached through that RPDO. pump_duty.
  std::vector<std::uint8_t> rpdo_channels{};
  /// Pump channels reached by SDO. pump_duty.
  std::vector<std::uint8_t> sdo_channels{};
};

/// What an operation answers.
///
/// A failure has `ok` false, empty `data` and a `message` that names what failed.
struct OperationResult {
  /// The operation succeeded.
  bool ok = false;
  /// Bytes read from the node, as they came over the bus; empty for writes and for failures.
  std::vector<std::uint8_t> data{};
  /// "OK" or another success text, else the reason of the failure. Never empty.
  std::string message{};
};

}  // namespace velmora_can_bridge
