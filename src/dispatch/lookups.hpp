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

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/predefined_cob_id.hpp"

namespace velmora_can_bridge {
namespace {

/// The `direction` of a PDO that the node receives.
inline constexpr std::string_view rpdo_direction = "RPDO";

/// The `transport` of an operation that forces the SDO path.
inline constexpr std::string_view sdo_transport = "sdo";

inline bool is_pdo(const PdoConfig& pdo, std::uint8_t number, std::string_view direction) {
  return pdo.number == number && pdo.direction == direction;
}

/// The COB-ID of the node's PDO: its own, else the predefined one; 0 when it has neither.
inline std::uint16_t cob_id_of(std::uint8_t node_id, const PdoConfig& pdo) {
  if (pdo.cob_id != 0) {
    return pdo.cob_id;
  }
  return pdo.direction == rpdo_direction ? predefined_rpdo_cob_id(node_id, pdo.number)
                                         : predefined_tpdo_cob_id(node_id, pdo.number);
}

/// Whole bytes that the mapping occupies in the frame: its bit length divided by 8, rounded down.
inline std::size_t byte_length(const PdoMapping& mapping) { return mapping.bit_length >> 3U; }

/// The first PDO of that number and direction, or null.
inline const PdoConfig* find_pdo(const BoardConfig& board, std::uint8_t number,
                                 std::string_view direction) {
  const auto found = std::find_if(board.pdos.begin(), board.pdos.end(), [&](const PdoConfig& pdo) {
    return is_pdo(pdo, number, direction);
  });
  return found == board.pdos.end() ? nullptr : &*found;
}

/// The number of the first RPDO that maps `index` at any sub-index and is not numbered 0, or 0.
inline std::uint8_t find_rpdo_number(const BoardConfig& board, std::uint16_t index) {
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.number == 0 || pdo.direction != rpdo_direction) {
      continue;
    }
    const bool maps =
        std::any_of(pdo.mappings.begin(), pdo.mappings.end(),
                    [&](const PdoMapping& mapping) { return mapping.index == index; });
    if (maps) {
      return pdo.number;
    }
  }
  return 0;
}

/// The first mapping of that name, or null. An empty name finds a mapping with an empty name.
inline const PdoMapping* find_mapping_by_field(const PdoConfig& pdo, const std::string& field) {
  const auto found =
      std::find_if(pdo.mappings.begin(), pdo.mappings.end(),
                   [&](const PdoMapping& mapping) { return mapping.field == field; });
  return found == pdo.mappings.end() ? nullptr : &*found;
}

/// The first mapping of that object, index and sub-index, or null.
inline const PdoMapping* find_mapping_by_object(const PdoConfig& pdo, std::uint16_t index,
                                                std::uint8_t sub_index) {
  const auto found =
      std::find_if(pdo.mappings.begin(), pdo.mappings.end(), [&](const PdoMapping& mapping) {
        return mapping.index == index && mapping.sub_index == sub_index;
      });
  return found == pdo.mappings.end() ? nullptr : &*found;
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
