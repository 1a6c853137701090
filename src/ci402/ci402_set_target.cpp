#include "dispatch/hex_u16.hpp"
#include "dispatch/payload.hpp"
#include "dispatch/results.hpp"
#include "ground/drive_objects.hpp"
#include "shadow/rpdo_layout.hpp"
#include "shadow/update_rpdo.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

struct Target {
  DriveObject object;
  std::vector<std::uint8_t> bytes;
};

/// The object that the drive's mode of operation follows, and `value` in its width: positions and
/// velocities have 32 bits, torques 16. Every mode but position and torque follows the velocity.
Target choose_target(std::uint8_t mode, std::int16_t value) {
  const auto extended = static_cast<std::uint32_t>(std::int32_t{value});
  switch (static_cast<DriveMode>(mode)) {
    case DriveMode::profile_position:
      return {DriveObject::target_position, little_endian_bytes(extended, 4)};
    case DriveMode::profile_torque:
      return {DriveObject::target_torque, little_endian_bytes(extended, 2)};
    default:
      return {DriveObject::target_velocity, little_endian_bytes(extended, 4)};
  }
}

}  // namespace

OperationResult CanOpenNodeController::exec_ci402_set_target(
    const OperationConfig& op, const std::string& device,
    const std::vector<std::uint8_t>& payload) {
  const DeviceOdEntry* const drive = find_device_od(device);
  if (drive == nullptr) {
    return failure(device_not_found(device));
  }
  if (payload.size() < 2) {
    return failure("payload too short for set_target (need 2 bytes)");
  }
  const auto value = static_cast<std::int16_t>(u16_at(payload, 0));
  const Target target = choose_target(motor_mode(device), value);
  const std::uint16_t index = drive_index(*drive, target.object);
  const std::string object = hex_u16(index);
  const std::string outcome = object + " value=" + std::to_string(value);

  const std::uint8_t rpdo = find_rpdo_for_od(index);
  if (op.transport == sdo_transport || rpdo == 0) {
    // The images are left alone, unlike after a change of the power state.
    if (!backend_->sdo_write(*node_id_, index, 0, target.bytes)) {
      return failure("SDO write target " + object + " failed");
    }
    return success("Target set via SDO " + outcome);
  }
  return update_rpdo(
      {rpdo, device, device},
      [&] {
        const PdoMapping* const mapping = find_mapping_by_object(*board_, rpdo, index, 0);
        if (mapping == nullptr) {
          return "target " + object + " not found in RPDO mapping";
        }
        write_to_shadow(rpdo, *mapping, target.bytes);
        return std::string();
      },
      [&] {
        return send_rpdo_shadow(rpdo) ? success("Target set via RPDO " + outcome)
                                      : failure("RPDO send target " + object + " failed");
      });
}

}  // namespace velmora_can_bridge
