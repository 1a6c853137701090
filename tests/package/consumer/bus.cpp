#include <cstdio>

#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

int main() {
  velmora_can_bridge::InProcessBus empty(velmora_can_bridge::BusTime::simulated);
  velmora_can_bridge::CanBusBackend backend(empty);
  std::vector<std::uint8_t> data;
  backend.sdo_read(1, 0x1000, 0, data);
  std::puts(backend.last_error(1)->text.c_str());
}
