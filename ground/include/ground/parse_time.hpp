// Times as people type them.
#pragma once

#include <charconv>
#include <chrono>
#include <cmath>
#include <optional>
#include <string_view>
#include <system_error>

namespace velmora_can_bridge {

/// The longest that `parse_time` reads.
inline constexpr std::chrono::milliseconds longest_typed_time = std::chrono::hours(24);

/// "200ms", "0.5s", rounded to milliseconds; no value for anything else, nor for more than a day.
inline std::optional<std::chrono::milliseconds> parse_time(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [unit, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  const std::string_view unit_text(unit, static_cast<std::size_t>(end - unit));
  if (error != std::errc() || (unit_text != "ms" && unit_text != "s")) {
    return std::nullopt;
  }
  const double time = unit_text == "s" ? number * 1000 : number;
  if (!(time >= 0) || time > static_cast<double>(longest_typed_time.count())) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(std::llround(time));
}

}  // namespace velmora_can_bridge
