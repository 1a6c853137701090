#include "number_argument.hpp"

#include "number.hpp"
#include "report.hpp"

namespace velmora_can_bridge {

std::optional<std::uint32_t> read_number(const CommandLineHost& host, const std::string& name,
                                         const std::string& text, std::uint32_t minimum,
                                         std::uint32_t maximum) {
  const std::optional<std::int64_t> number = parse_number(text);
  if (!number || *number < minimum || *number > maximum) {
    print_diagnostic(host, name + " \"" + text + "\" is not a number from " +
                               std::to_string(minimum) + " to " + std::to_string(maximum) +
                               ", decimal or 0x hexadecimal");
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*number);
}

}  // namespace velmora_can_bridge
