/// The operations of one CANopen node.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/operation.hpp"
#include "velmora_can_bridge/turn_queue.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Runs configured operations on one node, over a bus that it is given.
///
/// Keeps an image of every RPDO, so that a write of one mapped field sends the other fields of the
/// frame unchanged. docs/rpdo-shadow.md has all rules for it; a caller must know these:
///
/// - It is loaded from the node by SDO before the first write of the RPDO. A refused read fails the
///   operation ("RPDO shadow sync failed for ") with nothing changed; the next one tries again.
/// - With `refresh_shadow` it is loaded before that write in any case. The load never fails then,
///   and an object that the node refuses keeps its bytes.
/// - A failed send leaves the new bytes in the image; the next send carries them.
/// - Drive and claw operations repeat in every image what they have written to a mapped object, as
///   docs/operations.md says with the kind, and "pdo_bit_patch" changes its image also when it
///   delivers by SDO. Other SDO writes, and changes by the node itself, leave the images alone.
/// - A node that has restarted needs `forget_rpdo_shadows`.
///
/// Every public member may be called from any thread, from several at once. Operations that write
/// through an RPDO run one after another, in the order in which they came, those inside an
/// `UrgentScope` before all that wait. Operations by SDO do not wait for them, but for two kinds of
/// them: "pdo_bit_patch" works on the image, and drive and claw operations wait where they repeat
/// in the images what they have written.
class CanOpenNodeController {
 public:
  /// Refers to all three arguments, copies none: they must outlive the controller.
  ///
  /// `node_id` is the CANopen node id, 1 to 127, read afresh at every bus call. Neither it nor
  /// `board` may change while an operation runs. Temporaries do not compile.
  CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                        const BoardConfig& board);
  CanOpenNodeController(const std::uint8_t&& node_id, CanOpenBackend& backend,
                        const BoardConfig& board) = delete;
  CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                        const BoardConfig&& board) = delete;
  CanOpenNodeController(const std::uint8_t&& node_id, CanOpenBackend& backend,
                        const BoardConfig&& board) = delete;

  /// A controller of the same node that begins with the images of `other`, with all that is kept
  /// beside them, and with its modes of operation, and works on `backend`: to try what an operation
  /// would do. What either does from now on does not concern the other.
  ///
  /// Waits its turn for the images of `other` as an operation does, and locks them for the time of
  /// a copy. Refers to what `other` refers to, not to `other` itself. Throws for lack of memory.
  CanOpenNodeController(CanOpenNodeController& other, CanOpenBackend& backend);

  CanOpenNodeController(const CanOpenNodeController&) = delete;
  CanOpenNodeController(CanOpenNodeController&&) = delete;
  CanOpenNodeController& operator=(const CanOpenNodeController&) = delete;
  CanOpenNodeController& operator=(CanOpenNodeController&&) = delete;
  ~CanOpenNodeController() = default;

  /// Runs the operation that `op.kind` names and returns its result.
  ///
  /// `device` is the name that kinds addressing a device look up in the board's `device_od_map`;
  /// the others ignore it. What `payload` holds depends on the kind, as docs/operations.md lists
  /// kind by kind with every message. Blocks for as long as the bus transfers take.
  ///
  /// Every failure is a result with `ok` false, empty `data` and the reason in `message`; the first
  /// refused check or transfer ends the operation, nothing done before it is undone and nothing is
  /// retried. An unknown kind answers "Unknown operation kind: " and the kind. Only exceptions of
  /// the standard library (memory, a failed lock) and of the backend pass through; the controller
  /// stays usable after one.
  OperationResult execute_configured_operation(const OperationConfig& op, const std::string& device,
                                               const std::vector<std::uint8_t>& payload);

  /// The board's entry of the device `device`, case-sensitive; null when there is none.
  ///
  /// The pointer stays valid while the board configuration lives. Does not allocate.
  const DeviceOdEntry* find_device_od(const std::string& device) const;

  /// The number of the first RPDO of the board, in list order, that maps `index` at any sub-index
  /// and has a number other than 0; 0 when there is none. Does not allocate.
  std::uint8_t find_rpdo_for_od(std::uint16_t index) const;

  /// The CiA 402 mode of operation that was last set for the device through this controller: 1
  /// profile position, 3 profile velocity, 4 profile torque, 6 homing, any other byte as it was
  /// set; 0, no mode assigned, when none was.
  std::uint8_t motor_mode(const std::string& device) const;

  /// Makes the next operation on each RPDO load its image from the node afresh, as if it were the
  /// first: nothing of the old image is left.
  ///
  /// To be called when the node may have rebooted or was reset: its objects then hold their start
  /// values, and an image from before would bring the old ones back with the next partial write.
  ///
  /// Returns at once, whoever works on the images; an operation that is under way ends as it would.
  /// Takes no lock, so any observer and any handler may call it, and a backend in the midst of a
  /// transfer: until the operation of that transfer has ended nobody else sends an image.
  void forget_rpdo_shadows() noexcept;

 private:
  struct RpdoUpdate;
  struct DriveStep;

  /// One for each kind; the table in `execute_configured_operation` says which.
  using Handler = OperationResult(const OperationConfig& op, const std::string& device,
                                  const std::vector<std::uint8_t>& payload);

  Handler exec_sdo_write;
  Handler exec_sdo_read;
  Handler exec_read_multi;
  Handler exec_od_io_read;
  Handler exec_od_io_write;
  Handler exec_led_write;
  Handler exec_auto_write;
  Handler exec_pdo_write_patch;
  Handler exec_bit_patch;
  Handler exec_pdo_bit_patch;
  Handler exec_ci402_enable;
  Handler exec_ci402_disable;
  Handler exec_ci402_quick_stop;
  Handler exec_ci402_set_mode;
  Handler exec_ci402_set_target;
  Handler exec_ci402_ramp;
  Handler exec_claw_action;
  Handler exec_pump_duty;

  /// Uploads one object: its bytes and "OK", or "SDO read failed at " and the object.
  OperationResult read_object(std::uint16_t index, std::uint8_t sub_index);

  /// Downloads one object: "OK", or "SDO write failed at " and the object.
  OperationResult write_object(std::uint16_t index, std::uint8_t sub_index,
                               const std::vector<std::uint8_t>& data);

  /// Brings the steps of a sequence to the node, in order: `done`, or the message of the first step
  /// that the node refused. Takes no lock of its own.
  OperationResult run_drive_steps(const std::string& device, std::initializer_list<DriveStep> steps,
                                  const char* done);

  /// Records the mode of operation that a drive has accepted.
  void set_motor_mode(const std::string& device, std::uint8_t mode);

  OperationResult extend_claw(const std::string& device, const DeviceOdEntry& claw);
  OperationResult home_claw(const std::string& device, const DeviceOdEntry& claw);
  OperationResult query_claw(const DeviceOdEntry& claw);

  OperationResult set_pump_duty_by_sdo(const OperationConfig& op, std::uint8_t channel,
                                       const std::vector<std::uint8_t>& duty);
  OperationResult set_pump_duty_by_rpdo(const OperationConfig& op, const std::string& device,
                                        std::uint8_t channel,
                                        const std::vector<std::uint8_t>& duty);

  /// Changes the bits of a mapped object that `mask` selects by reading and writing it by SDO.
  OperationResult patch_object(const PdoMapping& mapping, std::uint8_t mask, std::uint8_t value);

  /// `op.pdo_number`, or when that is 0 the number of the RPDO that maps `op.index`, else 0.
  std::uint8_t resolve_rpdo(const OperationConfig& op) const;

  /// One write through the image of an RPDO: lock, prepare, `modify`, `deliver`, unlock.
  ///
  /// `modify` changes the image and returns an empty text, or the message of the failure that ends
  /// the operation; `deliver` brings the image to the node and returns the operation's result. Both
  /// run with `shadow_mutex_` held, which is released on every way out.
  template <typename Modify, typename Deliver>
  OperationResult update_rpdo(const RpdoUpdate& update, const Modify& modify,
                              const Deliver& deliver);

  /// Waits for its turn on the images, locks them, and forgets what `forget_rpdo_shadows` has asked
  /// for meanwhile.
  TurnQueue::Turn lock_images();

  // The following run with `shadow_mutex_` held and do not take it.

  /// Makes the image of the RPDO usable: loads it unless it is synced already. False when the node
  /// refused a read; the next call tries again. True, with nothing done, for an RPDO number that
  /// the board does not have.
  bool ensure_rpdo_shadow_synced(std::uint8_t rpdo, const std::string& device);

  /// Loads image and length of the RPDO from the node, one SDO read per mapped object.
  ///
  /// With `all_or_nothing` the first refused read ends the load: false, and nothing changes;
  /// mirrored bytes stay. Without, every object is tried, a field that the node refused keeps its
  /// bytes, and the answer is true. An exception leaves image and length as they were.
  bool sync_rpdo_shadow_from_device(std::uint8_t rpdo, const std::string& device,
                                    bool all_or_nothing);

  /// Stores `bytes` at the place of `mapping`, which is an element of the board's own lists.
  /// Surplus bytes are dropped; with fewer the rest of the field stays as it is.
  void write_to_shadow(std::uint8_t rpdo, const PdoMapping& mapping,
                       const std::vector<std::uint8_t>& bytes);

  /// Sends the image of the RPDO; false when the frame was not handed to the bus.
  bool send_rpdo_shadow(std::uint8_t rpdo);

  /// As `send_rpdo_shadow`, answering `sent` or "RPDO send failed".
  OperationResult deliver_rpdo_shadow(std::uint8_t rpdo, std::string_view sent = "OK");

  // The following runs without `shadow_mutex_` and takes it.

  /// Repeats in the images what an SDO write has brought to `index`, sub-index 0: in every RPDO
  /// that maps it. Synced flags and lengths do not change. Nothing is repeated when a later call
  /// for the object, an urgent one, was faster.
  void write_od_to_shadow(std::uint16_t index, const std::vector<std::uint8_t>& bytes);

  const std::uint8_t* node_id_;
  CanOpenBackend* backend_;
  const BoardConfig* board_;

  // The image of each RPDO by its number: the 8 data bytes last assembled for it, the number of
  // them that a frame carries, and whether they were loaded from the node.
  std::unordered_map<std::uint8_t, std::array<std::uint8_t, 8>> rpdo_shadow_;
  std::unordered_map<std::uint8_t, std::uint8_t> rpdo_shadow_len_;
  std::unordered_map<std::uint8_t, bool> rpdo_shadow_synced_;
  // Which bytes of each image were mirrored since it was last forgotten: bit n stands for byte n.
  std::unordered_map<std::uint8_t, std::uint8_t> rpdo_shadow_mirrored_;
  // Mirrors begun so far, and the latest one of each object that has reached the images.
  std::atomic<std::uint64_t> mirrors_begun_{0};
  std::unordered_map<std::uint16_t, std::uint64_t> latest_mirrors_;
  // Calls of forget_rpdo_shadows so far, and how many of them the images have followed.
  std::atomic<std::uint32_t> forgets_asked_{0};
  std::uint32_t forgets_followed_ = 0;
  // The mode of operation last set, by device name.
  std::unordered_map<std::string, std::uint8_t> motor_modes_;
  // Guards the shadow maps, latest_mirrors_ and forgets_followed_. Held across the load, the change
  // and the delivery of an image, so that two writes of one RPDO cannot interleave and what is sent
  // is what was just assembled. SDO transfers that belong to no RPDO write never wait for it,
  // unless they follow a mirror.
  std::mutex shadow_mutex_;
  // Gives the turns on shadow_mutex_, which is locked in lock_images alone.
  TurnQueue image_turns_{shadow_mutex_};
  // Guards motor_modes_. Held for one access to the map, never across a bus call and never together
  // with shadow_mutex_.
  mutable std::mutex motor_modes_mutex_;
};

}  // namespace velmora_can_bridge
