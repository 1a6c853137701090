// Values of payloads, made from what is known of objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {

/// A number of its type's length whose meaning is fixed.
PayloadValue plain_value(const std::string& name, ValueType type);

/// As `plain_value`, from `minimum` to `maximum`.
PayloadValue ranged_value(const std::string& name, ValueType type, std::int64_t minimum,
                          std::int64_t maximum);

/// Any number of bytes whose meaning nobody tells.
PayloadValue any_bytes(const std::string& name);

/// The value of an object in `length` bytes, 1 to 8, whatever length its type has.
PayloadValue sized_value(const std::string& name, const ValueDescription& meaning,
                         std::size_t length);

/// The value of an object that is reached by SDO. Where its type is not known it has the bytes of
/// its mapping; without a mapping it is any bytes.
PayloadValue object_payload(const NodeConfig* node, const std::string& name, std::uint16_t index,
                            std::uint8_t sub_index);

/// Whether the mapping has no more bits than a frame.
bool is_possible(const PdoMapping& mapping);

/// The value of the mapped object, which is possible and has at least 8 bits.
PayloadValue field_value(const NodeConfig& node, const PdoMapping& mapping);

/// How a payload calls the value of the object: the field that carries it, what the drive profile
/// calls it, or "value".
std::string value_name(const NodeConfig& node, std::uint16_t index, std::uint8_t sub_index);

/// What the bytes of the whole number, lowest first, stand for.
Count count_of(const PayloadValue& value, const std::vector<std::uint8_t>& bytes);

/// Whether the range of the whole number is that of its bytes.
bool has_whole_range(const PayloadValue& value);

/// "out of range, 0 to 255".
std::string out_of_range_text(const PayloadValue& value);

/// As `out_of_range_text`, where the count is not in the range of the whole number; no value where
/// it is. A type that nobody tells excludes nothing.
std::optional<std::string> range_refusal(const PayloadValue& value, Count count);

/// "u16", "u32 in 3 bytes", "bytes".
std::string payload_type_text(const PayloadValue& value);

/// Narrows the range to the counts from `minimum` to `maximum`. Where it has none of them, its
/// maximum is below its minimum afterwards, which `if_possible` refuses.
void narrow(PayloadValue& value, Count minimum, Count maximum);

/// As `narrow`, to what the description says.
void narrow(PayloadValue& value, const ValueDescription& meaning);

/// The layout; where one of its values has nothing in its range, that instead.
Expected<PayloadLayout> if_possible(Expected<PayloadLayout> layout);

}  // namespace velmora_can_bridge
