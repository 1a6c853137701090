// Numbers among the arguments.
#pragma once

#include <cstdint>
#include <string>

#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// The number that `text` writes, decimal or hexadecimal after "0x", from `minimum` to `maximum`;
/// else a diagnostic, which calls it `name`.
Expected<std::uint32_t> number_argument(const std::string& name, const std::string& text,
                                        std::uint32_t minimum, std::uint32_t maximum);

}  // namespace velmora_can_bridge
