// Numbers as people type them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velmora_can_bridge {

/// The number that the whole of `text` writes in `base`, an optional "-" before it; one out of
/// range becomes the nearest that is in it. No value for anything else.
std::optional<std::int64_t> parse_digits(std::string_view text, int base);

/// As `parse_digits`, decimal, or hexadecimal after "0x".
std::optional<std::int64_t> parse_number(std::string_view text);

}  // namespace velmora_can_bridge
