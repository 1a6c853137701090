#include "velmora_can_bridge/bridge/bridge_event.hpp"

#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

/// One overload for each kind of event.
struct EventText {
  std::string operator()(const NodeEvent& event) const { return event.text; }
  std::string operator()(const BusError& error) const { return bus_error_text(error); }
  std::string operator()(const EventsLost& lost) const {
    return "nobody polled: " + counted(lost.count, "event") +
           (lost.count == 1 ? " is lost" : " are lost");
  }
};

}  // namespace

std::string bridge_event_text(const BridgeEvent& event) { return std::visit(EventText{}, event); }

}  // namespace velmora_can_bridge
