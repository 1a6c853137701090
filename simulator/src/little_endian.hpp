// Numbers as objects and frames hold them: the lowest byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora_can_bridge {

/// The `length` low bytes of the value; bytes beyond its 8 are clear.
std::vector<std::uint8_t> to_little_endian(std::uint64_t value, std::size_t length);

/// The number that the bytes stand for; what does not fit into 64 bits is dropped.
std::uint64_t from_little_endian(const std::vector<std::uint8_t>& bytes);

}  // namespace velmora_can_bridge
