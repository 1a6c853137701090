// Every operation of the example board on a simulated node, called directly and over frames: both
// must answer the same and leave the same objects behind.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <utility>

#include "command_line_fixture.hpp"
#include "example_board.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

class OperationsOverFrames : public testing::TestWithParam<unsigned> {
 protected:
  OperationsOverFrames() {
    backend.set_cob_ids(config.node_id, config.board);
    NmtMaster(bus).send(NmtCommand::start, config.node_id);
    for (const auto& [name, op] : config.operations) {
      operations.push_back(name);
      addresses.insert({op.index, op.sub_index});
    }
    for (const auto& [name, entry] : config.board.device_od_map) {
      devices.push_back(name);
      for (unsigned offset = 0; entry.profile == "ci402" && offset < 0x100; ++offset) {
        addresses.insert({static_cast<std::uint16_t>(entry.base_index + offset), std::uint8_t{0}});
      }
    }
    for (const PdoConfig& pdo : config.board.pdos) {
      for (const PdoMapping& mapping : pdo.mappings) {
        addresses.insert({mapping.index, mapping.sub_index});
      }
    }
  }

  unsigned number_below(std::size_t limit) {
    return std::uniform_int_distribution<unsigned>(0, static_cast<unsigned>(limit) - 1)(random);
  }

  Bytes any_payload() {
    if (number_below(8) == 0) {
      return {0x3A, 0, 0, 1, 2, 3, 4};  // a drive's target position, by its offset
    }
    Bytes payload(number_below(9));
    for (std::uint8_t& byte : payload) {
      // Small numbers name channels and commands, others are values.
      byte = static_cast<std::uint8_t>(number_below(2) == 0 ? number_below(5) : number_below(256));
    }
    return payload;
  }

  void let_time_pass() {
    const std::chrono::milliseconds time(number_below(400));
    direct.tick(time);
    framed.on_bus.tick(time);
  }

  const BoardFile file = parse_board(std::string(example_board())).file.value();
  const NodeConfig& config = file.nodes.front();
  SimulatedNode direct{config.node_id, config.board};
  CanOpenNodeController direct_controller{config.node_id, direct, config.board};

  InProcessBus bus{BusTime::simulated};
  NodeOnBus framed{bus, config.node_id, config.board};
  CanBusBackend backend{bus};
  CanOpenNodeController framed_controller{config.node_id, backend, config.board};

  std::vector<std::string> operations;
  std::vector<std::string> devices;
  std::set<std::pair<std::uint16_t, std::uint8_t>> addresses;
  std::mt19937 random{GetParam()};
};

TEST_P(OperationsOverFrames, answer_the_same_as_without) {
  std::set<std::string> succeeded;
  for (int step = 0; step < 4000; ++step) {
    const OperationConfig& op = config.operations.at(operations[number_below(operations.size())]);
    const std::string& device = devices[number_below(devices.size())];
    const Bytes payload = any_payload();
    const OperationResult expected =
        direct_controller.execute_configured_operation(op, device, payload);
    const OperationResult result =
        framed_controller.execute_configured_operation(op, device, payload);
    ASSERT_EQ(result.ok, expected.ok) << step << ": " << op.kind << ": " << result.message;
    ASSERT_EQ(result.data, expected.data) << step << ": " << op.kind;
    ASSERT_EQ(result.message, expected.message) << step << ": " << op.kind;
    if (result.ok) {
      succeeded.insert(op.kind);
    }
    let_time_pass();
  }
  for (const OperationKind& row : operation_kinds) {
    EXPECT_EQ(succeeded.count(std::string(row.kind)), 1U) << row.kind << " never succeeds";
  }
  for (const auto& [index, sub_index] : addresses) {
    EXPECT_EQ(framed.node.device().object_value(index, sub_index),
              direct.object_value(index, sub_index))
        << std::hex << index << '/' << int{sub_index};
  }
}

INSTANTIATE_TEST_SUITE_P(seed, OperationsOverFrames, testing::Range(1U, 5U));

}  // namespace
}  // namespace velmora_can_bridge
