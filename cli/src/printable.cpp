#include "printable.hpp"

#include <algorithm>
#include <cstdint>

#include "dispatch/hex_u16.hpp"
#include "dispatch/visible_text.hpp"

namespace velmora_can_bridge {
namespace {

std::string escaped_unit(std::uint16_t unit) { return "\\u" + hex_u16(unit).substr(2); }

/// As JSON has it: above 0xFFFF as two units of UTF-16. RFC 8259, section 7.
std::string escaped_in_json(std::uint32_t code_point) {
  if (code_point <= 0xFFFF) {
    return escaped_unit(static_cast<std::uint16_t>(code_point));
  }
  const std::uint32_t rest = code_point - 0x10000;
  return escaped_unit(static_cast<std::uint16_t>(0xD800U | rest >> 10U)) +
         escaped_unit(static_cast<std::uint16_t>(0xDC00U | (rest & 0x3FFU)));
}

/// Any byte of a UTF-8 character but its first.
bool is_continuation(char character) {
  return (static_cast<std::uint8_t>(character) & 0xC0U) == 0x80U;
}

}  // namespace

std::string printable(const std::string& text) { return visible_text(text); }

std::string printable_json(const std::string& json) {
  return with_hidden_escaped(json, escaped_in_json, escaped_in_json);
}

std::size_t display_width(const std::string& text) {
  return text.size() -
         static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

}  // namespace velmora_can_bridge
