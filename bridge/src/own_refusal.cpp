#include "own_refusal.hpp"

#include <array>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

/// Takes everything, and reads as many bytes as a frame has.
class WillingBus : public CanOpenBackend {
 public:
  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                std::vector<std::uint8_t>& data) override {
    data.assign(8, 0);
    return true;
  }
  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const std::vector<std::uint8_t>& /*data*/) override {
    return true;
  }
  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/,
                 const std::array<std::uint8_t, 8>& /*data*/, std::uint8_t /*length*/) override {
    return true;
  }
};

}  // namespace

bool is_own_refusal(const CalledOperation& call, const OperationResult& failure) {
  WillingBus bus;
  CanOpenNodeController controller(call.node.node_id, bus, call.node.board);
  return controller.execute_configured_operation(call.config, call.device, call.payload).message ==
         failure.message;
}

}  // namespace velmora_can_bridge
