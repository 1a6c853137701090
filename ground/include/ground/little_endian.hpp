// Numbers as objects, payloads and frames hold them: the lowest byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora_can_bridge {

/// The number that the `count` bytes from `first` on stand for; what does not fit into 64 bits is
/// dropped.
template <typename Iterator>
std::uint64_t little_endian_number(Iterator first, std::size_t count) {
  std::uint64_t number = 0;
  for (std::size_t position = 0; position < count && position < sizeof(number); ++position) {
    number |= std::uint64_t{*first} << (8U * position);
    ++first;
  }
  return number;
}

/// As above, of all `bytes`.
inline std::uint64_t little_endian_number(const std::vector<std::uint8_t>& bytes) {
  return little_endian_number(bytes.begin(), bytes.size());
}

/// Writes the `count` low bytes of `value` from `first` on; bytes beyond its 8 are clear.
template <typename Iterator>
void put_little_endian(Iterator first, std::size_t count, std::uint64_t value) {
  for (std::size_t position = 0; position < count; ++position) {
    *first = static_cast<std::uint8_t>(value);
    ++first;
    value >>= 8U;
  }
}

/// The `count` low bytes of `value`; bytes beyond its 8 are clear.
inline std::vector<std::uint8_t> little_endian_bytes(std::uint64_t value, std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  put_little_endian(bytes.begin(), count, value);
  return bytes;
}

}  // namespace velmora_can_bridge
