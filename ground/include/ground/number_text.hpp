// How numbers and bytes are written for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velmora_can_bridge {

/// The `digits` lowest hexadecimal digits of `value`, upper case, behind "0x": `hex<4>(0x6040)` is
/// "0x6040".
template <std::size_t digits>
std::string hex(std::uint32_t value) {
  std::string text(2 + digits, 'x');
  text.front() = '0';
  for (std::size_t position = text.size() - 1; position > 1; --position) {
    text[position] = "0123456789ABCDEF"[value & 0xFU];
    value >>= 4U;
  }
  return text;
}

/// `bytes` as "0F 00": two upper-case hexadecimal digits each, a blank between them.
inline std::string hex_bytes(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += (text.empty() ? "" : " ") + hex<2>(byte).substr(2);
  }
  return text;
}

/// As `hex_bytes`, and "no bytes" where there are none.
inline std::string bytes_text(const std::vector<std::uint8_t>& bytes) {
  return bytes.empty() ? "no bytes" : hex_bytes(bytes);
}

/// An object as messages name it, "0x6040/0": the index, and the sub-index in decimal.
inline std::string object_text(std::uint16_t index, std::uint8_t sub_index) {
  return hex<4>(index) + "/" + std::to_string(sub_index);
}

/// "1 byte", "2 bytes": for nouns that take an s.
inline std::string counted(std::size_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

}  // namespace velmora_can_bridge
