// The faults of one node: when they begin and end, and which transfers they strike.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/simulator/fault.hpp"

namespace velmora_can_bridge {

/// What the node has to do because a fault of its own, not of transfers, begins or ends.
struct DueFault {
  Fault fault;
  bool begins = true;
};

/// Decides, and leaves it to the node to act. Not thread-safe; `SimulatedBusNode` locks around it.
class NodeFaults {
 public:
  /// Those of `faults` that the node has. Time counts from now on; what begins at 0 does so with
  /// the first `follow_time`.
  NodeFaults(std::uint8_t node_id, const std::vector<Fault>& faults);

  /// How long until a fault begins or ends by time, but `at_most`.
  std::chrono::milliseconds until_next(std::chrono::milliseconds at_most) const;

  /// Lets time pass.
  void pass(std::chrono::milliseconds elapsed) { now_ += elapsed; }

  /// Begins and ends what is due.
  void follow_time();

  /// To be told of every SDO request before it is answered: it may begin a transfer.
  void note_request(const CanFrame& request);

  /// The transfer has ended; nothing happens when there is none.
  void note_end();

  /// The fault of that kind that the transfer under way will have; null when there is none.
  const Fault* find(FaultKind kind) const;

  /// As `find`, for who lets it take effect now.
  const Fault* strike(FaultKind kind);

  /// Whether a heartbeat that is due now is not sent.
  bool silences_heartbeat();

  /// Ends all that last.
  void end_all();

  /// Since the last call, in order.
  std::vector<DueFault> take_changes();

  /// Faults that have struck for the first time since the last call, in order.
  std::vector<FaultEffect> take_effects();

 private:
  enum class Stage : std::uint8_t { waiting, active, over };

  struct Scripted {
    Fault fault;
    std::size_t place = 0;
    Stage stage = Stage::waiting;
    /// Transfers that were counted before it begins, and those that it has struck.
    std::uint32_t counted = 0;
    std::uint32_t struck = 0;
    /// The transfer that it has struck last.
    std::uint64_t last_struck = 0;
    std::optional<std::chrono::milliseconds> end{};
    bool is_told = false;
  };

  struct Transfer {
    TransferSort sort = TransferSort::any;
    ObjectAddress at;
  };

  static std::optional<Transfer> begun_by(const CanFrame& request);
  static bool is_among(const Transfer& transfer, const TransferScope& scope);
  void begin(Scripted& scripted);
  void end(Scripted& scripted);
  bool is_held_otherwise(const Scripted& ended) const;
  void tell(Scripted& scripted);

  std::vector<Scripted> all_;
  std::chrono::milliseconds now_{0};
  std::optional<Transfer> transfer_;
  std::uint64_t transfer_number_ = 0;
  // Places in all_: what strikes the transfer under way.
  std::vector<std::size_t> striking_;
  std::vector<DueFault> changes_;
  std::vector<FaultEffect> effects_;
};

}  // namespace velmora_can_bridge
