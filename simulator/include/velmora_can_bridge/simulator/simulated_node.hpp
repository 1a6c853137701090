/// A CANopen node without hardware.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Emergency error codes (CiA 301, 7.2.7.1) that a simulated node gives.
/// An error is no more.
inline constexpr std::uint16_t emergency_error_reset = 0x0000;
/// A drive has found a fault; of what kind is not known. Also the drive's own error code.
inline constexpr std::uint16_t emergency_generic_error = 0x1000;
/// An RPDO frame had fewer bytes than the node maps; it took no effect.
inline constexpr std::uint16_t emergency_rpdo_too_short = 0x8210;
/// An RPDO frame had more bytes than the node maps; it took effect by its first ones.
inline constexpr std::uint16_t emergency_rpdo_too_long = 0x8220;
/// A heartbeat that the node waits for did not come in time (object 0x1016).
inline constexpr std::uint16_t emergency_heartbeat_lost = 0x8130;

/// What a node reports about an error of its own: the content of an emergency frame.
struct Emergency {
  std::uint16_t error_code = 0;
  /// Object 0x1001 at that moment.
  std::uint8_t error_register = 0;
  /// Free for the device. For an RPDO frame of wrong length the first byte is the RPDO's number,
  /// for a lost heartbeat the node id; for a drive the first two are its base index, low byte
  /// first.
  std::array<std::uint8_t, 5> device_data{};
};

/// The content of a PDO frame.
struct PdoFrame {
  std::array<std::uint8_t, 8> data{};
  std::uint8_t length = 0;
};

/// How a PDO goes over the bus, as its parameters tell (CiA 301, 7.5.2.35 and 7.5.2.37).
struct PdoCommunication {
  std::uint8_t number = 0;
  std::uint16_t cob_id = 0;
  /// 0 to 240 wait for the SYNC, 254 and 255 go at once.
  std::uint8_t transmission = 255;
  /// Of TPDOs: the least time between two frames.
  std::chrono::milliseconds inhibit_time{0};
  /// Of TPDOs: the longest time between two frames; 0 for none.
  std::chrono::milliseconds event_timer{0};
};

/// A heartbeat that a node waits for (object 0x1016).
struct HeartbeatConsumer {
  /// Whose heartbeat it is: 1 to 127.
  std::uint8_t node_id = 0;
  /// How long it may stay away; above 0.
  std::chrono::milliseconds time{0};
};

class NodeDrives;
class NodePdos;

/// A node whose objects hold what is written to them, with drives and claws that act on it.
///
/// A command acts before the transfer or the frame that brought it ends; motion takes place in
/// `tick` alone, so a node that nobody ticks stands still. docs/simulator.md describes how drives
/// and claws behave.
///
/// It is a bus with this one node on it (`CanOpenBackend`), so that a controller runs on it as it
/// is. The device itself (`sdo_upload`, `sdo_download`, `receive_rpdo`) can be asked without that
/// face. Transfers end at once. So seen the node is always operational: it knows no network
/// management and sends nothing by itself; `SimulatedBusNode` puts it behind CAN frames.
/// docs/simulator.md lists its objects.
///
/// Every member may be called from any thread, from several at once; a frame or a transfer takes
/// effect as a whole.
class SimulatedNode : public CanOpenBackend {
 public:
  /// Emergencies that are kept; an older one makes room for a newer one.
  static constexpr std::size_t emergency_limit = 16;

  /// A bare node: the objects that every node has (docs/simulator.md), no PDO.
  ///
  /// CANopen node ids are 1 to 127; any other is taken as it is.
  explicit SimulatedNode(std::uint8_t node_id);

  /// A bare node with the devices and PDOs of `board`, which is read only here and may go after.
  ///
  /// PDOs are numbered 1 to 255; where several of one direction have one number, the first counts.
  /// Every drive is in Switch on disabled,
  /// its statusword 0x0250.
  SimulatedNode(std::uint8_t node_id, const BoardConfig& board);

  SimulatedNode(const SimulatedNode&) = delete;
  SimulatedNode(SimulatedNode&&) = delete;
  SimulatedNode& operator=(const SimulatedNode&) = delete;
  SimulatedNode& operator=(SimulatedNode&&) = delete;
  ~SimulatedNode() override;

  /// Adds an object; replaces the one that stands there, a mapped one included. Does not adapt
  /// sub-index 0. A drive's object that gets another size here loses its drive: the drive takes it
  /// for 0 and writes it no more.
  void add_object(std::uint16_t index, std::uint8_t sub_index, ObjectEntry entry);

