/// A simulated CANopen device that speaks in CAN frames.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/nmt_state.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/fault.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

class NodeFaults;

/// A `SimulatedNode` behind network management, SDO, PDO, emergency and heartbeat frames (CiA 301).
///
/// Passive: it is given frames and time, and appends the frames that it sends to a vector. Drivers
/// carry them: `InProcessNode`, `SimulatedNodeServer`. Silent and deaf before `boot`; then:
///
/// | state | SDO | RPDOs, TPDOs | emergencies | NMT commands, heartbeat |
/// |---|---|---|---|---|
/// | pre-operational | yes | no | yes | yes |
/// | operational | yes | yes | yes | yes |
/// | stopped | no | no | kept until it is left | yes |
///
/// PDOs go as their parameters say, which a master may change (docs/simulator.md). Transmission
/// types 254 and 255: an RPDO takes effect at once; a TPDO is sent when operational is entered,
/// whenever its frame differs from the one sent last, and when its event timer has run out, but not
/// before its inhibit time has. That is looked for after a download, an RPDO and a tick, so a
/// change on the bench shows with the next tick. Types 0 to 240: an RPDO takes effect with the next
/// SYNC, a TPDO is sent with every so manieth, with 0 when it has changed until then. A PDO that is
/// disabled is neither received nor sent, and a TPDO that maps nothing or more than a frame is not
/// sent.
///
/// Every member may be called from any thread, `device()` used from another meanwhile.
class SimulatedBusNode {
 public:
  /// As the constructors of `SimulatedNode`, but a node id other than 1 to 127 never boots.
  explicit SimulatedBusNode(std::uint8_t node_id, const BoardConfig& board = {});

  SimulatedBusNode(const SimulatedBusNode&) = delete;
  SimulatedBusNode(SimulatedBusNode&&) = delete;
  SimulatedBusNode& operator=(const SimulatedBusNode&) = delete;
  SimulatedBusNode& operator=(SimulatedBusNode&&) = delete;
  ~SimulatedBusNode();

  /// The device behind the frames, for the bench. What it is told directly is not asked whether the
  /// state allows it.
  SimulatedNode& device() { return device_; }
  const SimulatedNode& device() const { return device_; }

  std::uint8_t node_id() const { return node_id_; }

  /// Lets through the frames that the node wants, whatever identifiers a master gives its PDOs and
  /// its SYNC; none for a node that never boots.
  std::vector<CanFilter> filters() const;

  /// From now on the node has those of `faults` that have its node id, and none of an earlier call:
  /// what lasts of those ends. What the device is told directly, on the bench, no fault of
  /// transfers strikes.
  void set_faults(const std::vector<Fault>& faults);

  /// The faults that have struck for the first time since the last call, in that order.
  std::vector<FaultEffect> take_fault_effects();

  /// Switches on: the boot-up message, then pre-operational with the emergencies noted before.
  /// Objects and drives stay as they are.
  void boot(std::vector<CanFrame>& frames);

  /// Takes a frame; any other than its own ones changes nothing.
  ///
  /// Appends the SDO answer or the boot-up message first, then TPDOs by number, then emergencies.
  /// NMT commands of other than 2 bytes and unknown ones are ignored. Reset node sets the device
  /// back as `SimulatedNode::reset` does, reset communication as `reset_communication`; both boot.
  void receive(const CanFrame& frame, std::vector<CanFrame>& answers);

  /// While changes are held, `receive` appends answers and the TPDOs of a SYNC alone and leaves
  /// other TPDOs and emergencies to the next `tick`, or to the first frame after the hold: for the
  /// one driver of the node, while it has older ones still to send. Not held at first.
  void hold_changes(bool hold);

  /// Lets time pass as `SimulatedNode::tick`, in whatever state. Appends what `receive` has held
  /// back, then answers that a fault has made late, then one heartbeat if any fell due (object
  /// 0x1017, counted from the boot-up message or from the tick that finds it changed), then TPDOs
  /// by number, then emergencies. A tick in which a fault begins or ends by time counts as two.
  void tick(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);

