/// What went wrong on a bus.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "velmora_can_bridge/bus/can_channel.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

enum class BusErrorKind : std::uint8_t {
  /// The node refused the transfer with an abort of its own: nothing was done.
  refused,
  /// The node did not answer in time.
  no_answer,
  /// The node answered something that does not belong to the transfer.
  bad_answer,
  /// The bus or the interface did not work: down, missing, bus-off, transmit queue full.
  bus_fault,
  /// The bus works, but badly: the controller is error-passive. No transfer failed by it.
  bus_warning,
  /// An answer came after its request had timed out, and was thrown away. No transfer failed by it:
  /// that one had failed before.
  late_answer,
  /// The node answers with fewer than 8 bytes. They held all that the answer tells and were taken.
  /// Told once for each node.
  short_answer,
  /// What was asked for cannot be put on a bus: a node id out of range, an RPDO without a COB-ID.
  not_configured,
  /// The backend was told to stop (`CanBusBackend::stop`) before the transfer began, or between two
  /// of its segments.
  stopped,
};

/// Whether errors of this kind only tell of something: no call failed by them.
inline bool ends_no_call(BusErrorKind kind) {
  return kind == BusErrorKind::bus_warning || kind == BusErrorKind::late_answer ||
         kind == BusErrorKind::short_answer;
}

/// One failure with everything that is known of it.
struct BusError {
  BusErrorKind kind = BusErrorKind::refused;
  /// The node of the transfer; 0 when it is the bus as a whole.
  std::uint8_t node_id = 0;
  /// The object of an SDO transfer, else 0.
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  /// The SDO abort code: the node's for `refused` and for a `late_answer` that is one, for
  /// `no_answer`, `bad_answer` and `stopped` the one that was sent to it, if one was; else 0.
  std::uint32_t abort_code = 0;
  /// A download was complete on its way when it failed: whether the node has carried it out is not
  /// known. Also set where an answer may be that to an earlier request (`UrgentScope`). Never set
  /// with `refused`.
  bool outcome_unknown = false;
  /// Of `late_answer`: how long after the time-out it came, rounded up.
  std::chrono::milliseconds lateness{0};
  /// What the interface told, of `bus_fault` and `bus_warning`; else `ok`.
  CanStatus status = CanStatus::ok;
  /// The reason for people, on one line: abort code and its words, the time that was waited, or the
  /// command that brings the interface up.
  std::string text{};
};

/// Is told of errors. Runs on the thread on which the error showed, on several at once, with locks
/// of the teller held: it is short, and calls neither a backend, but for `CanBusBackend::stop`, nor
/// a controller, but for `forget_rpdo_shadows`.
using BusObserver = std::function<void(const BusError& error)>;

/// "node 0x10, object 0x2000/1: " or what of it applies, and the reason.
std::string bus_error_text(const BusError& error);

}  // namespace velmora_can_bridge