  /// Uploads from this node; from any other id nobody answers (`SdoAbort::timed_out`).
  ///
  /// False leaves `data` as it was and the reason in `last_sdo_abort`: the abort that the checks of
  /// `ObjectDictionary` give.
  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;

  /// As `sdo_read`, but downloads `data`.
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;

  /// Hands the frame to the node, as `receive_rpdo`; nobody listens under any other id.
  ///
  /// False only for a `length` above 8, which no frame has: the bus takes every other frame,
  /// whatever the node makes of it.
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

  /// What the device answers to an SDO upload request. Sets `last_sdo_abort`.
  UploadResult sdo_upload(std::uint16_t index, std::uint8_t sub_index);

  /// As above, but puts the bytes into `data` in place of what it holds; its memory is used again.
  /// A refusal leaves it as it was. No value when the object was read.
  std::optional<SdoAbort> sdo_upload(std::uint16_t index, std::uint8_t sub_index,
                                     std::vector<std::uint8_t>& data);

  /// What the device answers to an SDO download of `data`: no value when the object took it. Sets
  /// `last_sdo_abort`.
  std::optional<SdoAbort> sdo_download(std::uint16_t index, std::uint8_t sub_index,
                                       const std::vector<std::uint8_t>& data);

  /// What the device does with a frame of RPDO `rpdo`: the first `length` bytes of `data`.
  ///
  /// Writes each mapped object in mapping order, bit by bit as mapped. An object larger than its
  /// mapping is filled up with zeros, of a smaller one the high bytes are dropped. Read-only
  /// objects and dummy entries (`is_dummy_entry`) are passed over. A frame shorter than the mapping
  /// changes no mapped object, of a longer one the bytes behind the mapping are passed over. Either
  /// sets the communication and generic bits of the error register and is noted as an emergency,
  /// 0x8210 for too few bytes, 0x8220 for too many. An RPDO that the node does not have, one that
  /// maps nothing and a `length` above 8 are ignored. A value that SDO would refuse is passed over.
  void receive_rpdo(std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                    std::uint8_t length);

  /// What the device sends as TPDO `tpdo` now: its mapped objects, bit by bit as mapped.
  ///
  /// Of an object larger than its mapping the high bytes are dropped, a smaller one is filled up
  /// with zeros. Dummy entries and write-only objects go as zeros. No value for a TPDO that the
  /// node does not have, and for one that maps no bits or more than the 64 of a frame. Where
  /// several TPDOs have one number, the first counts.
  std::optional<PdoFrame> tpdo_frame(std::uint8_t tpdo) const;

  /// The RPDOs that are enabled now, by number: those whose COB-ID has bit 31 clear.
  std::vector<PdoCommunication> enabled_rpdos() const;

  /// As above, the TPDOs.
  std::vector<PdoCommunication> enabled_tpdos() const;

  /// Another number after each change of the objects 0x1000 to 0x1FFF, but for those that tell of
  /// errors.
  std::uint64_t communication_revision() const;

  /// Lets time pass for every drive and claw; nothing happens when `elapsed` is not above 0.
  ///
  /// Exact to the millisecond: however a time is cut into ticks, it ends in the same state. The
  /// clock on the wall plays no part. More than an hour counts as an hour, so that a call comes
  /// back; it holds up transfers and frames meanwhile.
  void tick(std::chrono::milliseconds elapsed);

  /// The names of the board's devices with a drive, in order.
  std::vector<std::string> drives() const;

  /// Makes the drive of `device`, a name of the board, find a fault: it stands at once in Fault
  /// reaction active, and in Fault after the next millisecond. Its object "error code" and the
  /// emergency tell `error_code` (CiA 402-2).
  ///
  /// False, and nothing changed, when no device with a drive has that name. A drive that has a
  /// fault already keeps that one. 0, which means no error, counts as 0x1000. Otherwise bit 0 of
  /// the error register is set and an emergency is noted. When the fault is reset another one is,
  /// 0x0000, and bit 0 is cleared if it is the only one and no other drive has a fault.
  bool inject_fault(const std::string& device, std::uint16_t error_code = emergency_generic_error);

  /// From now on the object keeps its value, a reset included: downloads and RPDOs are accepted and
  /// have no effect, a drive shows nothing new in it, the bench sets nothing. Nothing happens when
  /// there is no such object.
  void hold_object(std::uint16_t index, std::uint8_t sub_index);

