#include "velmora_can_bridge/bridge/bridge.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "board_on_bus.hpp"
#include "lamp_board.hpp"
#include "support/passing_endpoint.hpp"
#include "velmora_can_bridge/bridge/bridge_runner.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Bytes = std::vector<std::uint8_t>;

class BridgeTest : public testing::Test {
 protected:
  BridgeTest() { NmtMaster(can0).send(NmtCommand::start, 0x10); }

  /// The transfers of an operation with this payload.
  std::vector<std::string> run(const std::string& operation, const Bytes& payload) {
    report = bridge.run("lamp", operation, payload, Detail::transfers);
    return lines_of(report.transfers);
  }

  /// From now on nothing that the node sends arrives.
  void silence() {
    can0.set_fault_rule([](const CanFrame& frame) {
      return frame.id == 0x590 ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
    });
  }

  /// Texts of the events that are told from now on.
  void observe() {
    bridge.add_observer(
        [this](const BridgeEvent& event) { told.push_back(bridge_event_text(event)); });
  }

  InProcessBus can0{BusTime::simulated, "can0"};
  NodeOnBus lamp{can0, 0x10, lamp_board()};
  Bridge bridge{can0, lamp_file()};
  OperationReport report;
  std::vector<std::string> told;
};

TEST_F(BridgeTest, reports_result_and_transfers) {
  EXPECT_THAT(run("set_level", {1}), ElementsAre("node 0x10  SDO read   0x2000/1 -> 00",
                                                 "node 0x10  SDO read   0x2000/2 -> 00",
                                                 "node 0x10  RPDO 1     <- 01 00"));
  EXPECT_EQ(report.device, "lamp");
  EXPECT_EQ(report.operation, "set_level");
  EXPECT_TRUE(report.result.ok);
  EXPECT_EQ(report.result.message, "OK");
  EXPECT_FALSE(report.error);
  EXPECT_THAT(report.tolerated, IsEmpty());
}

TEST(BridgeAnswer, is_told_in_words) {
  const BoardFile file = parse_board(R"(
nodes:
  - node_id: 0x10
    device_od_map: {wheel: {profile: ci402, base_index: 0x6040}}
    operations: {read: {kind: od_io_read}, name: {kind: sdo_read, index: 0x5FFF}}
)")
                             .file.value();
  InProcessBus can0(BusTime::simulated);
  NodeOnBus wheel(can0, 0x10, file.nodes[0].board);
  Bridge bridge(can0, file);
  const OperationReport report = bridge.run("wheel", "read", {1, 0});
  EXPECT_EQ(report.answer_words, "592, Switch on disabled");
  ASSERT_EQ(report.answer.size(), 1U);
  EXPECT_EQ(report.answer[0].index, 0x6041);
  EXPECT_EQ(bridge.run("wheel", "name", {}).answer_words, "") << "of a failure";
}

TEST_F(BridgeTest, transfers_are_not_kept_unasked) {
  EXPECT_THAT(bridge.run("lamp", "set_level", {1}).transfers, IsEmpty());
}

TEST_F(BridgeTest, unknown_names_are_refused_before_anything_is_sent) {
  EXPECT_EQ(bridge.run("Lamp", "set_level", {1}).result.message, "Device not found: Lamp");
  EXPECT_EQ(bridge.run("lamp", "set", {1}).result.message, "Operation not found: set");
  EXPECT_FALSE(bridge.run("lamp", "set", {1}).result.ok);
}

TEST_F(BridgeTest, image_is_loaded_once) {
  run("set_level", {1});
  EXPECT_THAT(run("set_level", {2}), ElementsAre("node 0x10  RPDO 1     <- 02 00"));
}

TEST_F(BridgeTest, boot_up_that_came_before_the_call_counts) {
  run("set_level", {1});
  lamp.on_bus.boot();
  lamp.node.device().set_object_value(0x2000, 2, {7});
  EXPECT_THAT(run("set_level", {3}), SizeIs(3));
  EXPECT_EQ(transfer_text(report.transfers.back()), "node 0x10  RPDO 1     <- 03 07");
}

