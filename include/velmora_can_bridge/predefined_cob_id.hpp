/// COB-IDs that PDOs have unless they are given others (CiA 301, 7.3.3).
#pragma once

#include <cstdint>

namespace velmora_can_bridge {

/// The predefined COB-ID of RPDO `number` of a node; 0 for a number other than 1 to 4.
inline constexpr std::uint16_t predefined_rpdo_cob_id(std::uint8_t node_id, std::uint8_t number) {
  return number >= 1 && number <= 4 ? static_cast<std::uint16_t>(0x100 + 0x100 * number + node_id)
                                    : std::uint16_t{0};
}

/// The predefined COB-ID of TPDO `number` of a node; 0 for a number other than 1 to 4.
inline constexpr std::uint16_t predefined_tpdo_cob_id(std::uint8_t node_id, std::uint8_t number) {
  return number >= 1 && number <= 4 ? static_cast<std::uint16_t>(0x080 + 0x100 * number + node_id)
                                    : std::uint16_t{0};
}

}  // namespace velmora_can_bridge