  /// Ends that. What was written meanwhile is lost; a drive shows its value with the next tick or
  /// command.
  void release_object(std::uint16_t index, std::uint8_t sub_index);

  /// The heartbeats that the node waits for now, those of its object 0x1016.
  std::vector<HeartbeatConsumer> heartbeat_consumers() const;

  /// For who hears heartbeats: that of `node_id` stayed away. Drives that are enabled quick-stop,
  /// the communication and generic bits of the error register are set and an emergency is noted,
  /// 0x8130.
  void lose_heartbeat(std::uint8_t node_id);

  /// That of `node_id` is back: bits and an emergency 0x0000, as when a drive's fault is reset.
  void regain_heartbeat(std::uint8_t node_id);

  /// Starts anew: all objects as they were at first, as `add_object` added them or as they were
  /// stored last by object 0x1010; drives in Switch on disabled at position 0, no emergencies.
  void reset();

  /// Sets the objects 0x1000 to 0x1FFF back as `reset` does. Bit 0 of the error register stays for
  /// a drive that has a fault. Drives go on.
  void reset_communication();

  /// The abort of the latest SDO transfer of any thread; no value when it succeeded or there was
  /// none yet.
  std::optional<SdoAbort> last_sdo_abort() const;

  /// The object's bytes as seen on the bench, whatever the access; no value when there is no such
  /// object. Is no SDO transfer.
  std::optional<std::vector<std::uint8_t>> object_value(std::uint16_t index,
                                                        std::uint8_t sub_index) const;

  /// Sets an object on the bench, whatever the access. A drive is given no command by it, but
  /// finds targets, ramps and limits here as it finds them after a download.
  ///
  /// False, and nothing changed, when there is no such object or it does not take that length. Is
  /// no SDO transfer.
  bool set_object_value(std::uint16_t index, std::uint8_t sub_index,
                        const std::vector<std::uint8_t>& value);

  /// The emergencies noted so far, the oldest first, `emergency_limit` at most.
  std::vector<Emergency> emergencies() const;

  /// Forgets the emergencies and clears the error register, on the bench: nobody is told.
  void clear_emergencies();

  /// The emergencies noted since the last call, the oldest first, `emergency_limit` at most. For
  /// who sends them; `emergencies` and `clear_emergencies` know nothing of it.
  std::vector<Emergency> take_unsent_emergencies();

 private:
  bool transfer_timed_out();
  void note_length_error(std::uint8_t rpdo, std::uint16_t error_code);
  void note_communication_error(std::uint16_t error_code, std::uint8_t device_data);
  void forget_communication_errors();
  void note_fault_changes();
  void note_emergency(const Emergency& emergency);
  std::uint8_t error_register() const;
  std::optional<SdoAbort> download_refusal(ObjectAddress at,
                                           const std::vector<std::uint8_t>& data) const;
  std::optional<SdoAbort> value_refusal(ObjectAddress at,
                                        const std::vector<std::uint8_t>& data) const;
  void write(ObjectAddress at, const std::vector<std::uint8_t>& value);
  void store_parameters();
  void reset_start_objects();
  ObjectDictionary fresh_objects() const;
  void take_in_parameters();
  void take_in_parameter(std::uint16_t index);
  void act_on_write(std::uint16_t index, std::uint8_t sub_index);
  void write_mapped_object(std::uint16_t index, std::uint8_t sub_index,
                           std::vector<std::uint8_t> value);

  // Fixed, so read without the lock.
  const std::uint8_t node_id_;

  // Guards everything below. Taken by the public members only; nothing outside this class runs
  // under it.
  mutable std::mutex mutex_;
  // As constructed and added to.
  ObjectDictionary default_objects_;
  // What `reset` goes back to: those with what was stored.
  ObjectDictionary start_objects_;
  // The next reset forgets what was stored.
  bool restores_defaults_ = false;
  ObjectDictionary objects_;
  const std::unique_ptr<NodeDrives> drives_;
  // Of `objects_`, brought up to date with every change of it.
  const std::unique_ptr<NodePdos> pdos_;
  std::uint64_t communication_revision_ = 1;
  std::deque<Emergency> emergencies_;
  std::deque<Emergency> unsent_emergencies_;
  std::optional<SdoAbort> last_sdo_abort_;
  // Reasons for the communication bit of the error register.
  std::set<std::uint8_t> lost_heartbeats_;
  bool had_wrong_length_ = false;
};

}  // namespace velmora_can_bridge
