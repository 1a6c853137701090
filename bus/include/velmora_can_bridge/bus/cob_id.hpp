/// COB-IDs of the predefined connection set (CiA 301, 7.3.3), those of PDOs included.
#pragma once

#include <cstdint>

#include "velmora_can_bridge/node_id.hpp"
#include "velmora_can_bridge/predefined_cob_id.hpp"

namespace velmora_can_bridge {

/// NMT commands, to all nodes.
inline constexpr std::uint16_t nmt_cob_id = 0x000;

/// The SYNC, unless object 0x1005 of the nodes says another one.
inline constexpr std::uint16_t sync_cob_id = 0x080;

/// First COB-ID of each function; a node's own is this plus its node id.
inline constexpr std::uint16_t emergency_cob_id = 0x080;
inline constexpr std::uint16_t sdo_answer_cob_id = 0x580;
inline constexpr std::uint16_t sdo_request_cob_id = 0x600;
inline constexpr std::uint16_t heartbeat_cob_id = 0x700;

/// Selects the function of a COB-ID, without the node id.
inline constexpr std::uint16_t function_mask = 0x780;

}  // namespace velmora_can_bridge
