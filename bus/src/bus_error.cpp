#include "velmora_can_bridge/bus/bus_error.hpp"

#include "ground/number_text.hpp"

namespace velmora_can_bridge {

std::string bus_error_text(const BusError& error) {
  std::string where = error.node_id == 0 ? "" : "node " + hex<2>(error.node_id) + ": ";
  if (error.index != 0) {
    where = "node " + hex<2>(error.node_id) + ", object " +
            object_text(error.index, error.sub_index) + ": ";
  }
  return where + error.text;
}

}  // namespace velmora_can_bridge
