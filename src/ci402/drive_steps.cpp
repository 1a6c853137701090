#include "ci402/drive_steps.hpp"

#include "dispatch/payload.hpp"
#include "dispatch/results.hpp"
#include "ground/drive_objects.hpp"

namespace velmora_can_bridge {

CanOpenNodeController::DriveStep CanOpenNodeController::DriveStep::controlword(
    const DeviceOdEntry& drive, Ci402Controlword word, const char* refusal, Then then) {
  return {drive_index(drive, DriveObject::controlword), 0,
          little_endian_bytes(static_cast<std::uint16_t>(word), 2), refusal, then};
}

CanOpenNodeController::DriveStep CanOpenNodeController::DriveStep::mode(const DeviceOdEntry& drive,
                                                                        std::uint8_t mode,
                                                                        const char* refusal,
                                                                        Then then) {
  return {drive_index(drive, DriveObject::modes_of_operation), 0, {mode}, refusal, then};
}

OperationResult CanOpenNodeController::run_drive_steps(const std::string& device,
                                                       std::initializer_list<DriveStep> steps,
                                                       const char* done) {
  for (const DriveStep& step : steps) {
    if (!backend_->sdo_write(*node_id_, step.index, step.sub_index, step.data)) {
      return failure(step.refusal);
    }
    if (step.then == DriveStep::Then::record_mode_then_mirror) {
      set_motor_mode(device, step.data.front());
    }
    if (step.then != DriveStep::Then::nothing) {
      write_od_to_shadow(step.index, step.data);
    }
  }
  return success(done);
}

}  // namespace velmora_can_bridge
