#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// A controller of node 5, on a bus with a simulated drive as node 5.
class ControllerOnSimulatedNodeTest : public testing::Test {
 protected:
  OperationResult run(const std::string& kind, std::uint16_t index, std::uint8_t sub_index,
                      const Bytes& payload = {}) {
    OperationConfig op;
    op.kind = kind;
    op.index = index;
    op.sub_index = sub_index;
    op.sub_indices = {1, 4};
    return controller.execute_configured_operation(op, "drive", payload);
  }

  std::uint8_t node_id = 5;
  BoardConfig board{{}, {{"drive", {"ci402", 0x6040, 0}}}};
  SimulatedNode node{5, board};
  CanOpenNodeController controller{node_id, node, board};
};

TEST_F(ControllerOnSimulatedNodeTest, written_value_is_read_back) {
  const OperationResult written = run("sdo_write", 0x607A, 0, {0x10, 0x20, 0x30, 0x40});
  const OperationResult read = run("sdo_read", 0x607A, 0);

  EXPECT_TRUE(written.ok) << written.message;
  EXPECT_TRUE(read.ok) << read.message;
  EXPECT_EQ(read.data, (Bytes{0x10, 0x20, 0x30, 0x40}));
}

TEST_F(ControllerOnSimulatedNodeTest, sub_indices_are_joined) {
  EXPECT_EQ(run("read_multi", 0x1018, 0).data, (Bytes{0, 0, 0, 0, 5, 0, 0, 0}));
}

TEST_F(ControllerOnSimulatedNodeTest, refused_write_names_the_object) {
  const OperationResult result = run("sdo_write", 0x6041, 0, {1, 2});

  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.message, "SDO write failed at 0x6041/0");
  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::write_of_read_only);
}

TEST_F(ControllerOnSimulatedNodeTest, refused_read_names_the_object) {
  const OperationResult result = run("sdo_read", 0x6040, 7);

  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.message, "SDO read failed at 0x6040/7");
  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::no_such_sub_index);
}

TEST_F(ControllerOnSimulatedNodeTest, node_with_another_id_does_not_answer) {
  node_id = 6;

  EXPECT_EQ(run("sdo_read", 0x6040, 0).message, "SDO read failed at 0x6040/0");
  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::timed_out);
}

}  // namespace
}  // namespace velmora_can_bridge