TEST_F(BridgeTest, boot_up_of_another_node_forgets_nothing) {
  NodeOnBus other(can0, 0x11);
  run("set_level", {1});
  other.on_bus.boot();
  EXPECT_THAT(run("set_level", {2}), SizeIs(1));
}

TEST_F(BridgeTest, image_is_loaded_again_after_the_interface_was_down) {
  run("set_level", {1});
  can0.set_state(CanStatus::interface_down);
  can0.set_state(CanStatus::ok);
  lamp.node.device().set_object_value(0x2000, 2, {7});
  EXPECT_THAT(run("set_level", {3}), SizeIs(3));
  EXPECT_EQ(transfer_text(report.transfers.back()), "node 0x10  RPDO 1     <- 03 07");
}

TEST_F(BridgeTest, image_is_loaded_again_after_a_reset_that_the_bridge_has_sent) {
  run("set_level", {1});
  EXPECT_FALSE(bridge.send(NmtCommand::reset_node, 0x10));
  EXPECT_FALSE(bridge.send(NmtCommand::start, 0x10));
  EXPECT_THAT(run("set_level", {3}), SizeIs(3));
}

TEST_F(BridgeTest, reason_is_that_of_this_very_call) {
  run("write_level", {1, 2});
  ASSERT_TRUE(report.error);
  EXPECT_EQ(report.error->text, "abort 0x06070012, too many bytes for the object");
  run("write_level", {1});
  EXPECT_FALSE(report.result.ok);
  EXPECT_FALSE(report.error) << "refused by a check of its own";
}

TEST_F(BridgeTest, reason_is_not_that_of_another_thread) {
  // While this thread waits in its hook, another one fails on the same node.
  std::thread other;
  BridgeSettings settings;
  const std::thread::id here = std::this_thread::get_id();
  Bridge* told_bridge = nullptr;
  settings.after_transfer = [&](const Transfer& transfer) {
    if (std::this_thread::get_id() == here && transfer.error) {
      other = std::thread([&] { told_bridge->read_object(0x10, 0x5FFF, 0); });
      other.join();
    }
  };
  Bridge two(can0, lamp_file(), settings);
  told_bridge = &two;
  const OperationReport refused = two.run("lamp", "write_level", {1, 2});
  ASSERT_TRUE(refused.error);
  EXPECT_EQ(refused.error->index, 0x2000);
}

TEST_F(BridgeTest, tolerated_reads_of_a_refresh_are_told) {
  run("set_level", {1});
  lamp.node.device().add_object(0x2000, 2, {ObjectAccess::write_only, {0}, false, 0});
  run("refresh_level", {1});
  EXPECT_TRUE(report.result.ok);
  EXPECT_FALSE(report.error);
  ASSERT_THAT(report.tolerated, SizeIs(1));
  EXPECT_EQ(report.tolerated[0].sub_index, 2);
}

TEST_F(BridgeTest, one_object_is_read_and_written) {
  EXPECT_FALSE(bridge.write_object(0x10, 0x2000, 1, {9}));
  const auto read = bridge.read_object(0x10, 0x2000, 1);
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, Bytes{9});
}

TEST_F(BridgeTest, node_stands_where_a_device_does) {
  lamp.node.device().set_object_value(0x2000, 1, {7});
  for (const char* const node : {"0x10", "0X10", "16"}) {
    SCOPED_TRACE(node);
    const OperationReport read = bridge.run(node, "read_level", {});
    EXPECT_EQ(read.result.data, Bytes{7});
    EXPECT_EQ(read.device, node);
    EXPECT_EQ(bridge.explain(node, "read_level", {}).node_id, 0x10);
  }
  for (const char* const nobody : {"0x11", "17", "10", "016", "0x", "", "16 ", "0x-10", "272"}) {
    EXPECT_EQ(bridge.run(nobody, "read_level", {}).result.message,
              std::string("Device not found: ") + nobody);
  }
  EXPECT_EQ(bridge.run("16", "nothing", {}).result.message, "Operation not found: nothing");
}

