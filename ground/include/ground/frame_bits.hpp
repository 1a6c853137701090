// Cutting a frame by bits, as nodes do it: bit n of the frame is bit n of one little-endian number
// (CiA 301, 7.4.5). Operations cut by whole bytes instead.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "ground/little_endian.hpp"

namespace velmora_can_bridge {

inline constexpr std::size_t frame_bits = 64;

/// The frame as one number.
inline std::uint64_t frame_word(const std::array<std::uint8_t, 8>& frame) {
  return little_endian_number(frame.begin(), frame.size());
}

inline std::uint64_t lowest_bits(std::uint64_t word, std::size_t bit_length) {
  return bit_length >= frame_bits ? word : word & ((std::uint64_t{1} << bit_length) - 1);
}

/// `bit_length` bits from `offset` on; those beyond the frame are clear.
inline std::uint64_t bits_of(std::uint64_t word, std::size_t offset, std::size_t bit_length) {
  return offset >= frame_bits ? 0 : lowest_bits(word >> offset, bit_length);
}

/// `word` with the lowest bits of `value` at `offset`, where it has clear ones.
inline std::uint64_t with_bits(std::uint64_t word, std::size_t offset, std::size_t bit_length,
                               std::uint64_t value) {
  return offset >= frame_bits ? word : word | lowest_bits(value, bit_length) << offset;
}

/// The frame that `word` stands for.
inline std::array<std::uint8_t, 8> frame_of(std::uint64_t word) {
  std::array<std::uint8_t, 8> frame{};
  put_little_endian(frame.begin(), frame.size(), word);
  return frame;
}

}  // namespace velmora_can_bridge
