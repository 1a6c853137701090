/// A simulated CANopen device that speaks in CAN frames.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/bus/nmt_state.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

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
/// A TPDO is sent when operational is entered, and whenever its frame differs from the one sent
/// last. That is looked for after a download, an RPDO and a tick, so a change on the bench shows
/// with the next tick. PDOs are numbered 1 to 255; of several with one number the first counts. One
/// without a COB-ID (no board's, and no predefined one) is neither received nor sent, and a TPDO
/// that maps nothing or more than a frame is not sent.
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
  ~SimulatedBusNode() = default;

  /// The device behind the frames, for the bench. What it is told directly is not asked whether the
  /// state allows it.
  SimulatedNode& device() { return device_; }

  /// Lets through the frames that the node wants; none for a node that never boots.
  std::vector<CanFilter> filters() const;

  /// Switches on: the boot-up message, then pre-operational with the emergencies noted before.
  /// Objects and drives stay as they are.
  void boot(std::vector<CanFrame>& frames);

  /// Takes a frame; any other than its own ones changes nothing.
  ///
  /// Appends the SDO answer or the boot-up message first, then TPDOs by number, then emergencies.
  /// NMT commands of other than 2 bytes and unknown ones are ignored. Reset node sets the device
  /// back as `SimulatedNode::reset` does, reset communication as `reset_communication`; both boot.
  void receive(const CanFrame& frame, std::vector<CanFrame>& answers);

  /// While changes are held, `receive` appends answers alone and leaves TPDOs and emergencies to
  /// the next `tick`, or to the first frame after the hold: for the one driver of the node, while
  /// it has older ones still to send. Not held at first.
  void hold_changes(bool hold);

  /// Lets time pass as `SimulatedNode::tick`, in whatever state. Appends as many heartbeats as fall
  /// into it (object 0x1017, counted from the boot-up message or from the tick that finds it
  /// changed), then TPDOs by number, then emergencies.
  void tick(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);

  NmtState state() const;

 private:
  struct Rpdo {
    std::uint16_t cob_id = 0;
    std::uint8_t number = 0;
  };
  struct Tpdo {
    std::uint16_t cob_id = 0;
    std::uint8_t number = 0;
    /// No value: to be sent in any case.
    std::optional<PdoFrame> sent;
  };

  static std::vector<Rpdo> rpdos_with_cob_id(std::uint8_t node_id, const BoardConfig& board);
  static std::vector<Tpdo> tpdos_with_cob_id(std::uint8_t node_id, const BoardConfig& board);

  // All of these run with `mutex_` held.
  void handle(const CanFrame& frame, std::vector<CanFrame>& answers);
  void handle_nmt(const CanFrame& frame, std::vector<CanFrame>& answers);
  void handle_sdo(const CanFrame& frame, std::vector<CanFrame>& answers);
  void handle_rpdo(const CanFrame& frame);
  void start_up(std::vector<CanFrame>& frames);
  void enter(NmtState state);
  void send_changes(std::vector<CanFrame>& frames);
  void send_tpdo(Tpdo& tpdo, std::vector<CanFrame>& frames);
  void send_emergencies(std::vector<CanFrame>& frames);
  void send_heartbeats(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames);
  std::chrono::milliseconds heartbeat_time() const;
  std::uint16_t own(std::uint16_t cob_id) const;

  const std::uint8_t node_id_;
  const std::vector<Rpdo> rpdos_;
  // Has a lock of its own, which is taken under `mutex_`.
  SimulatedNode device_;

  // Guards everything below.
  mutable std::mutex mutex_;
  SdoServer sdo_;
  std::vector<Tpdo> tpdos_;
  NmtState state_ = NmtState::boot_up;
  // TPDOs or emergencies may be due.
  bool may_have_changed_ = false;
  bool holds_changes_ = false;
  std::chrono::milliseconds heartbeat_time_{0};
  std::chrono::milliseconds since_heartbeat_{0};
};

}  // namespace velmora_can_bridge
