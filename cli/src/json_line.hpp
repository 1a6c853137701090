// Machine-readable output: one JSON object a line.
#pragma once

#include <nlohmann/json.hpp>

#include "ground/json_text.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

inline void print_json_line(const CommandLineHost& host, const nlohmann::ordered_json& line) {
  host.out << json_text(line) << '\n';
}

}  // namespace velmora_can_bridge
