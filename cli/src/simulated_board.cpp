#include "simulated_board.hpp"

#include <algorithm>
#include <utility>

#include "dispatch/hex_u16.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"

namespace velmora_can_bridge {
namespace {

std::string abort_text(std::optional<SdoAbort> abort) {
  if (!abort) {
    return "refused";
  }
  return "abort " + hex_u32(static_cast<std::uint32_t>(*abort)) + ", " +
         std::string(sdo_abort_text(*abort));
}

}  // namespace

SimulatedBoardNode::SimulatedBoardNode(const NodeConfig& config, TracingBackend::Sink trace)
    : config_(&config),
      node_(config.node_id, config.board),
      backend_(
          node_,
          [this, trace = std::move(trace)](const Transfer& transfer) {
            refusal_ = transfer.refusal;
            trace(transfer);
          },
          [this] { return abort_text(node_.last_sdo_abort()); }),
      controller_(config.node_id, backend_, config.board) {}

OperationResult SimulatedBoardNode::run(const OperationConfig& op, const std::string& device,
                                        const std::vector<std::uint8_t>& payload) {
  refusal_.reset();
  return controller_.execute_configured_operation(op, device, payload);
}

SimulatedBoard::SimulatedBoard(const BoardFile& file, const TracingBackend::Sink& trace) {
  for (const NodeConfig& config : file.nodes) {
    nodes_.push_back(std::make_unique<SimulatedBoardNode>(config, trace));
  }
}

void SimulatedBoard::tick(std::chrono::milliseconds elapsed) {
  for (const auto& node : nodes_) {
    node->tick(elapsed);
  }
}

SimulatedBoardNode* SimulatedBoard::find_node(const std::string& device) {
  const auto found = std::find_if(nodes_.begin(), nodes_.end(), [&](const auto& node) {
    return node->config().board.device_od_map.count(device) != 0;
  });
  return found == nodes_.end() ? nullptr : found->get();
}

}  // namespace velmora_can_bridge
