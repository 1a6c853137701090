#include "own_refusal.hpp"

#include "pattern_bus.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

bool is_own_refusal(const CalledOperation& call, const OperationResult& failure) {
  PatternBus bus(0);
  CanOpenNodeController controller(call.node.node_id, bus, call.node.board);
  return controller.execute_configured_operation(call.config, call.device, call.payload).message ==
         failure.message;
}

}  // namespace velmora_can_bridge
