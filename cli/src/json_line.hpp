// Machine-readable output: one JSON object a line.
#pragma once

#include <nlohmann/json.hpp>

#include "printable.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// Bytes that are no UTF-8 (names come from files and arguments) are replaced, not refused; what a
/// terminal would obey or hide is escaped.
inline void print_json_line(const CommandLineHost& host, const nlohmann::ordered_json& line) {
  constexpr auto replace = nlohmann::ordered_json::error_handler_t::replace;
  host.out << printable_json(line.dump(-1, ' ', false, replace)) << '\n';
}

}  // namespace velmora_can_bridge
