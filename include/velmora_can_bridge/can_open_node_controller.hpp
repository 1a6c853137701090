/// The operations of one CANopen node.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// Runs configured operations on one node, over a bus that it is given.
///
/// Keeps an image of every RPDO, so that a write of one mapped field sends the other fields of the
/// frame unchanged; docs/rpdo-shadow.md tells its life.
///
/// Every public member may be called from any thread, from several at once. Operations that write
/// through an RPDO run one after another; SDO operations wait for nobody.
class CanOpenNodeController {
 public:
  /// Refers to all three arguments, copies none: they must outlive the controller.
  ///
  /// `node_id` is the CANopen node id, 1 to 127, read afresh at every bus call. `board` must not
  /// change while operations run. Temporaries do not compile.
  CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                        const BoardConfig& board);
  CanOpenNodeController(const std::uint8_t&& node_id, CanOpenBackend& backend,
                        const BoardConfig& board) = delete;
  CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                        const BoardConfig&& board) = delete;
  CanOpenNodeController(const std::uint8_t&& node_id, CanOpenBackend& backend,
                        const BoardConfig&& board) = delete;

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

  /// Makes the next operation on each RPDO load its image from the node afresh.
  ///
  /// To be called when the node has rebooted or was reset: its objects then hold their start
  /// values, and an image from before would bring the old ones back with the next partial write.
  /// Waits for an RPDO write that is under way, its bus traffic included.
  void forget_rpdo_shadows();

 private:
  struct RpdoUpdate;

  OperationResult exec_sdo_write(const OperationConfig& op, const std::string& device,
                                 const std::vector<std::uint8_t>& payload);
  OperationResult exec_sdo_read(const OperationConfig& op, const std::string& device,
                                const std::vector<std::uint8_t>& payload);
  OperationResult exec_read_multi(const OperationConfig& op, const std::string& device,
                                  const std::vector<std::uint8_t>& payload);
  OperationResult exec_od_io_read(const OperationConfig& op, const std::string& device,
                                  const std::vector<std::uint8_t>& payload);
  OperationResult exec_od_io_write(const OperationConfig& op, const std::string& device,
                                   const std::vector<std::uint8_t>& payload);
  OperationResult exec_led_write(const OperationConfig& op, const std::string& device,
                                 const std::vector<std::uint8_t>& payload);
  OperationResult exec_auto_write(const OperationConfig& op, const std::string& device,
                                  const std::vector<std::uint8_t>& payload);
  OperationResult exec_pdo_write_patch(const OperationConfig& op, const std::string& device,
                                       const std::vector<std::uint8_t>& payload);
  OperationResult exec_bit_patch(const OperationConfig& op, const std::string& device,
                                 const std::vector<std::uint8_t>& payload);
  OperationResult exec_pdo_bit_patch(const OperationConfig& op, const std::string& device,
                                     const std::vector<std::uint8_t>& payload);

  /// Uploads one object: its bytes and "OK", or "SDO read failed at " and the object.
  OperationResult read_object(std::uint16_t index, std::uint8_t sub_index);

  /// Downloads one object: "OK", or "SDO write failed at " and the object.
  OperationResult write_object(std::uint16_t index, std::uint8_t sub_index,
                               const std::vector<std::uint8_t>& data);

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

  // The following run with `shadow_mutex_` held and do not take it.

  /// Makes the image of the RPDO usable: loads it unless it is synced already. False when the node
  /// refused a read; the next call tries again. True, with nothing done, for an RPDO number that
  /// the board does not have.
  bool ensure_rpdo_shadow_synced(std::uint8_t rpdo, const std::string& device);

  /// Loads image and length of the RPDO from the node, one SDO read per mapped object.
  ///
  /// With `all_or_nothing` the first refused read ends the load and changes nothing. Without, every
  /// object is tried and a field that the node refused keeps its bytes. Returns whether all
  /// answered. An exception leaves image and length as they were.
  bool sync_rpdo_shadow_from_device(std::uint8_t rpdo, const std::string& device,
                                    bool all_or_nothing);

  /// Stores `bytes` at the place of `mapping`, which is an element of the board's own lists.
  /// Surplus bytes are dropped; with fewer the rest of the field stays as it is.
  void write_to_shadow(std::uint8_t rpdo, const PdoMapping& mapping,
                       const std::vector<std::uint8_t>& bytes);

  /// Sends the image of the RPDO: "OK" or "RPDO send failed".
  OperationResult send_rpdo_shadow(std::uint8_t rpdo);

  // The following runs without `shadow_mutex_` and takes it.

  /// Repeats in the images what an SDO write has brought to `index`, sub-index 0: in every RPDO
  /// that maps it. Synced flags and lengths do not change.
  void write_od_to_shadow(std::uint16_t index, const std::vector<std::uint8_t>& bytes);

  const std::uint8_t* node_id_;
  CanOpenBackend* backend_;
  const BoardConfig* board_;

  // The image of each RPDO by its number: the 8 data bytes last assembled for it, the number of
  // them that a frame carries, and whether they were loaded from the node.
  std::unordered_map<std::uint8_t, std::array<std::uint8_t, 8>> rpdo_shadow_;
  std::unordered_map<std::uint8_t, std::uint8_t> rpdo_shadow_len_;
  std::unordered_map<std::uint8_t, bool> rpdo_shadow_synced_;
  // Guards the three maps above. Held across the load, the change and the delivery of an image, so
  // that two writes of one RPDO cannot interleave and what is sent is what was just assembled. SDO
  // transfers that do not belong to an RPDO write never wait for it.
  std::mutex shadow_mutex_;
};

}  // namespace velmora_can_bridge
