// Machine-readable output: one JSON text a line.
#pragma once

#include <string>

#include "ground/visible_text.hpp"

namespace velmora_can_bridge {

/// `json` of the library nlohmann-json on one line. Bytes that are no UTF-8 (names come from files
/// and arguments) are replaced, not refused; what a terminal would obey or hide is escaped.
template <typename Json>
std::string json_text(const Json& json) {
  return visible_json(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace velmora_can_bridge
