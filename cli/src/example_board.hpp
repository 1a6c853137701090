// The board of the tour.
#pragma once

#include <string_view>

namespace velmora_can_bridge {

/// The text of examples/robot_board.yaml as it was when the program was built.
std::string_view example_board();

}  // namespace velmora_can_bridge