  NmtState state() const;

  /// Whether, since the first `boot`, a frame has come that only a node with this id sends: a
  /// boot-up message, a heartbeat or an SDO answer. Then another device on the bus has the id as
  /// well, and masters take the one for the other. The node itself goes on as if it were alone.
  bool is_doubled() const;

 private:
  struct Rpdo {
    PdoCommunication pdo;
    /// Waits for the SYNC.
    std::optional<CanFrame> waiting{};
  };
  struct Tpdo {
    PdoCommunication pdo;
    /// No value: to be sent in any case.
    std::optional<PdoFrame> sent{};
    std::chrono::milliseconds since_sent{0};
    std::chrono::milliseconds since_event{0};
    std::uint8_t syncs = 0;
  };
  struct Consumer {
    HeartbeatConsumer heartbeat;
    /// It is waited for from the first one on.
    bool is_heard = false;
    bool is_lost = false;
    std::chrono::milliseconds since_heard{0};
  };

  struct LateAnswer {
    CanFrame frame;
    std::chrono::milliseconds left{0};
  };

  // All of these run with `mutex_` held.
  void handle(const CanFrame& frame, std::vector<CanFrame>& answers);
  void handle_nmt(const CanFrame& frame, std::vector<CanFrame>& answers);
  void handle_sdo(const CanFrame& frame, std::vector<CanFrame>& answers);
  void handle_faulty_sdo(const CanFrame& frame, std::vector<CanFrame>& answers);
  std::optional<CanFrame> faulty_answer(const CanFrame& request);
  void shorten(std::vector<std::uint8_t>& data);
  void follow_faults(std::vector<CanFrame>& frames);
  void carry_out(const Fault& fault, bool begins, std::vector<CanFrame>& frames);
  void pass(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);
  void begin_and_end_faults(std::vector<CanFrame>& frames);
  void send_late_answers(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);
  void handle_rpdo(const CanFrame& frame);
  void handle_sync(std::vector<CanFrame>& answers);
  void handle_heartbeat(const CanFrame& frame);
  void look_after_heartbeats(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);
  void act_on_lost_heartbeat();
  void take_in_parameters();
  void take_in_consumers();
  void restart(std::vector<CanFrame>& frames);
  void start_up(std::vector<CanFrame>& frames);
  void forget_transfer();
  void enter(NmtState state);
  void send_changes(std::vector<CanFrame>& frames);
  void send_if_due(Tpdo& tpdo, std::vector<CanFrame>& frames);
  void send_on_sync(Tpdo& tpdo, std::vector<CanFrame>& frames);
  static void send(Tpdo& tpdo, const PdoFrame& content, std::vector<CanFrame>& frames);
  void send_emergencies(std::vector<CanFrame>& frames);
  void send_heartbeats(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);
  std::uint64_t parameter(ObjectAddress at, std::size_t size) const;
  std::uint16_t own(std::uint16_t cob_id) const;

  const std::uint8_t node_id_;
  // Has a lock of its own, which is taken under `mutex_`.
  SimulatedNode device_;

  // Guards everything below.
  mutable std::mutex mutex_;
  SdoServer sdo_;
  // Null: it has none.
  std::unique_ptr<NodeFaults> faults_;
  std::vector<LateAnswer> late_answers_;
  // What follows is taken from the device's objects when their revision is another one.
  std::uint64_t revision_ = 0;
  std::vector<Rpdo> rpdos_;
  std::vector<Tpdo> tpdos_;
  std::vector<Consumer> consumers_;
  std::uint16_t sync_cob_id_ = 0;
  // No value: emergencies are not sent.
  std::optional<std::uint16_t> emergency_cob_id_;
  NmtState state_ = NmtState::boot_up;
  // TPDOs or emergencies may be due.
  bool may_have_changed_ = false;
  bool holds_changes_ = false;
  bool is_doubled_ = false;
  std::chrono::milliseconds heartbeat_time_{0};

  std::chrono::milliseconds since_heartbeat_{0};
};

}  // namespace velmora_can_bridge
