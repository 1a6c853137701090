#include "power_state.hpp"

#include <algorithm>
#include <iterator>

#include "ground/drive_commands.hpp"

namespace velmora_can_bridge {
namespace {

constexpr unsigned fault_reset_bit = 0x80;

PowerEvent event_of(DriveCommand command) {
  switch (command) {
    case DriveCommand::shutdown:
      return PowerEvent::shutdown;
    case DriveCommand::switch_on:
      return PowerEvent::switch_on;
    case DriveCommand::enable_operation:
      return PowerEvent::enable_operation;
    case DriveCommand::disable_voltage:
      return PowerEvent::disable_voltage;
    case DriveCommand::quick_stop:
      return PowerEvent::quick_stop;
    case DriveCommand::fault_reset:
      break;
  }
  return PowerEvent::fault_reset;
}

struct Transition {
  DriveState from;
  PowerEvent event;
  DriveState to;
};

using State = DriveState;
using Event = PowerEvent;

// The profile's transitions, each under its number there. Transition 0 is the construction.
constexpr Transition transitions[] = {
    // 1
    {State::not_ready_to_switch_on, Event::self_test_passed, State::switch_on_disabled},
    // 2
    {State::switch_on_disabled, Event::shutdown, State::ready_to_switch_on},
    // 3, the second row as the first half of 3 and 4
    {State::ready_to_switch_on, Event::switch_on, State::switched_on},
    {State::ready_to_switch_on, Event::enable_operation, State::switched_on},
    // 4
    {State::switched_on, Event::enable_operation, State::operation_enabled},
    // 5, Disable operation
    {State::operation_enabled, Event::switch_on, State::switched_on},
    // 6
    {State::switched_on, Event::shutdown, State::ready_to_switch_on},
    // 7
    {State::ready_to_switch_on, Event::disable_voltage, State::switch_on_disabled},
    {State::ready_to_switch_on, Event::quick_stop, State::switch_on_disabled},
    // 8
    {State::operation_enabled, Event::shutdown, State::ready_to_switch_on},
    // 9
    {State::operation_enabled, Event::disable_voltage, State::switch_on_disabled},
    // 10
    {State::switched_on, Event::disable_voltage, State::switch_on_disabled},
    {State::switched_on, Event::quick_stop, State::switch_on_disabled},
    // 11
    {State::operation_enabled, Event::quick_stop, State::quick_stop_active},
    // 12
    {State::quick_stop_active, Event::disable_voltage, State::switch_on_disabled},
    {State::quick_stop_active, Event::standstill, State::switch_on_disabled},
    // 13
    {State::not_ready_to_switch_on, Event::fault_detected, State::fault_reaction_active},
    {State::switch_on_disabled, Event::fault_detected, State::fault_reaction_active},
    {State::ready_to_switch_on, Event::fault_detected, State::fault_reaction_active},
    {State::switched_on, Event::fault_detected, State::fault_reaction_active},
    {State::operation_enabled, Event::fault_detected, State::fault_reaction_active},
    {State::quick_stop_active, Event::fault_detected, State::fault_reaction_active},
    // 14
    {State::fault_reaction_active, Event::fault_reaction_ended, State::fault},
    // 15
    {State::fault, Event::fault_reset, State::switch_on_disabled},
    // 16
    {State::quick_stop_active, Event::enable_operation, State::operation_enabled},
};

/// The transition out of `state`; null when the event does not lead out of it.
const Transition* find_transition(DriveState state, PowerEvent event) {
  const auto* const found =
      std::find_if(std::begin(transitions), std::end(transitions),
                   [&](const Transition& row) { return row.from == state && row.event == event; });
  return found == std::end(transitions) ? nullptr : found;
}

}  // namespace

std::optional<PowerEvent> power_command(std::uint16_t controlword, std::uint16_t previous) {
  const PowerEvent command = event_of(drive_command(controlword).command);
  const bool stays_set = (previous & fault_reset_bit) != 0;
  if (command == PowerEvent::fault_reset && stays_set) {
    return std::nullopt;
  }
  return command;
}

DriveState next_power_state(DriveState state, PowerEvent event) {
  // Ends: no event leads round in a circle.
  for (const Transition* step = find_transition(state, event); step != nullptr;
       step = find_transition(state, event)) {
    state = step->to;
  }
  return state;
}

std::uint16_t power_state_bits(DriveState state) {
  switch (state) {
    case DriveState::not_ready_to_switch_on:
      return 0x0000;
    case DriveState::switch_on_disabled:
      return 0x0040;
    case DriveState::ready_to_switch_on:
      return 0x0021;
    case DriveState::switched_on:
      return 0x0023;
    case DriveState::operation_enabled:
      return 0x0027;
    case DriveState::quick_stop_active:
      return 0x0007;
    case DriveState::fault_reaction_active:
      return 0x000F;
    case DriveState::fault:
      return 0x0008;
  }
  return 0x0000;
}

}  // namespace velmora_can_bridge
