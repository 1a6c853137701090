// The words of a drive in words of people (CiA 402-2).
#pragma once

#include <cstdint>
#include <string>

namespace velmora_can_bridge {

/// "Operation enabled, target reached": the state, and what of the set bits matters beside it.
/// Voltage and remote control (bits 4 and 9) are left out, because they are the usual case.
std::string statusword_words(std::uint16_t statusword);

/// "enable operation, halt": the command, and the bits beside it.
std::string controlword_words(std::uint16_t controlword);

}  // namespace velmora_can_bridge
