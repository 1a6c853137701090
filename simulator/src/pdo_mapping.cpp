#include "pdo_mapping.hpp"

#include <numeric>

#include "dispatch/lookups.hpp"
#include "little_endian.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t bits_per_byte = 8;
constexpr std::size_t frame_bits = 64;

/// The frame as one number, its first byte lowest, so that bit n of the frame is bit n of it.
std::uint64_t frame_word(const std::array<std::uint8_t, 8>& frame) {
  std::uint64_t word = 0;
  for (std::size_t position = frame.size(); position > 0; --position) {
    word = (word << bits_per_byte) | frame.at(position - 1);
  }
  return word;
}

std::uint64_t bits_of(std::uint64_t word, std::size_t offset, std::size_t bit_length) {
  if (offset >= frame_bits) {
    return 0;
  }
  const std::uint64_t from_offset = word >> offset;
  if (bit_length >= frame_bits) {
    return from_offset;
  }
  return from_offset & ((std::uint64_t{1} << bit_length) - 1);
}

}  // namespace

bool is_rpdo(const PdoConfig& pdo) { return pdo.direction == rpdo_direction; }

bool carries_object(const PdoMapping& mapping) {
  constexpr std::uint16_t first_object = 0x0020;
  return mapping.index >= first_object && mapping.bit_length > 0;
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

}  // namespace velmora_can_bridge
