// A simulated drive under a master that shares nothing with our operations: it configures the PDOs
// at boot, commands by RPDO alone and believes nothing but the statusword in a TPDO.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hand_made_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

constexpr std::uint16_t command_cob_id = 0x321;
constexpr std::uint16_t status_cob_id = 0x3A1;
constexpr milliseconds cycle{10};
// The states that such masters tell apart (CiA 402-2, statusword), with the bits that count.
constexpr std::pair<unsigned, unsigned> switch_on_disabled{0x4F, 0x40};
constexpr std::pair<unsigned, unsigned> ready_to_switch_on{0x6F, 0x21};
constexpr std::pair<unsigned, unsigned> switched_on{0x6F, 0x23};
constexpr std::pair<unsigned, unsigned> operation_enabled{0x6F, 0x27};
constexpr std::pair<unsigned, unsigned> quick_stop_active{0x6F, 0x07};
constexpr std::pair<unsigned, unsigned> fault{0x4F, 0x08};

class OtherMaster : public testing::Test {
 protected:
  OtherMaster() { node.boot(); }

  /// The answer to an SDO request; the abort code where there is one.
  std::optional<std::uint32_t> transfer(const CanFrame& request) {
    CanFrame answer;
    EXPECT_EQ(sdo->send(request, milliseconds(0)), CanStatus::ok);
    EXPECT_EQ(sdo->receive(answer, milliseconds(0)), CanStatus::ok);
    EXPECT_NE(answer.data[0], 0x80U) << "aborted: " << testing::PrintToString(answer);
    return number_in(answer, 4, 4);
  }
  std::uint32_t read(ObjectAddress at) { return *transfer(sdo_frame(0x601, 0x40, at)); }
  void write(ObjectAddress at, std::size_t size, std::uint32_t number) {
    transfer(sdo_frame(0x601, 0x23U | static_cast<unsigned>(4 - size) << 2U, at, number));
  }

  static std::uint32_t number_in(const CanFrame& frame, std::size_t begin, std::size_t size) {
    std::uint32_t number = 0;
    for (std::size_t position = 0; position < size; ++position) {
      number |= std::uint32_t{frame.data.at(begin + position)} << (8 * position);
    }
    return number;
  }

  /// As CiA 301 has it: disable, no mappings, the entries, their number, COB-ID and enable.
  void configure_pdo(std::uint16_t communication, std::uint16_t mapping, std::uint16_t cob_id,
                     const std::vector<std::uint32_t>& entries) {
    write({communication, 1}, 4, 0x80000000U | cob_id);
    write({communication, 2}, 1, 255);
    write({mapping, 0}, 1, 0);
    std::uint8_t sub_index = 0;
    for (const std::uint32_t entry : entries) {
      write({mapping, ++sub_index}, 4, entry);
    }
    write({mapping, 0}, 1, sub_index);
    write({communication, 1}, 4, cob_id);
  }

  void boot() {
    configure_pdo(0x1400, 0x1600, command_cob_id, {0x60400010, 0x607A0020, 0x60600008});
    write({0x1800, 1}, 4, 0x80000000U | status_cob_id);
    write({0x1800, 5}, 2, static_cast<std::uint32_t>(cycle.count()));
    configure_pdo(0x1800, 0x1A00, status_cob_id, {0x60410010, 0x60640020, 0x60610008});
    ASSERT_EQ(nmt->send({0x000, 2, {0x01, 0x01}}, milliseconds(0)), CanStatus::ok);
  }

  void command(std::uint16_t controlword) {
    CanFrame frame{command_cob_id, 7, {}};
    frame.data[0] = static_cast<std::uint8_t>(controlword & 0xFFU);
    frame.data[1] = static_cast<std::uint8_t>(controlword >> 8U);
    for (std::size_t position = 0; position < 4; ++position) {
      frame.data.at(2 + position) = static_cast<std::uint8_t>(target >> (8 * position) & 0xFFU);
    }
    frame.data[6] = mode;
    ASSERT_EQ(nmt->send(frame, milliseconds(0)), CanStatus::ok);
  }

  /// The TPDOs of up to so many cycles, until one has the value: false when none had.
  template <typename Is>
  bool await(const Is& is, int cycles) {
    for (int passed = 0; passed < cycles; ++passed) {
      CanFrame frame;
      while (pdo->receive(frame, milliseconds(0)) == CanStatus::ok) {
        EXPECT_EQ(frame.length, 7);
        status = frame;
        if (is()) {
          return true;
        }
      }
      node.tick(cycle);
    }
    return false;
  }
  bool await_state(std::pair<unsigned, unsigned> state, int cycles = 3) {
    return await([&] { return (statusword() & state.first) == state.second; }, cycles);
  }
  bool await_bit(unsigned bit, int cycles) {
    return await([&] { return (statusword() >> bit & 1U) != 0; }, cycles);
  }
  unsigned statusword() const { return number_in(status, 0, 2); }
  std::int32_t position() const { return static_cast<std::int32_t>(number_in(status, 2, 4)); }

  void enable() {
    command(0x06);
    ASSERT_TRUE(await_state(ready_to_switch_on));
    command(0x07);
    ASSERT_TRUE(await_state(switched_on));
    command(0x0F);
    ASSERT_TRUE(await_state(operation_enabled));
  }

  void set_mode(std::uint8_t wanted) {
    ASSERT_NE(read({0x6502, 0}) >> (wanted - 1U) & 1U, 0U) << "no mode " << int{wanted};
    mode = wanted;
    command(0x06);
    ASSERT_TRUE(await([&] { return status.data[6] == wanted; }, 3));
  }

