#include "ci402/drive_steps.hpp"
#include "dispatch/results.hpp"
#include "ground/drive_objects.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t sub_index_of(ClawObject object) { return static_cast<std::uint8_t>(object); }

}  // namespace

OperationResult CanOpenNodeController::exec_claw_action(
    const OperationConfig& op, const std::string& device,
    const std::vector<std::uint8_t>& /*payload*/) {
  const DeviceOdEntry* const claw = find_device_od(device);
  if (claw == nullptr) {
    return failure(device_not_found(device));
  }
  if (claw->homing_record == 0) {
    return failure("claw_action requires homing_record in device_od_map");
  }
  if (op.action == "extend") {
    return extend_claw(device, *claw);
  }
  if (op.action == "home") {
    return home_claw(device, *claw);
  }
  if (op.action == "query") {
    return query_claw(*claw);
  }
  return failure("Unknown claw_action: " + op.action);
}

OperationResult CanOpenNodeController::extend_claw(const std::string& device,
                                                   const DeviceOdEntry& claw) {
  using Then = DriveStep::Then;
  return run_drive_steps(
      device,
      {DriveStep::mode(claw, static_cast<std::uint8_t>(DriveMode::profile_velocity),
                       "SDO write modes_of_operation (velocity) failed",
                       Then::record_mode_then_mirror),
       DriveStep::controlword(claw, Ci402Controlword::shutdown,
                              "SDO write controlword (shutdown) failed"),
       DriveStep::controlword(claw, Ci402Controlword::enable_operation,
                              "SDO write controlword (enable) failed", Then::mirror),
       DriveStep{claw.homing_record,
                 sub_index_of(ClawObject::extend_command),
                 {extend_now},
                 "SDO write claw extend command failed"}},
      "Claw extend command sent");
}

OperationResult CanOpenNodeController::home_claw(const std::string& device,
                                                 const DeviceOdEntry& claw) {
  using Then = DriveStep::Then;
  // Two controlwords, so that bit 4 rises: homing starts on its edge.
  return run_drive_steps(
      device,
      {DriveStep::mode(claw, static_cast<std::uint8_t>(DriveMode::homing),
                       "SDO write homing mode failed", Then::record_mode_then_mirror),
       DriveStep::controlword(claw, Ci402Controlword::enable_operation,
                              "SDO write controlword (homing clear) failed"),
       DriveStep::controlword(claw, Ci402Controlword::start_homing,
                              "SDO write controlword (start homing) failed", Then::mirror)},
      "Claw home command sent");
}

OperationResult CanOpenNodeController::query_claw(const DeviceOdEntry& claw) {
  std::vector<std::uint8_t> action_state;
  if (!backend_->sdo_read(*node_id_, claw.homing_record, sub_index_of(ClawObject::action_state),
                          action_state) ||
      action_state.empty()) {
    return failure("SDO read action_state failed");
  }
  std::vector<std::uint8_t> position_state;
  if (!backend_->sdo_read(*node_id_, claw.homing_record, sub_index_of(ClawObject::position_state),
                          position_state) ||
      position_state.empty()) {
    return failure("SDO read position_state failed");
  }
  return success("OK", {action_state.front(), position_state.front()});
}

}  // namespace velmora_can_bridge
