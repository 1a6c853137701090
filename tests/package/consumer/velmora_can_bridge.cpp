#include <cstdio>

#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/version.hpp"

struct SilentBus : velmora_can_bridge::CanOpenBackend {
  using Bytes = std::vector<std::uint8_t>;
  bool sdo_read(std::uint8_t, std::uint16_t, std::uint8_t, Bytes&) override { return false; }
  bool sdo_write(std::uint8_t, std::uint16_t, std::uint8_t, const Bytes&) override { return false; }
  bool send_rpdo(std::uint8_t, std::uint8_t, const std::array<std::uint8_t, 8>&,
                 std::uint8_t) override {
    return false;
  }
};

int main() {
  const std::uint8_t node_id = 1;
  SilentBus bus;
  const velmora_can_bridge::BoardConfig board;
  velmora_can_bridge::CanOpenNodeController controller(node_id, bus, board);
  velmora_can_bridge::OperationConfig op;
  op.kind = "sdo_read";
  const auto result = controller.execute_configured_operation(op, "", {});
  std::printf("%s: %s\n", velmora_can_bridge::version_text, result.message.c_str());
}
