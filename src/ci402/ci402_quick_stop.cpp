#include "ci402/drive_steps.hpp"
#include "dispatch/results.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {

OperationResult CanOpenNodeController::exec_ci402_quick_stop(
    const OperationConfig& /*op*/, const std::string& device,
    const std::vector<std::uint8_t>& /*payload*/) {
  const DeviceOdEntry* const drive = find_device_od(device);
  if (drive == nullptr) {
    return failure(device_not_found(device));
  }
  const UrgentScope goes_first;
  // Not mirrored, unlike enable and disable: the images keep the controlword mirrored last.
  return run_drive_steps(device,
                         {DriveStep::controlword(*drive, Ci402Controlword::quick_stop,
                                                 "SDO write controlword (quick_stop) failed")},
                         "Quick stop sent");
}

}  // namespace velmora_can_bridge
