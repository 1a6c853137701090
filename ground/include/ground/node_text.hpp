// How node ids are written for people.
#pragma once

#include <cstdint>
#include <string>

#include "ground/number_text.hpp"

namespace velmora_can_bridge {

/// "node 0x10".
inline std::string node_text(std::uint8_t node_id) { return "node " + hex<2>(node_id); }

/// Of an id that no node can have.
inline std::string no_node_id_text(std::uint8_t node_id) {
  return "node id " + std::to_string(node_id) + " is not one of 1 to 127";
}

}  // namespace velmora_can_bridge
