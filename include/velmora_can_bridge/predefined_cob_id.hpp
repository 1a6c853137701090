/// COB-IDs of the predefined connection set (CiA 301, 7.3.3); PDOs may be given others.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// NMT commands, to all nodes.
inline constexpr std::uint16_t nmt_cob_id = 0x000;

/// The SYNC, unless object 0x1005 of the nodes says another one.
inline constexpr std::uint16_t sync_cob_id = 0x080;

/// The time of day, unless object 0x1012 of the nodes says another one.
inline constexpr std::uint16_t time_cob_id = 0x100;

/// First COB-ID of each function; a node's own is this plus its node id.
inline constexpr std::uint16_t emergency_cob_id = 0x080;
inline constexpr std::uint16_t sdo_answer_cob_id = 0x580;
inline constexpr std::uint16_t sdo_request_cob_id = 0x600;
inline constexpr std::uint16_t heartbeat_cob_id = 0x700;

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
