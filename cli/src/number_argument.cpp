#include "number_argument.hpp"

#include <optional>

#include "ground/parse_number.hpp"

namespace velmora_can_bridge {

Expected<std::uint32_t> number_argument(const std::string& name, const std::string& text,
                                        std::uint32_t minimum, std::uint32_t maximum) {
  const std::optional<TypedNumber> number = parse_number(text);
  if (!number || number->is_negative || number->magnitude < minimum ||
      number->magnitude > maximum) {
    return Unexpected{name + " \"" + text + "\" is not a number from " + std::to_string(minimum) +
                      " to " + std::to_string(maximum) + ", decimal or 0x hexadecimal"};
  }
  return static_cast<std::uint32_t>(number->magnitude);
}

}  // namespace velmora_can_bridge
