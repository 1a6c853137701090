// Cutting a caller's payload to the size of a data type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "ground/data_types.hpp"

namespace velmora_can_bridge {
namespace {

/// The payload bytes that `type` takes, in payload order: all of them for "raw" or an empty text,
/// the first 1, 2 or 4 for a sized type. No value when the payload is too short or the type is
/// unknown. Bytes are never swapped, extended or range-checked.
inline std::optional<std::vector<std::uint8_t>> encode_payload(
    std::string_view type, const std::vector<std::uint8_t>& payload) {
  if (type.empty() || type == "raw") {
    return payload;
  }
  const std::optional<std::size_t> length = sized_type_length(type);
  if (!length || payload.size() < *length) {
    return std::nullopt;
  }
  return std::vector<std::uint8_t>(payload.begin(),
                                   payload.begin() + static_cast<std::ptrdiff_t>(*length));
}

}  // namespace
}  // namespace velmora_can_bridge
