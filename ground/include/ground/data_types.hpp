// The data types that an operation may name.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace velmora_can_bridge {

/// Bytes that a value of a sized type takes; no value for any other text, "raw" included.
inline std::optional<std::size_t> sized_type_length(std::string_view type) {
  struct Row {
    std::string_view type;
    std::size_t length;
  };
  constexpr Row rows[] = {{"u8", 1}, {"s8", 1}, {"u16", 2}, {"s16", 2}, {"u32", 4}, {"s32", 4}};
  for (const Row& row : rows) {
    if (type == row.type) {
      return row.length;
    }
  }
  return std::nullopt;
}

}  // namespace velmora_can_bridge