TEST(BridgeNodes, that_stand_where_a_device_does_are_none) {
  BoardFile file = lamp_file();
  file.nodes.front().operations["enable"].kind = "ci402_enable";
  file.nodes.push_back({0x11, {}, {{"read_level", file.nodes.front().operations["read_level"]}}});
  file.nodes.back().board.device_od_map["0x10"].base_index = 0x3000;
  BoardOnBus board(file);
  EXPECT_EQ(board.bridge.run("16", "enable", {}).result.message, "Device not found: 16");
  EXPECT_EQ(board.bridge.explain("0x10", "read_level", {}).node_id, 0x11)
      << "a device of that name goes first";
}

TEST(BridgeMotorModes, are_those_that_were_set_last) {
  BoardFile file = lamp_file();
  file.nodes.front().board.device_od_map["wheel"] = {"ci402", 0x6040, 0};
  file.nodes.front().operations["set_mode"].kind = "ci402_set_mode";
  BoardOnBus board(file);

  EXPECT_EQ(board.bridge.motor_mode("wheel"), 0);
  EXPECT_TRUE(board.bridge.run("wheel", "set_mode", {3}).result.ok);
  EXPECT_EQ(board.bridge.motor_mode("wheel"), 3);
  EXPECT_EQ(board.bridge.motor_mode("nobody"), 0);
}

TEST_F(BridgeTest, objects_that_are_not_there_tell_why) {
  const auto read = bridge.read_object(0x10, 0x5FFF, 0);
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().kind, BusErrorKind::refused);
  EXPECT_EQ(read.error().index, 0x5FFF);
  const auto error = bridge.write_object(0x10, 0x5FFF, 0, {1});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::refused);
}

TEST_F(BridgeTest, hooks_are_told_of_each_transfer_before_and_after) {
  std::vector<std::string> seen;
  BridgeSettings settings;
  settings.before_transfer = [&](const Transfer& transfer) {
    seen.push_back("before " + transfer_text(transfer));
  };
  settings.after_transfer = [&](const Transfer& transfer) {
    seen.push_back("after " + transfer_text(transfer));
  };
  Bridge(can0, lamp_file(), settings).read_object(0x10, 0x2000, 1);
  EXPECT_THAT(seen, ElementsAre("before node 0x10  SDO read   0x2000/1 -> no bytes",
                                "after node 0x10  SDO read   0x2000/1 -> 00"));
}

TEST_F(BridgeTest, state_of_a_node_is_the_last_that_arrived) {
  EXPECT_EQ(bridge.node_state(0x10), std::nullopt);
  lamp.on_bus.boot();
  EXPECT_EQ(bridge.node_state(0x10), NmtState::boot_up);
  EXPECT_EQ(bridge.node_state(0x11), std::nullopt);
}

TEST_F(BridgeTest, node_without_heartbeats_is_lost) {
  BridgeSettings settings;
  settings.heartbeat_timeout = milliseconds(300);
  Bridge watching(can0, lamp_file(), settings);
  watching.add_observer(
      [this](const BridgeEvent& event) { told.push_back(bridge_event_text(event)); });
  const auto sender = can0.open({});
  sender->send({0x710, 1, {5}}, milliseconds(0));
  watching.poll(milliseconds(1000));
  EXPECT_THAT(
      told, ElementsAre("node 0x10 is operational", "node 0x10 is lost: no heartbeat for 300 ms"));
  EXPECT_EQ(watching.node_state(0x10), std::nullopt);
}

