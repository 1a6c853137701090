/// What a bridge tells its observers of.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <variant>

#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// More events came than `Bridge::event_limit` before somebody polled: so many are lost.
struct EventsLost {
  std::size_t count = 0;
};

/// Something that has happened: to a node or the bus as its watch saw it, to a transfer of any
/// thread, or to the events themselves.
using BridgeEvent = std::variant<NodeEvent, BusError, EventsLost>;

/// For people, on one line: "node 0x10 has started", "node 0x10, object 0x2000/1: abort ...".
std::string bridge_event_text(const BridgeEvent& event);

/// Runs in `Bridge::poll`, on its thread, with no lock held: it may call anything of the bridge,
/// `run` and `poll` included.
using BridgeObserver = std::function<void(const BridgeEvent& event)>;

}  // namespace velmora_can_bridge
