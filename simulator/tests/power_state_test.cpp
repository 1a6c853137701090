#include "power_state.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>

namespace velmora_can_bridge {
namespace {

using State = DriveState;
using Event = PowerEvent;

struct TransitionCase {
  std::string name;
  State from;
  Event event;
  State to;
};

void PrintTo(const TransitionCase& row, std::ostream* out) { *out << row.name; }

// Every event in every state; where both states are the same, the profile draws no transition.
const TransitionCase transition_cases[] = {
    {"shutdown_in_not_ready_to_switch_on", State::not_ready_to_switch_on, Event::shutdown,
     State::not_ready_to_switch_on},
    {"switch_on_in_not_ready_to_switch_on", State::not_ready_to_switch_on, Event::switch_on,
     State::not_ready_to_switch_on},
    {"enable_operation_in_not_ready_to_switch_on", State::not_ready_to_switch_on,
     Event::enable_operation, State::not_ready_to_switch_on},
    {"disable_voltage_in_not_ready_to_switch_on", State::not_ready_to_switch_on,
     Event::disable_voltage, State::not_ready_to_switch_on},
    {"quick_stop_in_not_ready_to_switch_on", State::not_ready_to_switch_on, Event::quick_stop,
     State::not_ready_to_switch_on},
    {"fault_reset_in_not_ready_to_switch_on", State::not_ready_to_switch_on, Event::fault_reset,
     State::not_ready_to_switch_on},
    {"self_test_passed_in_not_ready_to_switch_on", State::not_ready_to_switch_on,
     Event::self_test_passed, State::switch_on_disabled},
    {"standstill_in_not_ready_to_switch_on", State::not_ready_to_switch_on, Event::standstill,
     State::not_ready_to_switch_on},
    {"fault_detected_in_not_ready_to_switch_on", State::not_ready_to_switch_on,
     Event::fault_detected, State::fault_reaction_active},
    {"fault_reaction_ended_in_not_ready_to_switch_on", State::not_ready_to_switch_on,
     Event::fault_reaction_ended, State::not_ready_to_switch_on},
    {"shutdown_in_switch_on_disabled", State::switch_on_disabled, Event::shutdown,
     State::ready_to_switch_on},
    {"switch_on_in_switch_on_disabled", State::switch_on_disabled, Event::switch_on,
     State::switch_on_disabled},
    {"enable_operation_in_switch_on_disabled", State::switch_on_disabled, Event::enable_operation,
     State::switch_on_disabled},
    {"disable_voltage_in_switch_on_disabled", State::switch_on_disabled, Event::disable_voltage,
     State::switch_on_disabled},
    {"quick_stop_in_switch_on_disabled", State::switch_on_disabled, Event::quick_stop,
     State::switch_on_disabled},
    {"fault_reset_in_switch_on_disabled", State::switch_on_disabled, Event::fault_reset,
     State::switch_on_disabled},
    {"self_test_passed_in_switch_on_disabled", State::switch_on_disabled, Event::self_test_passed,
     State::switch_on_disabled},
    {"standstill_in_switch_on_disabled", State::switch_on_disabled, Event::standstill,
     State::switch_on_disabled},
    {"fault_detected_in_switch_on_disabled", State::switch_on_disabled, Event::fault_detected,
     State::fault_reaction_active},
    {"fault_reaction_ended_in_switch_on_disabled", State::switch_on_disabled,
     Event::fault_reaction_ended, State::switch_on_disabled},
    {"shutdown_in_ready_to_switch_on", State::ready_to_switch_on, Event::shutdown,
     State::ready_to_switch_on},
    {"switch_on_in_ready_to_switch_on", State::ready_to_switch_on, Event::switch_on,
     State::switched_on},
    {"enable_operation_in_ready_to_switch_on", State::ready_to_switch_on, Event::enable_operation,
     State::operation_enabled},
    {"disable_voltage_in_ready_to_switch_on", State::ready_to_switch_on, Event::disable_voltage,
     State::switch_on_disabled},
    {"quick_stop_in_ready_to_switch_on", State::ready_to_switch_on, Event::quick_stop,
     State::switch_on_disabled},
    {"fault_reset_in_ready_to_switch_on", State::ready_to_switch_on, Event::fault_reset,
     State::ready_to_switch_on},
    {"self_test_passed_in_ready_to_switch_on", State::ready_to_switch_on, Event::self_test_passed,
     State::ready_to_switch_on},
    {"standstill_in_ready_to_switch_on", State::ready_to_switch_on, Event::standstill,
     State::ready_to_switch_on},
    {"fault_detected_in_ready_to_switch_on", State::ready_to_switch_on, Event::fault_detected,
     State::fault_reaction_active},
    {"fault_reaction_ended_in_ready_to_switch_on", State::ready_to_switch_on,
     Event::fault_reaction_ended, State::ready_to_switch_on},
    {"shutdown_in_switched_on", State::switched_on, Event::shutdown, State::ready_to_switch_on},
    {"switch_on_in_switched_on", State::switched_on, Event::switch_on, State::switched_on},
    {"enable_operation_in_switched_on", State::switched_on, Event::enable_operation,
     State::operation_enabled},
    {"disable_voltage_in_switched_on", State::switched_on, Event::disable_voltage,
     State::switch_on_disabled},
    {"quick_stop_in_switched_on", State::switched_on, Event::quick_stop, State::switch_on_disabled},
    {"fault_reset_in_switched_on", State::switched_on, Event::fault_reset, State::switched_on},
    {"self_test_passed_in_switched_on", State::switched_on, Event::self_test_passed,
     State::switched_on},
    {"standstill_in_switched_on", State::switched_on, Event::standstill, State::switched_on},
    {"fault_detected_in_switched_on", State::switched_on, Event::fault_detected,
     State::fault_reaction_active},
    {"fault_reaction_ended_in_switched_on", State::switched_on, Event::fault_reaction_ended,
     State::switched_on},
    {"shutdown_in_operation_enabled", State::operation_enabled, Event::shutdown,
     State::ready_to_switch_on},
    {"switch_on_in_operation_enabled", State::operation_enabled, Event::switch_on,
     State::switched_on},
    {"enable_operation_in_operation_enabled", State::operation_enabled, Event::enable_operation,
     State::operation_enabled},
    {"disable_voltage_in_operation_enabled", State::operation_enabled, Event::disable_voltage,
     State::switch_on_disabled},
    {"quick_stop_in_operation_enabled", State::operation_enabled, Event::quick_stop,
     State::quick_stop_active},
    {"fault_reset_in_operation_enabled", State::operation_enabled, Event::fault_reset,
     State::operation_enabled},
    {"self_test_passed_in_operation_enabled", State::operation_enabled, Event::self_test_passed,
     State::operation_enabled},
    {"standstill_in_operation_enabled", State::operation_enabled, Event::standstill,
     State::operation_enabled},
    {"fault_detected_in_operation_enabled", State::operation_enabled, Event::fault_detected,
     State::fault_reaction_active},
    {"fault_reaction_ended_in_operation_enabled", State::operation_enabled,
     Event::fault_reaction_ended, State::operation_enabled},
    {"shutdown_in_quick_stop_active", State::quick_stop_active, Event::shutdown,
     State::quick_stop_active},
    {"switch_on_in_quick_stop_active", State::quick_stop_active, Event::switch_on,
     State::quick_stop_active},
    {"enable_operation_in_quick_stop_active", State::quick_stop_active, Event::enable_operation,
     State::operation_enabled},
    {"disable_voltage_in_quick_stop_active", State::quick_stop_active, Event::disable_voltage,
     State::switch_on_disabled},
    {"quick_stop_in_quick_stop_active", State::quick_stop_active, Event::quick_stop,
     State::quick_stop_active},
    {"fault_reset_in_quick_stop_active", State::quick_stop_active, Event::fault_reset,
     State::quick_stop_active},
    {"self_test_passed_in_quick_stop_active", State::quick_stop_active, Event::self_test_passed,
     State::quick_stop_active},
    {"standstill_in_quick_stop_active", State::quick_stop_active, Event::standstill,
     State::switch_on_disabled},
    {"fault_detected_in_quick_stop_active", State::quick_stop_active, Event::fault_detected,
     State::fault_reaction_active},
    {"fault_reaction_ended_in_quick_stop_active", State::quick_stop_active,
     Event::fault_reaction_ended, State::quick_stop_active},
    {"shutdown_in_fault_reaction_active", State::fault_reaction_active, Event::shutdown,
     State::fault_reaction_active},
    {"switch_on_in_fault_reaction_active", State::fault_reaction_active, Event::switch_on,
     State::fault_reaction_active},
    {"enable_operation_in_fault_reaction_active", State::fault_reaction_active,
     Event::enable_operation, State::fault_reaction_active},
    {"disable_voltage_in_fault_reaction_active", State::fault_reaction_active,
     Event::disable_voltage, State::fault_reaction_active},
    {"quick_stop_in_fault_reaction_active", State::fault_reaction_active, Event::quick_stop,
     State::fault_reaction_active},
    {"fault_reset_in_fault_reaction_active", State::fault_reaction_active, Event::fault_reset,
     State::fault_reaction_active},
    {"self_test_passed_in_fault_reaction_active", State::fault_reaction_active,
     Event::self_test_passed, State::fault_reaction_active},
    {"standstill_in_fault_reaction_active", State::fault_reaction_active, Event::standstill,
     State::fault_reaction_active},
    {"fault_detected_in_fault_reaction_active", State::fault_reaction_active, Event::fault_detected,
     State::fault_reaction_active},
    {"fault_reaction_ended_in_fault_reaction_active", State::fault_reaction_active,
     Event::fault_reaction_ended, State::fault},
    {"shutdown_in_fault", State::fault, Event::shutdown, State::fault},
    {"switch_on_in_fault", State::fault, Event::switch_on, State::fault},
    {"enable_operation_in_fault", State::fault, Event::enable_operation, State::fault},
    {"disable_voltage_in_fault", State::fault, Event::disable_voltage, State::fault},
    {"quick_stop_in_fault", State::fault, Event::quick_stop, State::fault},
    {"fault_reset_in_fault", State::fault, Event::fault_reset, State::switch_on_disabled},
    {"self_test_passed_in_fault", State::fault, Event::self_test_passed, State::fault},
    {"standstill_in_fault", State::fault, Event::standstill, State::fault},
    {"fault_detected_in_fault", State::fault, Event::fault_detected, State::fault},
    {"fault_reaction_ended_in_fault", State::fault, Event::fault_reaction_ended, State::fault}};

class TransitionTest : public testing::TestWithParam<TransitionCase> {};

TEST_P(TransitionTest, leads_where_the_profile_draws_it) {
  EXPECT_EQ(next_power_state(GetParam().from, GetParam().event), GetParam().to);
}

INSTANTIATE_TEST_SUITE_P(all, TransitionTest, testing::ValuesIn(transition_cases),
                         [](const testing::TestParamInfo<TransitionCase>& row) {
                           return row.param.name;
                         });

TEST(TransitionTableTest, has_every_event_in_every_state) {
  constexpr std::size_t states = 8;
  constexpr std::size_t events = 10;
  std::set<std::pair<State, Event>> seen;
  for (const TransitionCase& row : transition_cases) {
    seen.insert({row.from, row.event});
  }

  EXPECT_EQ(seen.size(), states * events);
  EXPECT_EQ(std::size(transition_cases), states * events);
}

struct CommandCase {
  std::string name;
  std::uint16_t controlword;
  std::uint16_t previous;
  std::optional<Event> command;
};

void PrintTo(const CommandCase& row, std::ostream* out) { *out << row.name; }

class CommandTest : public testing::TestWithParam<CommandCase> {};

TEST_P(CommandTest, is_told_from_the_word) {
  EXPECT_EQ(power_command(GetParam().controlword, GetParam().previous), GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(
    all, CommandTest,
    testing::Values(
        CommandCase{"shutdown", 0x0006, 0, Event::shutdown},
        CommandCase{"shutdown_whatever_bit_3", 0x000E, 0, Event::shutdown},
        CommandCase{"switch_on", 0x0007, 0, Event::switch_on},
        CommandCase{"enable_operation", 0x000F, 0, Event::enable_operation},
        CommandCase{"disable_voltage", 0x0000, 0, Event::disable_voltage},
        CommandCase{"disable_voltage_by_bit_1_alone", 0x000D, 0, Event::disable_voltage},
        CommandCase{"quick_stop", 0x0002, 0, Event::quick_stop},
        CommandCase{"quick_stop_by_bit_2_alone", 0x000B, 0, Event::quick_stop},
        CommandCase{"other_bits_do_not_matter", 0xFF7F, 0, Event::enable_operation},
        CommandCase{"same_word_again", 0x000F, 0x000F, Event::enable_operation},
        CommandCase{"fault_reset", 0x0080, 0x0000, Event::fault_reset},
        CommandCase{"fault_reset_beside_another_command", 0x008F, 0x000F, Event::fault_reset},
        CommandCase{"bit_7_held", 0x0080, 0x0080, std::nullopt},
        CommandCase{"bit_7_held_beside_another_command", 0x008F, 0x0080, std::nullopt},
        CommandCase{"bit_7_falls", 0x0006, 0x0086, Event::shutdown}),
    [](const testing::TestParamInfo<CommandCase>& row) { return row.param.name; });

/// The profile's command table, read line by line from the bits.
Event command_by_bits(unsigned word) {
  const bool switch_on = (word & 1U) != 0;
  const bool enable_voltage = (word & 2U) != 0;
  const bool quick_stop_is_off = (word & 4U) != 0;
  const bool enable_operation = (word & 8U) != 0;
  if (!enable_voltage) {
    return Event::disable_voltage;
  }
  if (!quick_stop_is_off) {
    return Event::quick_stop;
  }
  if (!switch_on) {
    return Event::shutdown;
  }
  return enable_operation ? Event::enable_operation : Event::switch_on;
}

TEST(EveryControlwordTest, has_the_command_of_its_bits) {
  for (unsigned word = 0; word <= 0xFFFF; ++word) {
    const auto controlword = static_cast<std::uint16_t>(word);
    if ((word & 0x80U) == 0) {
      ASSERT_EQ(power_command(controlword, 0xFFFF), command_by_bits(word)) << word;
    } else {
      ASSERT_EQ(power_command(controlword, 0xFF7F), Event::fault_reset) << word;
      ASSERT_EQ(power_command(controlword, 0x0080), std::nullopt) << word;
    }
  }
}

struct BitsCase {
  std::string name;
  State state;
  std::uint16_t bits;
};

void PrintTo(const BitsCase& row, std::ostream* out) { *out << row.name; }

class PowerStateBitsTest : public testing::TestWithParam<BitsCase> {};

TEST_P(PowerStateBitsTest, tell_the_state) {
  EXPECT_EQ(power_state_bits(GetParam().state), GetParam().bits);
}

INSTANTIATE_TEST_SUITE_P(
    all, PowerStateBitsTest,
    testing::Values(BitsCase{"not_ready_to_switch_on", State::not_ready_to_switch_on, 0x00},
                    BitsCase{"switch_on_disabled", State::switch_on_disabled, 0x40},
                    BitsCase{"ready_to_switch_on", State::ready_to_switch_on, 0x21},
                    BitsCase{"switched_on", State::switched_on, 0x23},
                    BitsCase{"operation_enabled", State::operation_enabled, 0x27},
                    BitsCase{"quick_stop_active", State::quick_stop_active, 0x07},
                    BitsCase{"fault_reaction_active", State::fault_reaction_active, 0x0F},
                    BitsCase{"fault", State::fault, 0x08},
                    BitsCase{"no_state", static_cast<State>(200), 0x00}),
    [](const testing::TestParamInfo<BitsCase>& row) { return row.param.name; });

TEST(NoPowerStateTest, is_left_by_nothing) {
  EXPECT_EQ(next_power_state(static_cast<State>(200), Event::shutdown), static_cast<State>(200));
}

}  // namespace
}  // namespace velmora_can_bridge
