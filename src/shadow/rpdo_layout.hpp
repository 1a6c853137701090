// Where the fields of an RPDO stand in its frame. Pure functions of the board configuration.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "dispatch/lookups.hpp"
#include "velmora_can_bridge/board_config.hpp"

namespace velmora_can_bridge {
namespace {

/// Data bytes of a CAN frame.
inline constexpr std::size_t frame_length = 8;

/// The whole bytes of the frame that a field owns; `length` is 0 when it owns none. Never reaches
/// past the frame: `offset` + `length` is at most 8.
struct FieldPlace {
  std::size_t offset;
  std::size_t length;
};

/// The place of a mapping that begins `offset` bytes into the frame, cut to the frame's end.
inline FieldPlace place_at(std::size_t offset, const PdoMapping& mapping) {
  const std::size_t begin = std::min(offset, frame_length);
  return {begin, std::min(byte_length(mapping), frame_length - begin)};
}

/// Calls `visit(mapping, place)` for each mapping of the PDO, in order, until it answers false.
/// Returns whether it never did.
template <typename Visit>
bool for_each_field(const PdoConfig& pdo, const Visit& visit) {
  std::size_t offset = 0;
  for (const PdoMapping& mapping : pdo.mappings) {
    if (!visit(mapping, place_at(offset, mapping))) {
      return false;
    }
    offset += byte_length(mapping);
  }
  return true;
}

/// The place of this very element of the board's lists, not of one that equals it: fields may share
/// a name or an object. Owns no byte when no RPDO of that number holds it.
inline FieldPlace place_of(const BoardConfig& board, std::uint8_t rpdo, const PdoMapping& wanted) {
  FieldPlace found{};
  for (const PdoConfig& pdo : board.pdos) {
    if (!is_pdo(pdo, rpdo, rpdo_direction)) {
      continue;
    }
    const bool absent = for_each_field(pdo, [&](const PdoMapping& mapping, FieldPlace place) {
      found = place;
      return &mapping != &wanted;
    });
    if (!absent) {
      return found;
    }
  }
  return {};
}

/// Data bytes of the RPDO's frame: all mapped bits, rounded up to bytes, at most 8; of several
/// entries with the number the longest counts.
inline std::uint8_t mapped_length(const BoardConfig& board, std::uint8_t rpdo) {
  std::size_t longest = 0;
  for (const PdoConfig& pdo : board.pdos) {
    if (!is_pdo(pdo, rpdo, rpdo_direction)) {
      continue;
    }
    longest = std::max(longest, mapped_bytes(pdo.mappings));
  }
  return static_cast<std::uint8_t>(std::min(longest, frame_length));
}

}  // namespace
}  // namespace velmora_can_bridge
