// The fields whose bits can be changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dispatch/lookups.hpp"
#include "shadow/rpdo_layout.hpp"

namespace velmora_can_bridge {
namespace {

struct SingleByteField {
  const PdoMapping* mapping;
  /// Of the field's byte in the frame, 0 to 7.
  std::size_t offset;
};

/// The field's mapping in `pdo` when it has exactly one whole byte (8 to 15 bits), within the frame
/// or beyond; else null.
inline const PdoMapping* find_single_byte_mapping(const PdoConfig& pdo, const std::string& name) {
  const PdoMapping* const mapping = find_mapping_by_field(pdo, name);
  return mapping != nullptr && byte_length(*mapping) == 1 ? mapping : nullptr;
}

/// As `find_single_byte_mapping`, but only a field whose byte lies within the frame.
inline std::optional<SingleByteField> find_single_byte_field(const BoardConfig& board,
                                                             const PdoConfig& pdo,
                                                             const std::string& name) {
  const PdoMapping* const mapping = find_single_byte_mapping(pdo, name);
  const std::optional<std::size_t> offset = field_byte_offset(board, pdo.number, name);
  const bool in_frame = offset && *offset < frame_length;
  if (mapping == nullptr || !in_frame) {
    return std::nullopt;
  }
  return SingleByteField{mapping, *offset};
}

/// `current` with the bits that `mask` selects taken from `value`.
constexpr std::uint8_t merge_bits(std::uint8_t current, std::uint8_t mask, std::uint8_t value) {
  return static_cast<std::uint8_t>((current & ~mask) | (value & mask));
}

}  // namespace
}  // namespace velmora_can_bridge
