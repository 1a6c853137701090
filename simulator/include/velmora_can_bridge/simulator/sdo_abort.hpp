/// Why a node refuses an SDO transfer.
#pragma once

#include <cstdint>
#include <string_view>

namespace velmora_can_bridge {

/// The abort codes that a simulated node gives (CiA 301, 7.2.4.3.17).
enum class SdoAbort : std::uint32_t {
  /// Nobody answered in time: no node has that id.
  timed_out = 0x05040000,
  /// Upload of an object that can only be written.
  read_of_write_only = 0x06010001,
  /// Download to an object that can only be read.
  write_of_read_only = 0x06010002,
  /// The object dictionary has nothing at the index.
  no_such_object = 0x06020000,
  /// More bytes than the object takes.
  value_too_long = 0x06070012,
  /// Fewer bytes than the object takes.
  value_too_short = 0x06070013,
  /// The index is there, the sub-index is not.
  no_such_sub_index = 0x06090011,
};

/// A few words for people, without the code and without a full stop.
///
/// "unknown abort code" for a value that is none of the enumerators. The text lives for ever.
std::string_view sdo_abort_text(SdoAbort abort);

}  // namespace velmora_can_bridge
