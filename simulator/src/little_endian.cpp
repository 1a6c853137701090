#include "little_endian.hpp"

namespace velmora_can_bridge {
namespace {

constexpr unsigned bits_per_byte = 8;

}  // namespace

std::vector<std::uint8_t> to_little_endian(std::uint64_t value, std::size_t length) {
  std::vector<std::uint8_t> bytes(length);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(value & 0xFFU);
    value >>= bits_per_byte;
  }
  return bytes;
}

std::uint64_t from_little_endian(const std::vector<std::uint8_t>& bytes) {
  std::uint64_t value = 0;
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    value = (value << bits_per_byte) | *byte;
  }
  return value;
}

}  // namespace velmora_can_bridge
