#include "velmora_can_bridge/bridge/simulated_board.hpp"

#include <gtest/gtest.h>

#include "lamp_board.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/simulator/fault_script.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

BoardFile two_lamps() {
  BoardFile file = lamp_file();
  file.nodes.push_back({0x11, lamp_board(), {}});
  return file;
}

TEST(SimulatedBoardTest, has_every_node_of_the_file) {
  SimulatedBoard board(two_lamps());
  CanBusBackend backend(board);
  for (const std::uint8_t node_id : {std::uint8_t{0x10}, std::uint8_t{0x11}}) {
    Bytes read;
    EXPECT_TRUE(backend.sdo_read(node_id, 0x2000, 1, read));
    EXPECT_EQ(read, Bytes{0});
  }
}

TEST(SimulatedBoardTest, nodes_are_operational) {
  SimulatedBoard board(lamp_file());
  board.open({})->send({0x210, 2, {3, 4}}, nanoseconds(0));
  CanBusBackend backend(board);
  Bytes read;
  EXPECT_TRUE(backend.sdo_read(0x10, 0x2000, 2, read));
  EXPECT_EQ(read, Bytes{4});
}

TEST(SimulatedBoardTest, time_passes_for_all_nodes_by_tick_alone) {
  SimulatedBoard board(two_lamps());
  CanBusBackend backend(board);
  for (const std::uint8_t node_id : {std::uint8_t{0x10}, std::uint8_t{0x11}}) {
    EXPECT_TRUE(backend.sdo_write(node_id, 0x1017, 0, {100, 0}));
  }
  const auto listener = board.open({{0x700, 0x780}});
  CanFrame frame;
  EXPECT_EQ(listener->receive(frame, milliseconds(1000)), CanStatus::timed_out);
  board.tick(milliseconds(100));
  for (const unsigned id : {0x710U, 0x711U}) {
    EXPECT_EQ(listener->receive(frame, nanoseconds(0)), CanStatus::ok);
    EXPECT_EQ(frame.id, id);
  }
  EXPECT_EQ(listener->receive(frame, nanoseconds(0)), CanStatus::timed_out);
}

TEST(SimulatedBoardTest, nodes_may_be_given_faults) {
  SimulatedBoard board(two_lamps());
  const std::vector<SimulatedBusNode*> nodes = board.nodes();
  ASSERT_EQ(nodes.size(), 2U);
  const FaultScript faults =
      parse_fault_script("node 0x11 at 1 s: no answer", {nodes.begin(), nodes.end()});
  ASSERT_TRUE(faults);
  nodes[1]->set_faults(*faults);
  CanBusBackend backend(board);
  Bytes read;
  EXPECT_TRUE(backend.sdo_read(0x11, 0x2000, 1, read));

  board.tick(milliseconds(1000));

  EXPECT_TRUE(backend.sdo_read(0x10, 0x2000, 1, read));
  EXPECT_FALSE(backend.sdo_read(0x11, 0x2000, 1, read));
  EXPECT_EQ(backend.last_error(0x11)->text, "no answer within 500 ms");
}

/// A wait for what never comes ends at once, all of it later by the clock of the bus.
TEST(SimulatedBoardTest, waits_take_no_time) {
  SimulatedBoard board(lamp_file());
  const auto endpoint = board.open({{0x123}});
  const auto start = endpoint->now();
  CanFrame frame;
  EXPECT_EQ(endpoint->receive(frame, std::chrono::hours(1)), CanStatus::timed_out);
  EXPECT_EQ(endpoint->now() - start, std::chrono::hours(1));
}

}  // namespace
}  // namespace velmora_can_bridge
