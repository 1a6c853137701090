#include <cstdio>

#include "velmora_can_bridge/values/payload_layout.hpp"
#include "velmora_can_bridge/values/payload_words.hpp"

int main() {
  velmora_can_bridge::NodeConfig node;
  velmora_can_bridge::OperationConfig set_target;
  set_target.kind = "ci402_set_target";
  const velmora_can_bridge::PayloadUse use{node, "", set_target};
  const auto payload = velmora_can_bridge::payload_from_words(use, {"300"});
  const auto refusal =
      velmora_can_bridge::payload_refusal(*velmora_can_bridge::payload_layout(use), *payload);
  std::printf("%02X %02X: %s\n", payload->at(0), payload->at(1),
              refusal ? refusal->c_str() : "nothing is wrong");
}
