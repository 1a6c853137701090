/// Error codes and error registers of nodes in words.
#pragma once

#include <cstdint>
#include <string>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// What an error code means, as emergencies and the objects 0x1003 and 0x603F hold it: "CAN bus:
/// error passive". A code without words of its own has those of the class to which it belongs
/// (CiA 301, 7.2.7.1; CiA 402-2 for drives): "voltage". Empty for a code of no class.
std::string emergency_words(std::uint16_t error_code);

/// The bits of the error register, object 0x1001 (CiA 301, 7.5.2.2): "generic, communication";
/// "no error" when none is set.
std::string error_register_words(std::uint8_t bits);

}  // namespace velmora_can_bridge
