// What faults of a node do to who talks to it over the bus, in simulated time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ground/little_endian.hpp"
#include "hand_made_frames.hpp"
#include "support/served_channel.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/fault_script.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* no_answer_text = "no answer within 500 ms";
constexpr const char* long_text = "a text that takes segments";

/// RPDO 1 writes 0x2000/1, TPDO 1 shows it.
BoardConfig faulty_board() {
  return {{{1, "RPDO", 0, {{0x2000, 1, 16, "output"}}}, {1, "TPDO", 0, {{0x2000, 1, 16, ""}}}},
          {{"wheel", {"ci402", 0x6040, 0}}}};
}

class NodeFaultsTest : public testing::Test {
 protected:
  NodeFaultsTest() {
    const std::string text = long_text;
    node.device().add_object(0x2100, 0,
                             {ObjectAccess::read_write, Bytes(text.begin(), text.end()), true});
  }

  /// Switches the node on with the faults of a script.
  void start(const std::string& script) {
    const FaultScript faults = parse_fault_script(script, {&node});
    ASSERT_TRUE(faults) << faults.error().front().message;
    node.set_faults(*faults);
    server.boot();
    drain();
  }

  /// "ok" and the bytes as a number, or what the caller is told.
  std::string read(std::uint16_t index, std::uint8_t sub_index = 0) {
    Bytes data;
    if (!backend.sdo_read(5, index, sub_index, data)) {
      return backend.last_error(5)->text;
    }
    return data.size() > 8 ? "ok " + std::string(data.begin(), data.end())
                           : "ok " + std::to_string(little_endian_number(data)) + " in " +
                                 std::to_string(data.size());
  }

  std::string write(std::uint16_t index, std::uint8_t sub_index, const Bytes& data) {
    return backend.sdo_write(5, index, sub_index, data) ? "ok" : backend.last_error(5)->text;
  }

  void wait(milliseconds time) {
    const auto clock = bus.open({});
    const auto end = clock->now() + time;
    while (clock->now() < end) {
      server.poll(SimulatedNodeServer::tick_interval);
    }
  }

  milliseconds now() {
    return std::chrono::duration_cast<milliseconds>(listener->now().time_since_epoch());
  }

  /// What has come since the last call, but answers.
  std::vector<CanFrame> drain() {
    std::vector<CanFrame> frames;
    CanFrame frame;
    while (listener->receive(frame, std::chrono::nanoseconds(0)) == CanStatus::ok) {
      frames.push_back(frame);
    }
    return frames;
  }

  /// "FAULT@MILLISECONDS" of each that has struck.
  std::vector<std::string> effects() {
    std::vector<std::string> texts;
    for (const FaultEffect& effect : node.take_fault_effects()) {
      texts.push_back(std::to_string(effect.fault) + "@" + std::to_string(effect.time.count()));
    }
    return texts;
  }

  SimulatedBusNode node{5, faulty_board()};
  InProcessBus bus{BusTime::simulated};
  SimulatedNodeServer server{bus, {&node}};
  ServedChannel channel{bus, server};
  // Emergencies, TPDO 1, heartbeats.
  const std::unique_ptr<CanEndpoint> listener = bus.open({{0x085}, {0x185}, {0x705}});
  std::vector<std::string> told;
  CanBusBackend backend{channel, {}, [this](const BusError& error) {
                          if (ends_no_call(error.kind)) {
                            told.push_back(error.text);
                          }
                        }};
};

