#include <cstdio>

#include "velmora_can_bridge/traffic/traffic_decoder.hpp"
#include "velmora_can_bridge/traffic/traffic_text.hpp"

int main() {
  const velmora_can_bridge::BoardFile board;
  velmora_can_bridge::TrafficDecoder decoder(board);
  const auto heartbeat = decoder.decode({0x701, 1, {0x05}});
  std::puts(velmora_can_bridge::traffic_json({}, heartbeat).c_str());
}