TEST_F(BridgeTest, observers_are_told_by_poll_alone) {
  observe();
  lamp.on_bus.boot();
  run("write_level", {1, 2});
  EXPECT_THAT(told, IsEmpty());
  bridge.poll(milliseconds(0));
  EXPECT_THAT(
      told,
      ElementsAre("node 0x10 has started",
                  "node 0x10, object 0x2000/1: abort 0x06070012, too many bytes for the object"));
}

TEST_F(BridgeTest, observer_that_was_removed_is_told_no_more) {
  const std::uint64_t id =
      bridge.add_observer([this](const BridgeEvent& /*event*/) { told.emplace_back("again"); });
  bridge.remove_observer(id);
  lamp.on_bus.boot();
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(BridgeTest, observer_may_call_anything) {
  bridge.add_observer([this](const BridgeEvent& event) {
    told.push_back(bridge_event_text(event));
    bridge.poll(milliseconds(1));
    bridge.node_state(0x10);
    told.push_back(bridge.run("lamp", "set_level", {4}).result.message);
  });
  lamp.on_bus.boot();
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, ElementsAre("node 0x10 has started", "OK"));
}

TEST_F(BridgeTest, observer_that_fails_in_each_event_lets_poll_come_back) {
  bridge.add_observer([this](const BridgeEvent& event) {
    told.push_back(bridge_event_text(event));
    bridge.run("lamp", "write_level", {1, 2});
  });
  lamp.on_bus.boot();
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, SizeIs(1));
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, SizeIs(2));
}

TEST_F(BridgeTest, exception_of_an_observer_loses_no_other_event) {
  bridge.add_observer([this](const BridgeEvent& event) {
    told.push_back(bridge_event_text(event));
    if (told.size() == 1) {
      throw std::runtime_error("of the observer");
    }
  });
  lamp.on_bus.boot();
  run("write_level", {1, 2});
  EXPECT_THROW(bridge.poll(milliseconds(0)), std::runtime_error);
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, SizeIs(2));
}

TEST_F(BridgeTest, events_that_nobody_polls_are_counted) {
  observe();
  for (std::size_t count = 0; count < Bridge::event_limit + 2; ++count) {
    bridge.read_object(0x10, 0x5FFF, 0);
  }
  bridge.poll(milliseconds(0));
  ASSERT_THAT(told, SizeIs(Bridge::event_limit + 1));
  EXPECT_EQ(told.back(), "nobody polled: 2 events are lost");
}

TEST(BridgeEventText, tells_how_many_events_are_lost) {
  EXPECT_EQ(bridge_event_text(EventsLost{1}), "nobody polled: 1 event is lost");
  EXPECT_EQ(bridge_event_text(EventsLost{2}), "nobody polled: 2 events are lost");
}

TEST_F(BridgeTest, poll_waits_its_time_by_the_clock_of_the_bus) {
  const auto clock = can0.open({});
  const auto start = clock->now();
  bridge.poll(milliseconds(250));
  EXPECT_EQ(clock->now() - start, milliseconds(250));
}

/// The polling thread stands still in its observer.
TEST_F(BridgeTest, run_waits_for_no_observer) {
  std::mutex mutex;
  std::condition_variable news;
  bool stands = false;
  bool may_go = false;
  bridge.add_observer([&](const BridgeEvent& /*event*/) {
    std::unique_lock<std::mutex> lock(mutex);
    stands = true;
    news.notify_all();
    news.wait(lock, [&] { return may_go; });
  });
  run("set_level", {1});
  lamp.on_bus.boot();
  std::thread poller([&] { bridge.poll(milliseconds(0)); });
  {
    std::unique_lock<std::mutex> lock(mutex);
    news.wait(lock, [&] { return stands; });
  }
  EXPECT_THAT(run("set_level", {2}), SizeIs(3));
  lamp.on_bus.boot();
  EXPECT_THAT(run("set_level", {3}), SizeIs(3)) << "a boot-up that came meanwhile counts";
  {
    const std::lock_guard<std::mutex> lock(mutex);
    may_go = true;
  }
  news.notify_all();
  poller.join();
}

