// How node ids are written for people.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ground/number_text.hpp"
#include "ground/parse_number.hpp"

namespace velmora_can_bridge {

/// "node 0x10".
inline std::string node_text(std::uint8_t node_id) { return "node " + hex<2>(node_id); }

/// Of an id that no node can have.
inline std::string no_node_id_text(std::uint8_t node_id) {
  return "node id " + std::to_string(node_id) + " is not one of 1 to 127";
}

/// Whether the text is the node's id, "16" or "0x10". Like numbers elsewhere it does not begin with
/// 0: some read that as octal.
inline bool names_node(std::string_view text, std::uint8_t node_id) {
  const std::optional<TypedNumber> number = looks_octal(text) ? std::nullopt : parse_number(text);
  return number && !number->is_negative && number->magnitude == node_id;
}

}  // namespace velmora_can_bridge
