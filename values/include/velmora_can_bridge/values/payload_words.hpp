/// Values as people write them, one word each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// The payload that the words write, by the layout of the operation: its values in order, as many
/// as one likes by name behind them (`red=255`). docs/values.md tells what a word may be.
///
/// A name may be given by its last words or its beginning where only one value fits. Instead of a
/// payload, what is wrong with the words, and the layout, on one line.
Expected<std::vector<std::uint8_t>> payload_from_words(const PayloadUse& use,
                                                       const std::vector<std::string>& words);

/// As `payload_from_words`, for the value of an object. Where `node`, which may be null, does not
/// tell its type, each word says its own, such as "u16:500" or "hex:0F00".
Expected<std::vector<std::uint8_t>> object_from_words(const NodeConfig* node, std::uint16_t index,
                                                      std::uint8_t sub_index,
                                                      const std::vector<std::string>& words);

/// The bytes that the words stand for, joined, whatever an operation takes: hexadecimal digits,
/// two a byte ("0F 00", "0F00"), or numbers with their type ("u16:500").
///
/// Instead of bytes, the first word that stands for none, and why.
Expected<std::vector<std::uint8_t>> raw_payload_from_words(const std::vector<std::string>& words);

}  // namespace velmora_can_bridge
