// PDOs of a board configuration: direction, COB-ID, look-up. First match wins; pointers point into
// the configuration and live as long as it does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/node_id.hpp"
#include "velmora_can_bridge/predefined_cob_id.hpp"

namespace velmora_can_bridge {

/// An 11-bit CAN identifier is no higher.
inline constexpr std::uint16_t highest_can_id = 0x7FF;

/// As the node sees it: it receives RPDOs and sends TPDOs.
enum class PdoDirection : std::uint8_t { rpdo, tpdo };

/// The `direction` of a PDO that the node receives.
inline constexpr std::string_view rpdo_direction = "RPDO";
/// The `direction` of a PDO that the node sends.
inline constexpr std::string_view tpdo_direction = "TPDO";

inline constexpr std::string_view direction_text(PdoDirection direction) {
  return direction == PdoDirection::rpdo ? rpdo_direction : tpdo_direction;
}

/// Whether the configuration spells the direction exactly so: with another text it is neither.
inline bool has_direction(const PdoConfig& pdo, PdoDirection direction) {
  return pdo.direction == direction_text(direction);
}

inline bool is_rpdo(const PdoConfig& pdo) { return has_direction(pdo, PdoDirection::rpdo); }
inline bool is_tpdo(const PdoConfig& pdo) { return has_direction(pdo, PdoDirection::tpdo); }

/// That of `pdo`, where what is no RPDO counts as a TPDO.
inline PdoDirection direction_of(const PdoConfig& pdo) {
  return is_rpdo(pdo) ? PdoDirection::rpdo : PdoDirection::tpdo;
}

/// "RPDO 3".
inline std::string pdo_text(PdoDirection direction, std::uint8_t number) {
  return std::string(direction_text(direction)) + " " + std::to_string(number);
}

inline std::string pdo_text(const PdoConfig& pdo) {
  return pdo_text(direction_of(pdo), pdo.number);
}

/// The predefined COB-ID; 0 where there is none: for a number other than 1 to 4, and for what is no
/// node id.
inline std::uint16_t predefined_cob_id(std::uint8_t node_id, PdoDirection direction,
                                       std::uint8_t number) {
  if (!is_node_id(node_id)) {
    return 0;
  }
  return direction == PdoDirection::rpdo ? predefined_rpdo_cob_id(node_id, number)
                                         : predefined_tpdo_cob_id(node_id, number);
}

/// The COB-ID of the node's PDO: the board's, else the predefined one; 0 when it has none. What is
/// no 11-bit identifier is none.
inline std::uint16_t cob_id_of(std::uint8_t node_id, const PdoConfig& pdo) {
  const std::uint16_t cob_id =
      pdo.cob_id != 0 ? pdo.cob_id : predefined_cob_id(node_id, direction_of(pdo), pdo.number);
  return cob_id <= highest_can_id ? cob_id : std::uint16_t{0};
}

/// A PDO by what messages call it.
struct PdoName {
  PdoDirection direction = PdoDirection::rpdo;
  std::uint8_t number = 0;
};

/// Which PDO of the node has `cob_id` in the predefined connection set.
inline std::optional<PdoName> predefined_pdo(std::uint8_t node_id, std::uint16_t cob_id) {
  for (const PdoDirection direction : {PdoDirection::rpdo, PdoDirection::tpdo}) {
    std::uint8_t number = 1;
    for (; predefined_cob_id(node_id, direction, number) != 0; ++number) {
      if (predefined_cob_id(node_id, direction, number) == cob_id) {
        return PdoName{direction, number};
      }
    }
  }
  return std::nullopt;
}

/// The first PDO of that direction and number, or null.
inline const PdoConfig* find_pdo(const BoardConfig& board, PdoDirection direction,
                                 std::uint8_t number) {
  const auto found = std::find_if(board.pdos.begin(), board.pdos.end(), [&](const PdoConfig& pdo) {
    return pdo.number == number && has_direction(pdo, direction);
  });
  return found == board.pdos.end() ? nullptr : &*found;
}

/// The number of the first RPDO that maps `index` at any sub-index and is not numbered 0, or 0.
inline std::uint8_t find_rpdo_number(const BoardConfig& board, std::uint16_t index) {
  const auto maps = [&](const PdoMapping& mapping) { return mapping.index == index; };
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.number != 0 && is_rpdo(pdo) &&
        std::any_of(pdo.mappings.begin(), pdo.mappings.end(), maps)) {
      return pdo.number;
    }
  }
  return 0;
}

/// The first mapping of that name, or null. An empty name finds a mapping with an empty name.
inline const PdoMapping* find_field(const PdoConfig& pdo, const std::string& field) {
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

/// The first mapping of the object in any RPDO of that number, or null.
inline const PdoMapping* find_mapping_by_object(const BoardConfig& board, std::uint8_t rpdo,
                                                std::uint16_t index, std::uint8_t sub_index) {
  for (const PdoConfig& pdo : board.pdos) {
    if (pdo.number != rpdo || !is_rpdo(pdo)) {
      continue;
    }
    if (const PdoMapping* const mapping = find_mapping_by_object(pdo, index, sub_index)) {
      return mapping;
    }
  }
  return nullptr;
}

/// Whole bytes that the mapping occupies in the frame: its bit length divided by 8, rounded down.
inline std::size_t byte_length(const PdoMapping& mapping) { return mapping.bit_length >> 3U; }

/// Bytes that hold that many bits.
inline std::size_t bytes_for_bits(std::size_t bit_length) { return (bit_length + 7) / 8; }

/// Bytes of a frame with these mappings, dummy entries included. May exceed the 8 of a frame.
inline std::size_t mapped_bytes(const std::vector<PdoMapping>& mappings) {
  std::size_t bits = 0;
  for (const PdoMapping& mapping : mappings) {
    bits += mapping.bit_length;
  }
  return bytes_for_bits(bits);
}

/// Whether the mapping stands for an object: it has bits, and is no dummy entry.
inline bool carries_object(const PdoMapping& mapping) {
  return !is_dummy_entry(mapping) && mapping.bit_length > 0;
}

}  // namespace velmora_can_bridge
