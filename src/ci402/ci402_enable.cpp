#include "ci402/drive_steps.hpp"
#include "dispatch/results.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_ci402_enable(
    const OperationConfig& /*op*/, const std::string& device,
    const std::vector<std::uint8_t>& /*payload*/) {
  const DeviceOdEntry* const drive = find_device_od(device);
  if (drive == nullptr) {
    return failure(device_not_found(device));
  }
  // The mode is re-asserted as recorded, and not mirrored: the images keep what was set last.
  return run_drive_steps(
      device,
      {DriveStep::mode(*drive, motor_mode(device), "SDO write modes_of_operation failed",
                       DriveStep::Then::nothing),
       DriveStep::controlword(*drive, Ci402Controlword::shutdown,
                              "SDO write controlword (shutdown) failed"),
       DriveStep::controlword(*drive, Ci402Controlword::enable_operation,
                              "SDO write controlword (enable) failed", DriveStep::Then::mirror)},
      "Motor enabled");
}

}  // namespace velmora_can_bridge
