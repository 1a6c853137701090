#include "terminal.hpp"

#include <string_view>

#include "ground/parse_number.hpp"

namespace velmora_can_bridge {

bool has_colour(bool is_terminal, const char* no_color, const char* term) {
  const bool is_refused = no_color != nullptr && *no_color != '\0';
  const bool is_dumb = term != nullptr && std::string_view(term) == "dumb";
  return is_terminal && !is_refused && !is_dumb;
}

std::size_t terminal_width(const char* columns, std::size_t window) {
  constexpr std::size_t widest = 9999;
  const auto number = columns == nullptr ? std::nullopt : parse_digits(columns, 10);
  return number && number->magnitude >= 1 && number->magnitude <= widest ? number->magnitude
                                                                         : window;
}

}  // namespace velmora_can_bridge
