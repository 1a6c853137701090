// The drives and claws of a node, between its objects and what moves behind them.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "claw.hpp"
#include "device_objects.hpp"
#include "drive.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

/// A drive that has found a fault, or has left it.
struct FaultChange {
  /// Of the drive's device.
  std::uint16_t base_index = 0;
  bool has_fault = false;
  /// Of the fault; `emergency_error_reset` where it is left.
  std::uint16_t error_code = 0;
};

/// One drive, with a claw behind it or without, and the objects that are its own.
///
/// An object that was replaced by one of another size is its own no more: it reads as 0 and is not
/// written.
class DriveDevice {
 public:
  explicit DriveDevice(const DeviceOdEntry& device);

  /// Makes the object of the row one of its own.
  void claim(const DeviceObjectRow& row);

  /// Why the drive does not take `value` for one of its own objects; no value when it does.
  std::optional<SdoAbort> refusal(DeviceObject object,
                                  const std::vector<std::uint8_t>& value) const;

  /// Acts on a write of one of its own objects, which holds the new value already.
  void written(DeviceObject object, ObjectDictionary& objects);

  /// Lets `elapsed` pass, in steps of a millisecond.
  void tick(std::chrono::milliseconds elapsed, ObjectDictionary& objects);

  void inject_fault(std::uint16_t error_code, ObjectDictionary& objects);

  /// Stops as the command Quick stop does, if operation is enabled.
  void quick_stop(ObjectDictionary& objects);

  /// Starts anew; stores nothing.
  void reset();

  /// No value when there is no fault more or less than at the last call.
  std::optional<FaultChange> take_fault_change();

  bool has_fault() const { return drive_.has_fault(); }

  /// Stores what the drive and the claw show into their objects.
  void publish(ObjectDictionary& objects) const;

 private:
  void follow_drive(ObjectDictionary& objects);
  void act_on(DriveObject object, std::uint64_t value);
  void act_on(ClawObject object, std::uint64_t value);
  DriveInputs read_inputs(const ObjectDictionary& objects) const;
  std::uint64_t read(DeviceObject object, const ObjectDictionary& objects) const;
  void show(DeviceObject object, std::int64_t value, ObjectDictionary& objects) const;
  void publish_claw(ObjectDictionary& objects) const;

  std::uint16_t base_index_;
  bool had_fault_ = false;
  Drive drive_;
  std::optional<Claw> claw_;
  std::map<DeviceObject, DeviceObjectRow> own_objects_;
};

/// All drives of a node. Not thread-safe; `SimulatedNode` locks around it.
class NodeDrives {
 public:
  /// What a longer tick counts as: it bounds the time that a tick takes.
  static constexpr std::chrono::milliseconds longest_tick = std::chrono::hours(1);

  /// The drives of `board`, which is read only here. Objects that several devices claim belong to
  /// the first by name, communication objects to none.
  explicit NodeDrives(const BoardConfig& board);

  NodeDrives(const NodeDrives&) = delete;
  NodeDrives(NodeDrives&&) = delete;
  NodeDrives& operator=(const NodeDrives&) = delete;
  NodeDrives& operator=(NodeDrives&&) = delete;
  ~NodeDrives() = default;

  /// Why the drive that owns the object does not take the value; no value when it does, and when
  /// the object is no drive's.
  std::optional<SdoAbort> refusal(ObjectAddress at, const std::vector<std::uint8_t>& value) const;

  /// To be called after every write of an object from the bus.
  void written(ObjectAddress at, ObjectDictionary& objects);

  /// Lets `elapsed` pass for every drive; nothing happens when it is not above 0.
  void tick(std::chrono::milliseconds elapsed, ObjectDictionary& objects);

  /// The names of the devices, in order.
  std::vector<std::string> names() const;

  /// False when no drive has that name.
  bool inject_fault(const std::string& device, std::uint16_t error_code, ObjectDictionary& objects);

  /// Stops all enabled drives as the command Quick stop does.
  void quick_stop(ObjectDictionary& objects);

  /// Starts all drives anew; stores nothing.
  void reset();

  /// What has changed since the last call, by the names of the devices.
  std::vector<FaultChange> take_fault_changes();

  /// Whether any drive has a fault.
  bool has_fault() const;

  /// Stores what all drives show.
  void publish(ObjectDictionary& objects) const;

 private:
  struct Owner {
    DriveDevice* device;
    DeviceObject object;
  };

  std::map<std::string, DriveDevice> devices_;
  /// Points into `devices_`.
  std::map<std::pair<std::uint16_t, std::uint8_t>, Owner> owners_;
};

}  // namespace velmora_can_bridge
