#include "printable.hpp"

#include <algorithm>
#include <cstdint>

#include "dispatch/hex_u16.hpp"

namespace velmora_can_bridge {
namespace {

bool is_control(char character) {
  const auto byte = static_cast<std::uint8_t>(character);
  return byte < 0x20 || byte == 0x7F;
}

/// Any byte of a UTF-8 character but its first.
bool is_continuation(char character) {
  return (static_cast<std::uint8_t>(character) & 0xC0U) == 0x80U;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string line;
  for (const char character : text) {
    line += is_control(character) ? "\\x" + hex_u8(static_cast<std::uint8_t>(character)).substr(2)
                                  : std::string(1, character);
  }
  return line;
}

std::size_t display_width(const std::string& text) {
  return text.size() -
         static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

}  // namespace velmora_can_bridge