  // The maker's mappings, which are not the master's.
  const BoardConfig board{{{1, "RPDO", 0, {{0x6040, 0, 16, "controlword"}}},
                           {1, "TPDO", 0, {{0x6041, 0, 16, "statusword"}}}},
                          {{"drive", {"ci402", 0x6040, 0}}}};
  InProcessBus bus{BusTime::simulated};
  SimulatedBusNode device{1, board};
  InProcessNode node{bus, device};
  const std::unique_ptr<CanEndpoint> sdo = bus.open({{0x581}});
  const std::unique_ptr<CanEndpoint> pdo = bus.open({{status_cob_id}});
  const std::unique_ptr<CanEndpoint> nmt = bus.open({});
  const std::unique_ptr<CanEndpoint> emergencies = bus.open({{0x081}});
  CanFrame status;
  std::uint8_t mode = 0;
  std::uint32_t target = 0;
};

TEST_F(OtherMaster, hears_the_state_each_event_time_although_nothing_changes) {
  boot();
  ASSERT_TRUE(await_state(switch_on_disabled));
  for (int passed = 0; passed < 5; ++passed) {
    node.tick(cycle);
    CanFrame frame;
    ASSERT_EQ(pdo->receive(frame, milliseconds(0)), CanStatus::ok) << "cycle " << passed;
    EXPECT_EQ(pdo->receive(frame, milliseconds(0)), CanStatus::timed_out) << "cycle " << passed;
  }
}

TEST_F(OtherMaster, finds_the_modes_that_the_drive_has) {
  const std::uint32_t modes = read({0x6502, 0});
  for (const unsigned has : {1U, 3U, 4U, 6U}) {
    EXPECT_NE(modes >> (has - 1) & 1U, 0U) << has;
  }
  for (const unsigned lacks : {2U, 7U, 8U, 9U, 10U}) {
    EXPECT_EQ(modes >> (lacks - 1) & 1U, 0U) << lacks;
  }
}

TEST_F(OtherMaster, homes_moves_stops_and_resets_a_fault) {
  boot();
  ASSERT_TRUE(await_state(switch_on_disabled));

  // Homing: bit 4 starts it, bit 12 tells that it was attained, bit 13 that it failed.
  ASSERT_NO_FATAL_FAILURE(set_mode(6));
  write({0x6098, 0}, 1, 35);
  write({0x607C, 0}, 4, 250);
  ASSERT_NO_FATAL_FAILURE(enable());
  command(0x1F);
  EXPECT_FALSE(await_bit(12, 20)) << "homing takes a second";
  ASSERT_TRUE(await_bit(12, 200));
  EXPECT_EQ(statusword() >> 13U & 1U, 0U);
  EXPECT_EQ(position(), 250);
  command(0x0F);

  // A set-point with its handshake: bit 12 takes it, bit 10 tells that it was reached.
  ASSERT_NO_FATAL_FAILURE(set_mode(1));
  ASSERT_NO_FATAL_FAILURE(enable());
  target = 600;
  command(0x1F);
  ASSERT_TRUE(await_bit(12, 3));
  command(0x0F);
  ASSERT_TRUE(await([&] { return (statusword() >> 12U & 1U) == 0; }, 3));
  ASSERT_TRUE(await_bit(10, 1000));
  EXPECT_EQ(position(), 600);

  // A quick stop in motion, seen before the drive leaves the state by itself.
  target = 100000;
  command(0x1F);
  ASSERT_TRUE(await([&] { return position() > 700; }, 100));
  command(0x02);
  ASSERT_TRUE(await_state(quick_stop_active));
  ASSERT_TRUE(await_state(switch_on_disabled, 100));

  // A fault while enabled; only a rising edge of bit 7 resets it.
  ASSERT_NO_FATAL_FAILURE(enable());
  device.device().inject_fault("drive");
  ASSERT_TRUE(await_state(fault));
  EXPECT_EQ(read({0x603F, 0}) & 0xFFFFU, 0x1000U);
  CanFrame emergency;
  ASSERT_EQ(emergencies->receive(emergency, milliseconds(0)), CanStatus::ok);
  EXPECT_EQ(number_in(emergency, 0, 2), 0x1000U);
  command(0x06);
  EXPECT_FALSE(await_state(ready_to_switch_on));
  command(0x80);
  ASSERT_TRUE(await_state(switch_on_disabled));
  ASSERT_NO_FATAL_FAILURE(enable());
}

TEST_F(OtherMaster, sees_a_quick_stop_at_standstill) {
  boot();
  ASSERT_NO_FATAL_FAILURE(set_mode(1));
  ASSERT_NO_FATAL_FAILURE(enable());
  command(0x02);
  EXPECT_TRUE(await_state(quick_stop_active));
  EXPECT_TRUE(await_state(switch_on_disabled));
}

TEST_F(OtherMaster, leaves_a_quick_stop_that_stays_by_enabling) {
  boot();
  write({0x605A, 0}, 2, 6);
  ASSERT_NO_FATAL_FAILURE(set_mode(1));
  ASSERT_NO_FATAL_FAILURE(enable());
  command(0x02);
  ASSERT_TRUE(await_state(quick_stop_active));
  EXPECT_FALSE(await_state(switch_on_disabled, 10));
  command(0x0F);
  EXPECT_TRUE(await_state(operation_enabled));
}

}  // namespace
}  // namespace velmora_can_bridge
