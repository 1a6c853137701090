// Numbers among the arguments.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// The number that `text` writes, decimal or hexadecimal after "0x". No value when it is none or
/// out of range; the diagnostic, which calls it `name`, is printed then.
std::optional<std::uint32_t> read_number(const CommandLineHost& host, const std::string& name,
                                         const std::string& text, std::uint32_t minimum,
                                         std::uint32_t maximum);

}  // namespace velmora_can_bridge
