#include "board_session.hpp"

#include <gtest/gtest.h>

#include "command_line_fixture.hpp"

namespace velmora_can_bridge {
namespace {

class Session : public testing::Test {
 protected:
  Session() {
    BoardConfig board;
    board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 8, "level"}, {0x2000, 2, 8, "mode"}}}};
    board.device_od_map["lamp"].base_index = 0x2000;
    OperationConfig op;
    op.kind = "pdo_write";
    op.pdo_number = 1;
    op.field = "level";
    file.nodes.push_back({0x10, board, {{"set_level", op}}});
    lamp = std::make_unique<NodeOnBus>(can0, 0x10, board);
    NmtMaster(can0).send(NmtCommand::start, 0x10);
  }

  std::ostringstream out;
  std::ostringstream err;
  const CommandLineHost host{out, err, false, {}, {}, nullptr};
  InProcessBus can0{BusTime::simulated, "can0"};
  BoardFile file;
  std::unique_ptr<NodeOnBus> lamp;
  std::vector<std::string> lines;
};

TEST_F(Session, loads_an_image_again_after_the_node_has_booted) {
  BoardSession session(host, can0, file, {},
                       [this](const Transfer& transfer) { lines.push_back(transfer.line); });
  session.run("lamp", "set_level", {1});
  const std::vector<std::string> first{"node 0x10  SDO read   0x2000/1 -> 00",
                                       "node 0x10  SDO read   0x2000/2 -> 00",
                                       "node 0x10  RPDO 1     <- 01 00"};
  EXPECT_EQ(lines, first);

  lines.clear();
  session.run("lamp", "set_level", {2});
  EXPECT_EQ(lines, std::vector<std::string>{"node 0x10  RPDO 1     <- 02 00"});

  lines.clear();
  lamp->on_bus.boot();
  lamp->node.device().set_object_value(0x2000, 2, {7});
  EXPECT_TRUE(session.run("lamp", "set_level", {3}).result.ok);
  EXPECT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines.back(), "node 0x10  RPDO 1     <- 03 07");
}

TEST_F(Session, boot_up_of_another_node_forgets_nothing) {
  NodeOnBus other(can0, 0x11);
  BoardSession session(host, can0, file, {},
                       [this](const Transfer& transfer) { lines.push_back(transfer.line); });
  session.run("lamp", "set_level", {1});
  lines.clear();
  other.on_bus.boot();
  session.run("lamp", "set_level", {2});
  EXPECT_EQ(lines.size(), 1U);
}

TEST_F(Session, loads_an_image_again_after_the_interface_was_down) {
  BoardSession session(host, can0, file, {},
                       [this](const Transfer& transfer) { lines.push_back(transfer.line); });
  session.run("lamp", "set_level", {1});
  can0.set_state(CanStatus::interface_down);
  can0.set_state(CanStatus::ok);
  lamp->node.device().set_object_value(0x2000, 2, {7});

  EXPECT_TRUE(session.run("lamp", "set_level", {3}).result.ok);

  EXPECT_EQ(lines.back(), "node 0x10  RPDO 1     <- 03 07") << "the node may have booted meanwhile";
}

TEST_F(Session, earlier_failure_is_not_reported_again) {
  OperationConfig op;
  op.kind = "sdo_write";
  op.index = 0x2000;
  op.sub_index = 1;
  op.data_type = "u16";
  file.nodes.front().operations["write_level"] = op;
  BoardSession session(host, can0, file, {}, [](const Transfer& /*transfer*/) {});
  const OperationReport refused = session.run("lamp", "write_level", {1, 2});
  EXPECT_EQ(refused.status, ExitStatus::operation_failed);
  EXPECT_NE(refused.reason, "");
  const OperationReport too_short = session.run("lamp", "write_level", {1});
  EXPECT_EQ(too_short.status, ExitStatus::operation_failed);
  EXPECT_EQ(too_short.reason, "");
}

TEST_F(Session, failure_before_the_interruption_keeps_its_reason) {
  std::atomic<bool> interrupted{false};
  const CommandLineHost stoppable{out, err, false, {}, {}, &interrupted};
  BoardSession session(stoppable, can0, file, {},
                       [&](const Transfer& /*transfer*/) { interrupted = true; });
  can0.set_fault_rule([](const CanFrame& /*frame*/) { return std::vector<CanDelivery>{}; });
  const OperationReport silent = session.run("lamp", "set_level", {1});
  EXPECT_EQ(silent.status, ExitStatus::no_answer);
  EXPECT_EQ(silent.reason, "no answer within 500 ms");
  const OperationReport stopped = session.run("lamp", "set_level", {1});
  EXPECT_EQ(stopped.status, ExitStatus::interrupted);
  EXPECT_EQ(stopped.reason, "interrupted");
}

TEST_F(Session, prints_warnings_of_the_bus_alone) {
  BusError error;
  error.text = "can0 is error-passive";
  for (const BusErrorKind kind : {BusErrorKind::refused, BusErrorKind::no_answer,
                                  BusErrorKind::bus_fault, BusErrorKind::bus_warning}) {
    error.kind = kind;
    warning_printer(host)(error);
  }
  EXPECT_EQ(err.str(), "velmora-can-bridge: can0 is error-passive\n");
}

TEST_F(Session, finds_nodes_by_device) {
  EXPECT_EQ(find_node(file, "lamp"), &file.nodes.front());
  EXPECT_EQ(find_node(file, "Lamp"), nullptr);
}

}  // namespace
}  // namespace velmora_can_bridge
