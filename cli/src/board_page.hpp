// The manual page of the format of board files.
#pragma once

#include <string>
#include <string_view>

#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// The page in roff, of the document of the format. Or what of the document no page can hold.
Expected<std::string> board_man_page(std::string_view document);

}  // namespace velmora_can_bridge
