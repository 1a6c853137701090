#include "velmora_can_bridge/can_open_node_controller.hpp"

#include <string_view>

#include "dispatch/results.hpp"
#include "ground/kind_tables.hpp"

namespace velmora_can_bridge {

CanOpenNodeController::CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                                             const BoardConfig& board)
    : node_id_(&node_id), backend_(&backend), board_(&board) {}

CanOpenNodeController::CanOpenNodeController(CanOpenNodeController& other, CanOpenBackend& backend)
    : node_id_(other.node_id_), backend_(&backend), board_(other.board_) {
  {
    const TurnQueue::Turn turn = other.lock_images();
    rpdo_shadow_ = other.rpdo_shadow_;
    rpdo_shadow_len_ = other.rpdo_shadow_len_;
    rpdo_shadow_synced_ = other.rpdo_shadow_synced_;
    rpdo_shadow_mirrored_ = other.rpdo_shadow_mirrored_;
    latest_mirrors_ = other.latest_mirrors_;
    mirrors_begun_ = other.mirrors_begun_.load();
  }
  {
    const std::lock_guard<std::mutex> lock(other.motor_modes_mutex_);
    motor_modes_ = other.motor_modes_;
  }
}

OperationResult CanOpenNodeController::execute_configured_operation(
    const OperationConfig& op, const std::string& device,
    const std::vector<std::uint8_t>& payload) {
  using Self = CanOpenNodeController;
  struct Row {
    std::string_view kind;
    Handler Self::*handler;
  };
  // Every operation of the system: one row a kind. Tried in this order, so what a control loop
  // sends in every cycle comes first.
  static constexpr Row rows[] = {
      {"pdo_write", &Self::exec_pdo_write_patch},
      {"pdo_patch", &Self::exec_pdo_write_patch},
      {"sdo_write", &Self::exec_sdo_write},
      {"sdo_read", &Self::exec_sdo_read},
      {"od_io_read", &Self::exec_od_io_read},
      {"od_io_write", &Self::exec_od_io_write},
      {"led_write", &Self::exec_led_write},
      {"read_multi", &Self::exec_read_multi},
      {"auto_write", &Self::exec_auto_write},
      {"bit_patch", &Self::exec_bit_patch},
      {"pdo_bit_patch", &Self::exec_pdo_bit_patch},
      {"ci402_enable", &Self::exec_ci402_enable},
      {"ci402_disable", &Self::exec_ci402_disable},
      {"ci402_quick_stop", &Self::exec_ci402_quick_stop},
      {"ci402_set_mode", &Self::exec_ci402_set_mode},
      {"ci402_set_target", &Self::exec_ci402_set_target},
      {"ci402_ramp", &Self::exec_ci402_ramp},
      {"claw_action", &Self::exec_claw_action},
      {"pump_duty", &Self::exec_pump_duty},
  };
  static_assert(has_rows_for(rows, operation_kinds), "a kind of operation_kinds has no handler");
  static_assert(has_rows_for(operation_kinds, rows), "a handler's kind is not in operation_kinds");

  for (const Row& row : rows) {
    if (op.kind == row.kind) {
      return (this->*row.handler)(op, device, payload);
    }
  }
  return failure("Unknown operation kind: " + op.kind);
}

const DeviceOdEntry* CanOpenNodeController::find_device_od(const std::string& device) const {
  const auto found = board_->device_od_map.find(device);
  return found == board_->device_od_map.end() ? nullptr : &found->second;
}

}  // namespace velmora_can_bridge
