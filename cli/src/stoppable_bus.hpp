// The bus of a command that the user can interrupt.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

#include "stoppable_channel.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// A `CanBusBackend` that ends soon after `CommandLineHost::interrupted` is set. One thread at a
/// time.
///
/// It says then, as a diagnostic, what it still waits for. The call under way ends with the node's
/// next answer or its time-out, every later one fails at once. Warnings of the bus are diagnostics,
/// too.
class StoppableBus : public CanOpenBackend {
 public:
  /// Host and channel outlive this object.
  StoppableBus(const CommandLineHost& host, CanChannel& channel, SdoTimes times = {});

  /// As `CanBusBackend::set_cob_ids`.
  void set_cob_ids(std::uint8_t node_id, const BoardConfig& board) {
    bus_.set_cob_ids(node_id, board);
  }

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

  /// Before the program ends: `CanBusBackend::await_late_answers`. An interruption ends the wait,
  /// and a diagnostic then says which nodes may still answer.
  void await_late_answers();

  /// Why the latest call that failed did so. When the interruption came before it or during it, the
  /// kind is `stopped`, and the text is "interrupted" with the reason of the bus behind it, where
  /// there is one.
  const BusError& last_error() const { return last_error_; }

 private:
  /// What is asked of a node.
  struct Question {
    std::uint8_t node_id = 0;
    std::uint16_t index = 0;
    std::uint8_t sub_index = 0;
    /// A frame of it is on the bus.
    bool is_sent = false;
  };

  template <typename Call>
  bool ask(const Question& question, const Call& call);
  void stop(std::chrono::nanoseconds left);

  const CommandLineHost* const host_;
  StoppableChannel channel_;
  CanBusBackend bus_;
  // The latest one.
  Question question_;
  BusError last_error_;
  // No call follows.
  bool is_ending_ = false;
  bool has_said_ = false;
};

}  // namespace velmora_can_bridge
