// Payloads as people type them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// The bytes that `words` stand for, joined in order, or the reason why one of them stands for
/// none.
///
/// A word is hexadecimal bytes ("0F", "0F00": an even number of digits) or a typed value
/// ("u16:500", "s16:-500", "u8:0x1F"; types u8, s8, u16, s16, u32, s32; decimal or 0x hexadecimal),
/// which gives its bytes in little-endian order.
Expected<std::vector<std::uint8_t>> parse_payload_words(const std::vector<std::string>& words);

}  // namespace velmora_can_bridge
