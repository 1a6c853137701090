/// Faults that a simulated node has at a time, or after so many transfers.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// Which way the bytes of an SDO transfer go.
enum class TransferSort : std::uint8_t {
  any,
  /// Uploads.
  read,
  /// Downloads.
  write,
};

/// Some of the SDO transfers with a node.
struct TransferScope {
  TransferSort sort = TransferSort::any;
  /// No value: of whatever object.
  std::optional<ObjectAddress> object{};
};

/// What goes wrong.
enum class FaultKind : std::uint8_t {
  // These strike SDO transfers, each as a whole, from its first request on.

  /// A request is neither carried out nor answered.
  no_answer,
  /// Each answer comes `Fault::lateness` after its request, which is carried out at once. A restart
  /// and leaving for the state stopped forget what has not come.
  late_answer,
  /// The first request is aborted with `Fault::code` and not carried out.
  abort,
  /// Segments are answered with the other toggle bit. A transfer without segments is not struck.
  wrong_toggle,
  /// A read brings the first `Fault::bytes` of the object's bytes, and calls that its size. An
  /// object that has no more is not struck.
  short_answer,

  // These are the node's.

  /// `Fault::object` keeps its value, as `SimulatedNode::hold_object`.
  held_value,
  /// The drive of the device `Fault::device` finds a fault of the error code `Fault::code`, as
  /// `SimulatedNode::inject_fault`.
  drive_fault,
  /// The node starts anew as after a brown-out: as reset node, the boot-up message included.
  restart,
  /// No heartbeats are sent. Boot-up messages are.
  no_heartbeat,
};

/// One fault of a node: when it begins, what it is, and how long it lasts.
struct Fault {
  std::uint8_t node_id = 0;

  /// When it begins, if `after_transfers` is 0: that long after the node was switched on first, or
  /// after `SimulatedBusNode::set_faults` where that came later. A restart does not set it back.
  std::chrono::milliseconds at{0};
  /// If not 0 it begins when so many of the transfers `counted` have ended. One that is aborted
  /// counts, one that the client gives up counts when the next one begins.
  std::uint32_t after_transfers = 0;
  TransferScope counted{};

  FaultKind kind = FaultKind::no_answer;
  /// Of the kinds that strike transfers: which.
  TransferScope struck{};
  /// Of `late_answer`.
  std::chrono::milliseconds lateness{0};
  /// Of `abort` any, of `drive_fault` 16 bits.
  std::uint32_t code = 0;
  /// Of `short_answer`.
  std::size_t bytes = 0;
  /// Of `held_value`.
  ObjectAddress object{};
  /// Of `drive_fault`.
  std::string device{};

  /// How long it lasts; no value: without an end. A transfer that begins before the end is struck
  /// as a whole. Not of `drive_fault` and `restart`.
  std::optional<std::chrono::milliseconds> duration{};
  /// Of the kinds that strike transfers: how many it strikes; 0: any number.
  std::uint32_t transfers = 0;

  /// Where it stands in a script, counted from 1, and its line there; for reports alone.
  std::size_t line = 0;
  std::string text{};
};

/// That a fault has struck for the first time.
struct FaultEffect {
  /// Its place in the list of `SimulatedBusNode::set_faults`.
  std::size_t fault = 0;
  /// By the clock of `Fault::at`.
  std::chrono::milliseconds time{0};
};

}  // namespace velmora_can_bridge
