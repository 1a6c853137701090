// Read-only searches in the board configuration: first match wins, nothing allocates or throws.
// Returned pointers point into the configuration and live as long as it does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ground/pdo.hpp"
#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {
namespace {

/// The `transport` of an operation that forces the SDO path.
inline constexpr std::string_view sdo_transport = "sdo";

inline bool is_pdo(const PdoConfig& pdo, std::uint8_t number, std::string_view direction) {
  return pdo.number == number && pdo.direction == direction;
}

/// The first PDO of that number and direction, or null.
inline const PdoConfig* find_pdo(const BoardConfig& board, std::uint8_t number,
                                 std::string_view direction) {
  const auto found = std::find_if(board.pdos.begin(), board.pdos.end(), [&](const PdoConfig& pdo) {
    return is_pdo(pdo, number, direction);
  });
  return found == board.pdos.end() ? nullptr : &*found;
}

/// The first mapping of that name, or null. An empty name finds a mapping with an empty name.
inline const PdoMapping* find_mapping_by_field(const PdoConfig& pdo, const std::string& field) {
  return find_field(pdo, field);
}

/// Bytes from the start of RPDO `number` to the field, or no value when no RPDO of that number maps
/// it. Counts the whole bytes of the mappings before it (a mapping of 12 bits counts 1), from 0
/// again in each RPDO of the number. May lie beyond the frame's 8 bytes: the caller checks.
inline std::optional<std::size_t> field_byte_offset(const BoardConfig& board, std::uint8_t number,
                                                    const std::string& field) {
  for (const PdoConfig& pdo : board.pdos) {
    if (!is_pdo(pdo, number, rpdo_direction)) {
      continue;
    }
    std::size_t offset = 0;
    for (const PdoMapping& mapping : pdo.mappings) {
      if (mapping.field == field) {
        return offset;
      }
      offset += byte_length(mapping);
    }
  }
  return std::nullopt;
}

inline bool contains(const std::vector<std::uint8_t>& bytes, std::uint8_t value) {
  return std::find(bytes.begin(), bytes.end(), value) != bytes.end();
}

}  // namespace
}  // namespace velmora_can_bridge