TEST_F(NodeFaultsTest, unanswered_read_times_out_once) {
  start("node 5 after 2 reads of 0x6041/0: no answer");
  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  EXPECT_EQ(read(0x6040), "ok 0 in 2") << "another object is not counted";
  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(read(0x6040), "ok 0 in 2") << "another object is not struck";

  EXPECT_EQ(read(0x6041), no_answer_text);

  EXPECT_THAT(effects(), ElementsAre("0@0"));
  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(NodeFaultsTest, unanswered_write_is_not_carried_out) {
  start("node 5 at 0 s: no answer in writes of 0x2000/1");
  EXPECT_EQ(read(0x2000, 1), "ok 0 in 2");

  EXPECT_EQ(write(0x2000, 1, {1, 2}),
            std::string(no_answer_text) + "; whether the node has taken the value is unknown");

  EXPECT_EQ(read(0x2000, 1), "ok 0 in 2");
  EXPECT_EQ(write(0x2000, 1, {1, 2}), "ok");
}

TEST_F(NodeFaultsTest, node_is_silent_for_a_time) {
  start("node 5 at 100 ms: no answer for 600 ms");
  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  wait(milliseconds(100));

  EXPECT_EQ(read(0x6041), no_answer_text);
  EXPECT_EQ(read(0x6041), "ok 592 in 2") << "after the quarantine, 1100 ms";

  EXPECT_THAT(effects(), ElementsAre("0@100"));
}

TEST_F(NodeFaultsTest, node_is_silent_from_then_on) {
  start("node 5 at 0 s: no answer from then on");

  EXPECT_EQ(read(0x6041), no_answer_text);
  EXPECT_EQ(read(0x1000), no_answer_text);
  EXPECT_EQ(read(0x1000), "no answer to the requests before; the node is asked again in 500 ms");
  EXPECT_EQ(write(0x2100, 0, Bytes(20, 'x')), no_answer_text);
}

TEST_F(NodeFaultsTest, some_transfers_get_no_answer) {
  start("node 5 at 0 s: no answer for 2 transfers");

  EXPECT_EQ(read(0x6041), no_answer_text);
  EXPECT_EQ(write(0x2100, 0, Bytes(20, 'x')), no_answer_text);
  EXPECT_EQ(write(0x2100, 0, Bytes(20, 'x')), "ok");
}

TEST_F(NodeFaultsTest, late_answer_is_waited_for) {
  start("node 5 at 0 s: answer 300 ms late");
  const milliseconds begin = now();

  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  EXPECT_EQ((now() - begin).count(), 300);

  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  EXPECT_EQ((now() - begin).count(), 300) << "once";
}

TEST_F(NodeFaultsTest, answer_too_late_is_told) {
  start("node 5 at 0 s: answer 700 ms late in writes");

  EXPECT_EQ(write(0x2000, 1, {1, 2}),
            std::string(no_answer_text) + "; whether the node has taken the value is unknown");
  EXPECT_EQ(read(0x2000, 1), "ok 513 in 2") << "the node has carried it out";

  EXPECT_THAT(told,
              ElementsAre("answered 200 ms after the time-out: the node has taken the value"));
}

TEST_F(NodeFaultsTest, each_segment_of_a_late_transfer_is_late) {
  start("node 5 at 0 s: answer 100 ms late in reads of 0x2100/0");
  const milliseconds begin = now();

  EXPECT_EQ(read(0x2100), std::string("ok ") + long_text);

  EXPECT_EQ((now() - begin).count(), 500) << "of the first request and of four segments";
}

TEST_F(NodeFaultsTest, restart_forgets_a_late_answer) {
  start("node 5 at 0 s: answer 200 ms late\nnode 5 at 100 ms: restart");

  EXPECT_EQ(read(0x6041), no_answer_text);
  EXPECT_EQ(read(0x6041), "ok 592 in 2");

  EXPECT_THAT(told, IsEmpty());
}

TEST_F(NodeFaultsTest, aborted_transfer_is_not_carried_out) {
  start("node 5 after 1 write of 0x2000/1: abort 0x08000022 for 2 transfers");
  EXPECT_EQ(write(0x2000, 1, {1, 0}), "ok");

  EXPECT_EQ(write(0x2000, 1, {2, 0}), "abort 0x08000022, not in the present state of the node");
  EXPECT_EQ(read(0x2000, 1), "ok 1 in 2");
  EXPECT_EQ(write(0x2000, 1, {2, 0}), "abort 0x08000022, not in the present state of the node");

  EXPECT_EQ(write(0x2000, 1, {2, 0}), "ok");
  EXPECT_THAT(effects(), ElementsAre("0@0"));
}

TEST_F(NodeFaultsTest, long_download_is_aborted_at_its_first_request) {
  start("node 5 at 0 s: abort 0x06060000");

  EXPECT_EQ(write(0x2100, 0, Bytes(20, 'x')), "abort 0x06060000, a hardware error of the node");

  EXPECT_EQ(read(0x2100), std::string("ok ") + long_text);
}

TEST_F(NodeFaultsTest, wrong_toggle_is_told_in_the_next_transfer_of_segments) {
  start("node 5 at 0 s: wrong toggle");
  EXPECT_EQ(read(0x6041), "ok 592 in 2") << "has no toggle";
  EXPECT_THAT(effects(), IsEmpty());

  EXPECT_EQ(read(0x2100),
            "answered a segment out of turn; perhaps another SDO client is talking to the node");

  EXPECT_THAT(effects(), ElementsAre("0@0"));
  EXPECT_EQ(read(0x2100), std::string("ok ") + long_text);
}

TEST_F(NodeFaultsTest, wrong_toggle_strikes_downloads_too) {
  start("node 5 at 0 s: wrong toggle in writes of 0x2100/0");

  EXPECT_EQ(write(0x2100, 0, Bytes(20, 'x')),
            "answered a segment out of turn; perhaps another SDO client is talking to the node");
}

TEST_F(NodeFaultsTest, short_answer_has_the_first_bytes) {
  start("node 5 at 0 s: answer with 1 byte for 2 transfers");
  EXPECT_EQ(read(0x1001), "ok 0 in 1") << "has no more";
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(write(0x2000, 1, {1, 2}), "ok") << "has no bytes";

  EXPECT_EQ(read(0x6041), "ok 80 in 1");
  EXPECT_EQ(read(0x2100), "ok 97 in 1");

  EXPECT_EQ(read(0x6041), "ok 592 in 2");
  EXPECT_THAT(effects(), ElementsAre("0@0"));
}

TEST_F(NodeFaultsTest, refusals_are_not_shortened) {
  start("node 5 at 0 s: answer with 0 bytes");

  EXPECT_EQ(read(0x5FFF), "abort 0x06020000, no object at this index");

  EXPECT_EQ(read(0x6041), "ok 0 in 0");
}

TEST_F(NodeFaultsTest, held_value_stays_whatever_is_written) {
  start("node 5 at 100 ms: hold 0x2000/1 for 1 s");
  NmtMaster(bus).send(NmtCommand::start, 5);
  EXPECT_EQ(write(0x2000, 1, {7, 0}), "ok");
  wait(milliseconds(100));
  drain();

  EXPECT_EQ(write(0x2000, 1, {8, 0}), "ok");
  EXPECT_TRUE(backend.send_rpdo(5, 1, {9}, 2));
  wait(milliseconds(10));
  EXPECT_EQ(read(0x2000, 1), "ok 7 in 2");
  EXPECT_THAT(drain(), IsEmpty()) << "TPDO 1 has not changed";

  wait(milliseconds(1000));
  EXPECT_EQ(write(0x2000, 1, {8, 0}), "ok");
  EXPECT_EQ(read(0x2000, 1), "ok 8 in 2");
  EXPECT_THAT(effects(), ElementsAre("0@100"));
}

TEST_F(NodeFaultsTest, object_that_is_held_twice_is_held_until_the_later_end) {
  start("node 5 at 0 s: hold 0x2000/1 for 100 ms\nnode 5 at 50 ms: hold 0x2000/1 for 200 ms");
  wait(milliseconds(150));

  write(0x2000, 1, {8, 0});
  EXPECT_EQ(read(0x2000, 1), "ok 0 in 2");

  wait(milliseconds(100));
  write(0x2000, 1, {8, 0});
  EXPECT_EQ(read(0x2000, 1), "ok 8 in 2");
}

TEST_F(NodeFaultsTest, drive_fault_is_shown_and_told) {
  start("node 5 at 100 ms: drive fault 0x2310");
  wait(milliseconds(99));
  EXPECT_THAT(drain(), IsEmpty());

  wait(milliseconds(2));

  EXPECT_EQ(drain(), (std::vector<CanFrame>{{0x085, 8, {0x10, 0x23, 0x01, 0x40, 0x60}}}));
  EXPECT_EQ(read(0x603F), "ok " + std::to_string(0x2310) + " in 2");
  EXPECT_EQ(read(0x6041), "ok " + std::to_string(0x0218) + " in 2");
}

TEST_F(NodeFaultsTest, fault_begins_in_the_midst_of_a_long_tick) {
  start("node 5 at 100 ms: drive fault 0x2310");
  std::vector<CanFrame> frames;

  node.tick(milliseconds(1000), frames);

  EXPECT_EQ(frames, (std::vector<CanFrame>{{0x085, 8, {0x10, 0x23, 0x01, 0x40, 0x60}}}));
  EXPECT_THAT(node.device().object_value(0x6041, 0), testing::Optional(ElementsAre(0x18, 0x02)))
      << "time went on behind it";
  EXPECT_THAT(effects(), ElementsAre("0@100"));
}

TEST_F(NodeFaultsTest, restart_boots_the_node_with_its_start_values) {
  start("node 5 after 2 writes of 0x2000/1: restart");
  write(0x2000, 1, {8, 0});
  EXPECT_EQ(read(0x2000, 1), "ok 8 in 2");
  NmtMaster(bus).send(NmtCommand::start, 5);
  drain();
  server.poll(milliseconds(0));
  drain();

  EXPECT_EQ(write(0x2000, 1, {9, 0}), "ok") << "answered before";

  EXPECT_THAT(drain(), ElementsAre(CanFrame{0x705, 1, {0}}));
  EXPECT_EQ(node.state(), NmtState::pre_operational);
  EXPECT_EQ(read(0x2000, 1), "ok 0 in 2");
  EXPECT_THAT(effects(), ElementsAre("0@0"));
}

TEST_F(NodeFaultsTest, time_goes_on_over_a_restart) {
  start("node 5 at 100 ms: restart\nnode 5 at 200 ms: restart");

  wait(milliseconds(1000));

  EXPECT_EQ(drain().size(), 2U);
  EXPECT_THAT(effects(), ElementsAre("0@100", "1@200"));
}

TEST_F(NodeFaultsTest, heartbeats_stop_and_go_on) {
  start("node 5 at 250 ms: no heartbeat for 200 ms\nnode 5 at 320 ms: restart");
  node.device().set_object_value(0x1017, 0, {100, 0});
  node.device().hold_object(0x1017, 0);

  wait(milliseconds(245));
  EXPECT_EQ(drain().size(), 2U);
  wait(milliseconds(200));
  EXPECT_EQ(drain(), (std::vector<CanFrame>{{0x705, 1, {0}}})) << "the boot-up message alone";
  wait(milliseconds(100));

  EXPECT_EQ(drain(), (std::vector<CanFrame>{{0x705, 1, {0x7F}}}));
  EXPECT_THAT(effects(), ElementsAre("0@300", "1@320")) << "when the first one was left out";
}

TEST_F(NodeFaultsTest, heartbeat_that_nobody_asked_for_is_not_missed) {
  start("node 5 at 100 ms: no heartbeat");

  wait(milliseconds(500));

  EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(NodeFaultsTest, abandoned_transfer_counts_when_the_next_begins) {
  start("node 5 after 1 read of 0x2100/0: no answer in reads of 0x6041/0");
  std::vector<CanFrame> answers;
  node.receive(sdo_frame(0x605, 0x40, {0x2100, 0}), answers);
  EXPECT_EQ(answers.size(), 1U);

  EXPECT_EQ(read(0x6041), no_answer_text);
}

TEST_F(NodeFaultsTest, hold_after_an_abandoned_transfer_holds_before_the_next) {
  start("node 5 after 1 read of 0x2100/0: hold 0x2000/1");
  const std::string before = read(0x2000, 1);
  std::vector<CanFrame> answers;
  node.receive(sdo_frame(0x605, 0x40, {0x2100, 0}), answers);

  EXPECT_EQ(write(0x2000, 1, {7, 0}), "ok");
  EXPECT_EQ(read(0x2000, 1), before);
}

TEST_F(NodeFaultsTest, late_answer_ends_with_its_fault) {
  start("node 5 at 0 s: answer 100 ms late from then on");
  std::vector<CanFrame> frames;
  node.receive(sdo_frame(0x605, 0x40, {0x6041, 0}), frames);
  node.set_faults({});
  node.tick(milliseconds(200), frames);
  EXPECT_THAT(frames, IsEmpty());
}

TEST_F(NodeFaultsTest, request_that_is_cut_off_is_ignored) {
  start("node 5 at 0 s: abort 0x08000000");
  std::vector<CanFrame> answers;

  node.receive({0x605, 3, {0x40, 0x41, 0x60}}, answers);

  EXPECT_THAT(answers, IsEmpty());
  EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(NodeFaultsTest, block_transfer_is_struck_as_others_are) {
  start("node 5 at 0 s: no answer");
  std::vector<CanFrame> answers;

  node.receive(sdo_frame(0x605, 0xA4, {0x6041, 0}), answers);

  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(NodeFaultsTest, one_fault_of_a_kind_strikes_a_transfer) {
  start("node 5 at 0 s: abort 0x08000000\nnode 5 at 0 s: abort 0x06060000");

  EXPECT_EQ(read(0x6041), "abort 0x08000000, general error");
  EXPECT_EQ(read(0x6041), "abort 0x06060000, a hardware error of the node");
  EXPECT_EQ(read(0x6041), "ok 592 in 2");
}

TEST_F(NodeFaultsTest, faults_of_other_nodes_are_not_its_own) {
  Fault others;
  others.node_id = 6;
  others.kind = FaultKind::no_answer;
  node.set_faults({others});
  server.boot();

  EXPECT_EQ(read(0x6041), "ok 592 in 2");
}

TEST_F(NodeFaultsTest, new_faults_take_the_place_of_old_ones) {
  start("node 5 at 0 s: hold 0x2000/1\nnode 5 at 0 s: no answer from then on");

  node.set_faults({});

  EXPECT_EQ(write(0x2000, 1, {8, 0}), "ok");
  EXPECT_EQ(read(0x2000, 1), "ok 8 in 2");
}

TEST_F(NodeFaultsTest, time_of_faults_that_come_later_begins_with_them) {
  server.boot();
  wait(milliseconds(500));
  Fault fault;
  fault.node_id = 5;
  fault.at = milliseconds(100);
  fault.kind = FaultKind::restart;
  node.set_faults({fault});
  drain();

  wait(milliseconds(99));
  EXPECT_THAT(drain(), IsEmpty());
  wait(milliseconds(2));

  EXPECT_THAT(drain(), ElementsAre(CanFrame{0x705, 1, {0}}));
}

TEST_F(NodeFaultsTest, faults_strike_on_a_bus_inside_the_process_too) {
  InProcessBus other{BusTime::simulated};
  SimulatedBusNode device(6, faulty_board());
  InProcessNode on_bus(other, device);
  const FaultScript faults = parse_fault_script("node 6 at 1 s: abort 0x08000000", {&device});
  ASSERT_TRUE(faults);
  device.set_faults(*faults);
  on_bus.boot();
  CanBusBackend client(other);
  Bytes data;
  EXPECT_TRUE(client.sdo_read(6, 0x6041, 0, data));

  on_bus.tick(milliseconds(1000));

  EXPECT_FALSE(client.sdo_read(6, 0x6041, 0, data));
  EXPECT_EQ(client.last_error(6)->text, "abort 0x08000000, general error");
}

}  // namespace
}  // namespace velmora_can_bridge
