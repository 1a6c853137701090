// Objects that mean the same in every node (CiA 301, 7.5.2).
#pragma once

#include <cstdint>
#include <string_view>

namespace velmora_can_bridge {

struct CommonObjectRow {
  std::uint16_t index;
  std::uint8_t sub_index;
  /// Of an unsigned number, in bytes; 0 for a text of any length.
  std::uint8_t length;
  /// All of them can be read.
  bool is_writable;
  /// No other sub-index stands beside it.
  bool is_alone;
  /// Empty where it counts nothing.
  std::string_view unit;
  std::string_view name;
};

inline constexpr CommonObjectRow common_objects[] = {
    {0x1000, 0, 4, false, true, "", "the device type"},
    {0x1001, 0, 1, false, true, "", "the error register"},
    {0x1002, 0, 4, false, true, "", "the manufacturer status register"},
    {0x1005, 0, 4, true, true, "", "the COB-ID of SYNC"},
    {0x1006, 0, 4, true, true, "us", "the period of SYNC"},
    {0x1008, 0, 0, false, true, "", "the device name"},
    {0x1009, 0, 0, false, true, "", "the hardware version"},
    {0x100A, 0, 0, false, true, "", "the software version"},
    {0x100C, 0, 2, true, true, "ms", "the guard time"},
    {0x100D, 0, 1, true, true, "", "the life time factor"},
    {0x1014, 0, 4, true, true, "", "the COB-ID of emergencies"},
    {0x1017, 0, 2, true, true, "ms", "the producer heartbeat time"},
    {0x1018, 0, 1, false, false, "", "the length of the identity"},
    {0x1018, 1, 4, false, false, "", "the vendor id"},
    {0x1018, 2, 4, false, false, "", "the product code"},
    {0x1018, 3, 4, false, false, "", "the revision number"},
    {0x1018, 4, 4, false, false, "", "the serial number"},
    {0x1019, 0, 1, true, true, "", "the overflow of the SYNC counter"},
};

}  // namespace velmora_can_bridge
