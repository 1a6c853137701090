// Names that people cut short.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// The position of the name that is meant: `wanted` itself, or the only one of which it is the
/// beginning or the last words (those behind an "_"). Else why there is none, `noun` being what
/// such a name stands for.
Expected<std::size_t> match_name(const std::vector<std::string_view>& names,
                                 std::string_view wanted, std::string_view noun);

}  // namespace velmora_can_bridge
