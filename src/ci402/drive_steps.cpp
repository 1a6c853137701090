#include "ci402/drive_steps.hpp"

#include "dispatch/results.hpp"

namespace velmora_can_bridge {

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