TEST_F(BridgeTest, after_a_stop_nothing_is_begun_but_what_is_urgent) {
  run("set_level", {1});
  bridge.stop("going home");
  bridge.stop("not this one");
  run("set_level", {2});
  EXPECT_FALSE(report.result.ok);
  ASSERT_TRUE(report.error);
  EXPECT_EQ(report.error->kind, BusErrorKind::stopped);
  EXPECT_EQ(report.error->text, "going home");
  const UrgentScope scope;
  run("set_level", {3});
  EXPECT_TRUE(report.result.ok);
}

TEST_F(BridgeTest, transfer_that_a_stop_has_met_tells_both_reasons) {
  silence();
  BridgeSettings settings;
  Bridge* told_bridge = nullptr;
  Bridge stopping(can0, lamp_file(), settings);
  told_bridge = &stopping;
  const auto sniffer = can0.open(
      {{0x610}}, [&](const CanFrame& /*frame*/, auto& /*answers*/) { told_bridge->stop(); });
  const OperationReport stopped = stopping.run("lamp", "read_level", {});
  ASSERT_TRUE(stopped.error);
  EXPECT_EQ(stopped.error->kind, BusErrorKind::stopped);
  EXPECT_EQ(stopped.error->text, "stopped; no answer within 500 ms");
}

TEST_F(BridgeTest, late_answers_are_awaited_and_told) {
  can0.set_fault_rule([](const CanFrame& frame) {
    const bool is_answer = frame.id == 0x590;
    return std::vector<CanDelivery>{{frame, milliseconds(is_answer ? 700 : 0)}};
  });
  observe();
  run("read_level", {});
  EXPECT_FALSE(report.result.ok);
  EXPECT_THAT(bridge.await_late_answers(), IsEmpty());
  bridge.poll(milliseconds(0));
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_THAT(told[1], testing::HasSubstr("200 ms"));
}

TEST_F(BridgeTest, devices_are_compared_in_the_order_of_the_file) {
  const auto comparisons = bridge.compare_with_devices();
  ASSERT_THAT(comparisons, SizeIs(1));
  EXPECT_THAT(comparisons[0].differences, IsEmpty());
  EXPECT_THAT(comparisons[0].gaps, IsEmpty());
}

TEST_F(BridgeTest, boot_up_behind_more_frames_than_a_socket_holds_counts) {
  run("set_level", {1});
  const auto other = can0.open({});
  for (int count = 0; count < 20000; ++count) {
    other->send({0x711, 1, {5}}, milliseconds(0));
  }
  lamp.on_bus.boot();
  EXPECT_THAT(run("set_level", {3}), SizeIs(3));
}

TEST_F(BridgeTest, poll_in_a_hook_tells_nobody) {
  BridgeSettings settings;
  Bridge* polled = nullptr;
  settings.after_transfer = [&](const Transfer& /*transfer*/) { polled->poll(milliseconds(0)); };
  Bridge polling(can0, lamp_file(), settings);
  polled = &polling;
  polling.add_observer([&](const BridgeEvent& event) {
    told.push_back(bridge_event_text(event));
    polling.run("lamp", "write_level", {1, 2});
  });
  lamp.on_bus.boot();
  EXPECT_TRUE(polling.run("lamp", "set_level", {1}).result.ok);
  EXPECT_THAT(told, IsEmpty());
  polling.poll(milliseconds(0));
  EXPECT_THAT(told, ElementsAre("node 0x10 has started"));
}

TEST_F(BridgeTest, observer_that_another_one_removes_is_not_called) {
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  first = bridge.add_observer([&](const BridgeEvent& /*event*/) {
    told.emplace_back("first");
    bridge.remove_observer(second);
  });
  second = bridge.add_observer([&](const BridgeEvent& /*event*/) {
    told.emplace_back("second");
    bridge.remove_observer(first);
  });
  lamp.on_bus.boot();
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, ElementsAre("first"));
}

