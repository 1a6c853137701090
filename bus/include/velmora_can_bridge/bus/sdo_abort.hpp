/// Why an SDO transfer was broken off.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// The abort codes of SDO transfers (CiA 301, 7.2.4.3.17).
enum class SdoAbort : std::uint32_t {
  /// Toggle bit not alternated.
  toggle_not_alternated = 0x05030000,
  /// SDO protocol timed out.
  timed_out = 0x05040000,
  /// Client or server command specifier not valid or unknown.
  unknown_command = 0x05040001,
  /// Block transfers only, as the next two.
  invalid_block_size = 0x05040002,
  invalid_sequence_number = 0x05040003,
  crc_error = 0x05040004,
  out_of_memory = 0x05040005,
  unsupported_access = 0x06010000,
  /// Upload of an object that can only be written.
  read_of_write_only = 0x06010001,
  /// Download to an object that can only be read.
  write_of_read_only = 0x06010002,
  /// The object dictionary has nothing at the index.
  no_such_object = 0x06020000,
  not_mappable = 0x06040041,
  pdo_too_long = 0x06040042,
  parameter_incompatible = 0x06040043,
  device_incompatible = 0x06040047,
  hardware_error = 0x06060000,
  /// Data type or length does not match.
  wrong_length = 0x06070010,
  /// More bytes than the object takes.
  value_too_long = 0x06070012,
  /// Fewer bytes than the object takes.
  value_too_short = 0x06070013,
  /// The index is there, the sub-index is not.
  no_such_sub_index = 0x06090011,
  /// Downloads only, as the next three.
  invalid_value = 0x06090030,
  value_too_high = 0x06090031,
  value_too_low = 0x06090032,
  maximum_below_minimum = 0x06090036,
  no_sdo_connection = 0x060A0023,
  general_error = 0x08000000,
  cannot_store = 0x08000020,
  local_control = 0x08000021,
  device_state = 0x08000022,
  no_object_dictionary = 0x08000023,
  no_data = 0x08000024,
};

/// A few words for people, without the code and without a full stop.
///
/// "unknown abort code" for a value that is none of the enumerators: devices have codes of their
/// own. The text lives for ever.
std::string_view sdo_abort_text(SdoAbort abort);

/// "abort 0x06020000, no object at this index".
std::string sdo_abort_line(std::uint32_t code);

}  // namespace velmora_can_bridge
