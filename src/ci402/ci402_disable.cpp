#include "ci402/drive_steps.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_ci402_disable(
    const OperationConfig& /*op*/, const std::string& device,
    const std::vector<std::uint8_t>& /*payload*/) {
  const DeviceOdEntry* const drive = find_device_od(device);
  if (drive == nullptr) {
    return failure(device_not_found(device));
  }
  const UrgentScope goes_first;
  return run_drive_steps(
      device,
      {DriveStep::controlword(*drive, Ci402Controlword::shutdown,
                              "SDO write controlword (disable) failed", DriveStep::Then::mirror)},
      "Motor disabled");
}

}  // namespace velmora_can_bridge
