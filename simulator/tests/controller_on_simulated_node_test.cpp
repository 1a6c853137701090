#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <ostream>
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

struct PowerStateCase {
  std::string name;
  std::vector<std::uint8_t> controlwords;  // low bytes, written one after the other
  Bytes statusword;
};

void PrintTo(const PowerStateCase& row, std::ostream* out) { *out << row.name; }

class ControllerOnSimulatedDriveTest : public ControllerOnSimulatedNodeTest,
                                       public testing::WithParamInterface<PowerStateCase> {};

TEST_P(ControllerOnSimulatedDriveTest, written_controlwords_show_in_the_statusword) {
  for (const std::uint8_t controlword : GetParam().controlwords) {
    EXPECT_TRUE(run("sdo_write", 0x6040, 0, {controlword, 0}).ok);
  }

  EXPECT_EQ(run("sdo_read", 0x6041, 0).data, GetParam().statusword);
}

INSTANTIATE_TEST_SUITE_P(
    all, ControllerOnSimulatedDriveTest,
    testing::Values(PowerStateCase{"nothing", {}, {0x50, 0x02}},
                    PowerStateCase{"shutdown", {0x06}, {0x31, 0x02}},
                    PowerStateCase{"switch_on", {0x06, 0x07}, {0x33, 0x02}},
                    PowerStateCase{"enable_operation", {0x06, 0x0F}, {0x37, 0x02}},
                    PowerStateCase{"enable_operation_alone", {0x0F}, {0x50, 0x02}},
                    PowerStateCase{"disable_operation", {0x06, 0x0F, 0x07}, {0x33, 0x02}},
                    PowerStateCase{"disable_voltage", {0x06, 0x0F, 0x00}, {0x50, 0x02}},
                    PowerStateCase{"quick_stop", {0x06, 0x0F, 0x02}, {0x17, 0x02}}),
    [](const testing::TestParamInfo<PowerStateCase>& row) { return row.param.name; });

TEST_F(ControllerOnSimulatedNodeTest, target_velocity_moves_the_drive) {
  run("sdo_write", 0x6060, 0, {3});
  run("sdo_write", 0x6040, 0, {0x06, 0});
  run("sdo_write", 0x6040, 0, {0x0F, 0});
  run("sdo_write", 0x60FF, 0, {0x00, 0x02, 0, 0});

  node.tick(std::chrono::milliseconds(256));
  EXPECT_EQ(run("sdo_read", 0x606C, 0).data, (Bytes{0x00, 0x01, 0, 0}));

  node.tick(std::chrono::milliseconds(256));
  EXPECT_EQ(run("sdo_read", 0x606C, 0).data, (Bytes{0x00, 0x02, 0, 0}));
}

TEST_F(ControllerOnSimulatedNodeTest, fault_is_seen_and_reset) {
  ASSERT_TRUE(node.inject_fault("drive"));
  node.tick(std::chrono::milliseconds(1));
  EXPECT_EQ(run("sdo_read", 0x6041, 0).data, (Bytes{0x18, 0x02}));

  run("sdo_write", 0x6040, 0, {0x80, 0});
  EXPECT_EQ(run("sdo_read", 0x6041, 0).data, (Bytes{0x50, 0x02}));
}

}  // namespace
}  // namespace velmora_can_bridge