TEST_F(BridgeTest, observer_is_not_told_of_what_was_before_it) {
  const std::uint64_t first = bridge.add_observer([](const BridgeEvent& /*event*/) {});
  lamp.on_bus.boot();
  bridge.node_state(0x10);
  bridge.remove_observer(first);
  observe();
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(BridgeTest, empty_observer_is_never_called) {
  bridge.add_observer({});
  observe();
  lamp.on_bus.boot();
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, SizeIs(1));
}

TEST_F(BridgeTest, tolerated_read_is_not_the_reason_of_a_refusal_by_the_operation_itself) {
  BoardFile file = lamp_file();
  OperationConfig both = file.nodes[0].operations.at("refresh_level");
  both.fields = {"level", "mode"};
  file.nodes[0].operations["refresh_both"] = both;
  Bridge two(can0, file);
  lamp.node.device().add_object(0x2000, 2, {ObjectAccess::write_only, {0}, false, 0});
  const OperationReport refused = two.run("lamp", "refresh_both", {1});
  EXPECT_EQ(refused.result.message, "payload too short for field mode");
  EXPECT_FALSE(refused.error);
  EXPECT_THAT(refused.tolerated, SizeIs(1));
  EXPECT_FALSE(two.explain("lamp", "refresh_both", {1}).error);
}

TEST_F(BridgeTest, nothing_is_tolerated_after_a_stop) {
  bridge.stop();
  run("refresh_level", {1});
  ASSERT_TRUE(report.error);
  EXPECT_THAT(report.tolerated, IsEmpty());
}

TEST_F(BridgeTest, command_that_the_bus_did_not_take_is_told_with_its_status) {
  observe();
  can0.set_state(CanStatus::queue_full);
  const auto error = bridge.send(NmtCommand::start, 0);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->status, CanStatus::queue_full);
  bridge.poll(milliseconds(0));
  EXPECT_THAT(told, SizeIs(1));
}

TEST_F(BridgeTest, explanation_of_a_write_has_no_limit_of_its_own) {
  BoardFile file = lamp_file();
  file.nodes[0].operations["write_all"] = file.nodes[0].operations.at("write_level");
  file.nodes[0].operations["write_all"].data_type = "raw";
  Bridge two(can0, file);
  const std::size_t size = SdoServer::download_limit + 1;
  const Explanation explanation = two.explain("lamp", "write_all", Bytes(size));
  EXPECT_TRUE(explanation.result.ok);
  EXPECT_THAT(explanation.frames, SizeIs(1 + (size + 6) / 7));
}

TEST_F(BridgeTest, explanation_has_the_fields_of_all_entries_of_an_rpdo) {
  BoardFile file = lamp_file();
  file.nodes[0].board.pdos.insert(file.nodes[0].board.pdos.begin(), PdoConfig{1, "RPDO", 0, {}});
  OperationConfig& by_object = file.nodes[0].operations.at("set_level");
  by_object.field.clear();
  by_object.index = 0x2000;
  by_object.sub_index = 1;
  const Explanation explanation = Bridge(can0, file).explain("lamp", "set_level", {9});
  ASSERT_THAT(explanation.transfers, SizeIs(3));
  EXPECT_EQ(explanation.transfers[2].cob_id, 0x210);
  EXPECT_EQ(explanation.transfers[2].image_before, (Bytes{0, 0}));
  EXPECT_THAT(explanation.transfers[2].fields, SizeIs(2));
}

TEST_F(BridgeTest, name_with_a_line_end_makes_no_line_of_an_explanation) {
  Explanation explanation;
  explanation.device = "lamp\nwould answer ok: done";
  explanation.result.message = "no\nsuch";
  EXPECT_EQ(
      explanation_text(explanation),
      "lamp\\x0Awould answer ok: done ; nothing is written or sent\nwould fail: no\\x0Asuch\n");
}

