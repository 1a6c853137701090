#include "ground/drive_objects.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

std::uint8_t CanOpenNodeController::motor_mode(const std::string& device) const {
  const std::lock_guard<std::mutex> lock(motor_modes_mutex_);
  const auto mode = motor_modes_.find(device);
  return mode == motor_modes_.end() ? static_cast<std::uint8_t>(DriveMode::none) : mode->second;
}

void CanOpenNodeController::set_motor_mode(const std::string& device, std::uint8_t mode) {
  const std::lock_guard<std::mutex> lock(motor_modes_mutex_);
  motor_modes_[device] = mode;
}

}  // namespace velmora_can_bridge
