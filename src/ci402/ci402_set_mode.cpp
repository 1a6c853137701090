#include "ci402/drive_steps.hpp"
#include "dispatch/results.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_ci402_set_mode(
    const OperationConfig& /*op*/, const std::string& device,
    const std::vector<std::uint8_t>& payload) {
  const DeviceOdEntry* const drive = find_device_od(device);
  if (drive == nullptr) {
    return failure(device_not_found(device));
  }
  if (payload.empty()) {
    return failure("payload empty for ci402_set_mode");
  }
  const std::uint8_t mode = payload.front();
  const std::string done = "Mode set to " + std::to_string(mode);
  return run_drive_steps(device,
                         {DriveStep::mode(*drive, mode, "SDO write modes_of_operation failed",
                                          DriveStep::Then::record_mode_then_mirror)},
                         done.c_str());
}

}  // namespace velmora_can_bridge
