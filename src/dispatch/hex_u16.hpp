// How messages write an index.
#pragma once

#include <cstdint>
#include <string>

#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

/// `value` as "0x" and exactly four upper-case hexadecimal digits: 0x6040 gives "0x6040".
inline std::string hex_u16(std::uint16_t value) { return hex<4>(value); }

}  // namespace
}  // namespace velmora_can_bridge
