#include "pdo_mapping.hpp"

#include <algorithm>

#include "ground/frame_bits.hpp"
#include "ground/pdo.hpp"

namespace velmora_can_bridge {
namespace {

template <typename Predicate>
PdosByNumber pdos_that(const BoardConfig& board, Predicate is_wanted) {
  PdosByNumber pdos;
  for (const PdoConfig& pdo : board.pdos) {
    if (is_wanted(pdo)) {
      pdos.emplace(pdo.number, &pdo);  // keeps the first of a number
    }
  }
  return pdos;
}

/// The lowest 8 bytes of a value.
std::uint64_t lowest_bytes(std::vector<std::uint8_t> value) {
  value.resize(std::min(value.size(), sizeof(std::uint64_t)));
  return little_endian_number(value);
}

}  // namespace

PdosByNumber rpdos_of(const BoardConfig& board) { return pdos_that(board, is_rpdo); }

PdosByNumber tpdos_of(const BoardConfig& board) { return pdos_that(board, is_tpdo); }

std::vector<FieldValue> unpack_frame(const std::vector<PdoMapping>& mappings,
                                     const std::array<std::uint8_t, 8>& frame) {
  const std::uint64_t word = frame_word(frame);
  std::vector<FieldValue> fields;
  std::size_t offset = 0;
  for (const PdoMapping& mapping : mappings) {
    if (carries_object(mapping)) {
      const std::uint64_t value = bits_of(word, offset, mapping.bit_length);
      fields.push_back({mapping.index, mapping.sub_index,
                        little_endian_bytes(value, bytes_for_bits(mapping.bit_length))});
    }
    offset += mapping.bit_length;
  }
  return fields;
}

std::array<std::uint8_t, 8> pack_frame(const std::vector<PdoMapping>& mappings,
                                       const std::vector<FieldValue>& fields) {
  std::uint64_t word = 0;
  std::size_t offset = 0;
  auto field = fields.begin();
  for (const PdoMapping& mapping : mappings) {
    if (carries_object(mapping) && field != fields.end()) {
      word = with_bits(word, offset, mapping.bit_length, lowest_bytes(field->value));
      ++field;
    }
    offset += mapping.bit_length;
  }
  return frame_of(word);
}

}  // namespace velmora_can_bridge