/// A bus that takes frames, or on which senders alone find the interface down.
class ChannelWithDownSenders : public CanChannel {
 public:
  explicit ChannelWithDownSenders(CanChannel& inner) : inner_(&inner) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(inner_->open(filters), is_down_);
  }

  void set_down(bool is_down) { is_down_ = is_down; }

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(std::unique_ptr<CanEndpoint> inner, const bool& is_down)
        : PassingEndpoint(std::move(inner)), is_down_(&is_down) {}
    CanStatus send(const CanFrame& frame, std::chrono::nanoseconds patience) override {
      return *is_down_ ? CanStatus::interface_down : PassingEndpoint::send(frame, patience);
    }

   private:
    const bool* const is_down_;
  };

  CanChannel* const inner_;
  bool is_down_ = false;
};

TEST_F(BridgeTest, fault_that_only_a_transfer_has_met_puts_images_in_doubt) {
  ChannelWithDownSenders channel(can0);
  Bridge two(channel, lamp_file());
  two.run("lamp", "set_level", {1});
  channel.set_down(true);
  EXPECT_EQ(two.run("lamp", "set_level", {2}).result.message, "RPDO send failed");
  channel.set_down(false);
  EXPECT_THAT(two.run("lamp", "set_level", {3}, Detail::transfers).transfers, SizeIs(3));
}

/// An interface that the system refuses whatever is asked of it; its clock stands still.
class RefusingChannel : public CanChannel {
 public:
  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& /*filters*/) override {
    return std::make_unique<Refusing>(receives);
  }

  std::size_t receives = 0;

 private:
  class Refusing : public CanEndpoint {
   public:
    explicit Refusing(std::size_t& receives) : receives_(&receives) {}
    CanStatus send(const CanFrame& /*frame*/, std::chrono::nanoseconds /*patience*/) override {
      return CanStatus::failed;
    }
    CanStatus receive(CanFrame& /*frame*/, std::chrono::nanoseconds /*timeout*/) override {
      ++*receives_;
      return CanStatus::failed;
    }
    std::chrono::steady_clock::time_point now() const override { return {}; }
    std::string explain(CanStatus /*status*/) const override { return "refused"; }

   private:
    std::size_t* const receives_;
  };
};

TEST(BridgeOnARefusedInterface, poll_rests_and_comes_back) {
  RefusingChannel refused;
  Bridge bridge(refused, lamp_file());
  std::vector<std::string> told;
  bridge.add_observer([&](const BridgeEvent& event) { told.push_back(bridge_event_text(event)); });
  bridge.poll(milliseconds(30));
  EXPECT_THAT(told, ElementsAre("refused"));
  EXPECT_LT(refused.receives, 10U);
}

TEST(BridgeOnARefusedInterface, transfer_fails_at_once_with_what_the_system_says) {
  RefusingChannel refused;
  Bridge bridge(refused, lamp_file());
  const OperationReport report = bridge.run("lamp", "read_level", {});
  ASSERT_TRUE(report.error);
  EXPECT_EQ(report.error->kind, BusErrorKind::bus_fault);
  EXPECT_EQ(report.error->text, "refused");
  EXPECT_LT(refused.receives, 10U);
}

TEST_F(BridgeTest, runner_polls_until_it_ends) {
  InProcessBus real(BusTime::real);
  Bridge running(real, lamp_file());
  std::mutex mutex;
  std::condition_variable news;
  bool has_come = false;
  running.add_observer([&](const BridgeEvent& /*event*/) {
    const std::lock_guard<std::mutex> lock(mutex);
    has_come = true;
    news.notify_all();
  });
  const BridgeRunner runner(running);
  real.open({})->send({0x710, 1, {0}}, milliseconds(0));
  std::unique_lock<std::mutex> lock(mutex);
  EXPECT_TRUE(news.wait_for(lock, std::chrono::seconds(60), [&] { return has_come; }));
}

}  // namespace
}  // namespace velmora_can_bridge
