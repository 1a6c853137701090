#include "pdo_mapping.hpp"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "dispatch/lookups.hpp"
#include "little_endian.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t bits_per_byte = 8;
constexpr std::size_t frame_bits = 64;
constexpr std::string_view tpdo_direction = "TPDO";
constexpr std::uint16_t highest_cob_id = 0x7FF;

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

/// The frame as one number, its first byte lowest, so that bit n of the frame is bit n of it.
std::uint64_t frame_word(const std::array<std::uint8_t, 8>& frame) {
  std::uint64_t word = 0;
  for (std::size_t position = frame.size(); position > 0; --position) {
    word = (word << bits_per_byte) | frame.at(position - 1);
  }
  return word;
}

std::uint64_t lowest_bits(std::uint64_t word, std::size_t bit_length) {
  return bit_length >= frame_bits ? word : word & ((std::uint64_t{1} << bit_length) - 1);
}

std::uint64_t bits_of(std::uint64_t word, std::size_t offset, std::size_t bit_length) {
  if (offset >= frame_bits) {
    return 0;
  }
  return lowest_bits(word >> offset, bit_length);
}

/// `word` with the value's bits at `offset`, where it has clear ones.
std::uint64_t with_bits(std::uint64_t word, std::size_t offset, std::size_t bit_length,
                        std::uint64_t value) {
  return offset >= frame_bits ? word : word | lowest_bits(value, bit_length) << offset;
}

std::array<std::uint8_t, 8> frame_of(std::uint64_t word) {
  std::array<std::uint8_t, 8> frame{};
  for (std::uint8_t& byte : frame) {
    byte = static_cast<std::uint8_t>(word & 0xFFU);
    word >>= bits_per_byte;
  }
  return frame;
}

/// The lowest 8 bytes of a value.
std::uint64_t lowest_bytes(std::vector<std::uint8_t> value) {
  value.resize(std::min(value.size(), sizeof(std::uint64_t)));
  return from_little_endian(value);
}

}  // namespace

bool is_rpdo(const PdoConfig& pdo) { return pdo.direction == rpdo_direction; }

bool is_tpdo(const PdoConfig& pdo) { return pdo.direction == tpdo_direction; }

PdosByNumber rpdos_of(const BoardConfig& board) { return pdos_that(board, is_rpdo); }

PdosByNumber tpdos_of(const BoardConfig& board) { return pdos_that(board, is_tpdo); }

std::uint16_t usable_cob_id(std::uint8_t node_id, const PdoConfig& pdo) {
  if (pdo.cob_id == 0 && !is_node_id(node_id)) {
    return 0;
  }
  const std::uint16_t cob_id = cob_id_of(node_id, pdo);
  return cob_id <= highest_cob_id ? cob_id : std::uint16_t{0};
}

bool carries_object(const PdoMapping& mapping) {
  return !is_dummy_entry(mapping) && mapping.bit_length > 0;
}

std::size_t bytes_for_bits(std::size_t bit_length) {
  return (bit_length + bits_per_byte - 1) / bits_per_byte;
}

std::size_t frame_length(const std::vector<PdoMapping>& mappings) {
  const std::size_t bits =
      std::accumulate(mappings.begin(), mappings.end(), std::size_t{0},
                      [](std::size_t sum, const PdoMapping& m) { return sum + m.bit_length; });
  return bytes_for_bits(bits);
}

std::vector<FieldValue> unpack_frame(const std::vector<PdoMapping>& mappings,
                                     const std::array<std::uint8_t, 8>& frame) {
  const std::uint64_t word = frame_word(frame);
  std::vector<FieldValue> fields;
  std::size_t offset = 0;
  for (const PdoMapping& mapping : mappings) {
    if (carries_object(mapping)) {
      const std::uint64_t value = bits_of(word, offset, mapping.bit_length);
      fields.push_back({mapping.index, mapping.sub_index,
                        to_little_endian(value, bytes_for_bits(mapping.bit_length))});
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
