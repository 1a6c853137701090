// One word, one value.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {

/// The bytes of the value that the word writes: a number, a number with the value's unit, the name
/// of a code, or with its type before a colon ("u16:500", "hex:0F00", "text:hello"). Or why the
/// word is none; the reason does not name the value.
Expected<std::vector<std::uint8_t>> word_bytes(const PayloadValue& value, std::string_view word);

}  // namespace velmora_can_bridge
