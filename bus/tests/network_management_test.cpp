#include "velmora_can_bridge/bus/network_management.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

struct CommandCase {
  std::string name;
  NmtCommand command;
  std::uint8_t node_id;
  std::string bytes;
};

void PrintTo(const CommandCase& row, std::ostream* out) { *out << row.name; }

class NmtCommandTest : public testing::TestWithParam<CommandCase> {};

TEST_P(NmtCommandTest, is_one_frame_of_two_bytes) {
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  NmtMaster master(bus);

  EXPECT_FALSE(master.send(GetParam().command, GetParam().node_id));

  EXPECT_THAT(received(*bystander), ElementsAre(frame_of(0x000, GetParam().bytes)));
}

INSTANTIATE_TEST_SUITE_P(
    all, NmtCommandTest,
    testing::Values(CommandCase{"start", NmtCommand::start, 5, "01 05"},
                    CommandCase{"stop", NmtCommand::stop, 5, "02 05"},
                    CommandCase{"enter_pre_operational", NmtCommand::enter_pre_operational, 5,
                                "80 05"},
                    CommandCase{"reset_node", NmtCommand::reset_node, 5, "81 05"},
                    CommandCase{"reset_communication", NmtCommand::reset_communication, 5, "82 05"},
                    CommandCase{"to_all", NmtCommand::start, 0, "01 00"},
                    CommandCase{"to_the_first", NmtCommand::start, 1, "01 01"},
                    CommandCase{"to_the_last", NmtCommand::start, 127, "01 7F"}),
    [](const testing::TestParamInfo<CommandCase>& row) { return row.param.name; });

TEST(NmtMasterTest, node_id_that_is_none_is_refused_and_not_sent) {
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  NmtMaster master(bus);
  for (const unsigned node_id : {128U, 255U}) {
    const auto error = master.send(NmtCommand::stop, static_cast<std::uint8_t>(node_id));

    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, BusErrorKind::not_configured);
    EXPECT_EQ(error->node_id, node_id);
    EXPECT_EQ(error->text,
              "node id " + std::to_string(node_id) + " is not one of 1 to 127, nor 0 for all");
  }
  EXPECT_THAT(received(*bystander), IsEmpty());
}

TEST(NmtMasterTest, bus_that_takes_no_frame_is_an_error_with_its_words) {
  InProcessBus bus(BusTime::simulated, "vcan0");
  NmtMaster master(bus);
  bus.set_state(CanStatus::interface_down);

  const auto error = master.send(NmtCommand::start, 5);

  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::bus_fault);
  EXPECT_EQ(error->node_id, 5);
  EXPECT_EQ(error->index, 0);
  EXPECT_FALSE(error->outcome_unknown);
  EXPECT_EQ(error->text, "interface vcan0 is down (ip link set vcan0 up)");
}

TEST(NmtMasterTest, full_queue_is_waited_for_a_moment) {
  InProcessBus bus(BusTime::simulated);
  NmtMaster master(bus);
  bus.set_state(CanStatus::queue_full);
  const auto clock = bus.open({});
  const auto before = clock->now();

  EXPECT_TRUE(master.send(NmtCommand::start, 5));

  EXPECT_EQ(clock->now() - before, milliseconds(20));
}

constexpr milliseconds heartbeat_timeout{300};

class NodeWatchTest : public testing::Test {
 protected:
  void send(std::uint16_t id, const std::string& bytes) {
    ASSERT_EQ(sender->send(frame_of(id, bytes), nanoseconds(0)), CanStatus::ok);
  }

  /// Sends one frame and lets the watch handle it, in no time.
  void show(std::uint16_t id, const std::string& bytes) {
    send(id, bytes);
    watch.poll(milliseconds(0));
  }

  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    texts.reserve(events.size());
    for (const NodeEvent& event : events) {
      texts.push_back(event.text);
    }
    return texts;
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(sender->now().time_since_epoch());
  }

  InProcessBus bus{BusTime::simulated, "vcan0"};
  std::unique_ptr<CanEndpoint> sender = bus.open({});
  std::vector<NodeEvent> events;
  /// When each event came.
  std::vector<milliseconds> times;
  NodeWatch watch{bus, heartbeat_timeout, [this](const NodeEvent& event) {
                    events.push_back(event);
                    times.push_back(time());
                  }};
};

TEST_F(NodeWatchTest, boot_up_message_tells_that_the_node_has_started) {
  show(0x710, "00");

  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, NodeEventKind::booted);
  EXPECT_EQ(events[0].node_id, 16);
  EXPECT_EQ(events[0].state, NmtState::boot_up);
  EXPECT_EQ(events[0].text, "node 0x10 has started");
  EXPECT_EQ(watch.state(16), NmtState::boot_up);
}

TEST_F(NodeWatchTest, every_boot_up_message_is_told) {
  show(0x710, "00");
  show(0x710, "00");

  EXPECT_THAT(texts(), ElementsAre("node 0x10 has started", "node 0x10 has started"));
}

struct StateCase {
  std::string name;
  std::string heartbeat;
  NmtState state;
  std::string text;
};

void PrintTo(const StateCase& row, std::ostream* out) { *out << row.name; }

TEST_F(NodeWatchTest, node_that_boots_and_sends_no_heartbeats_is_not_lost) {
  show(0x705, "00");

  watch.poll(3 * heartbeat_timeout);

  EXPECT_EQ(texts(), std::vector<std::string>{"node 0x05 has started"});
  EXPECT_EQ(watch.state(5), NmtState::boot_up);
}

TEST_F(NodeWatchTest, nobody_is_lost_whose_heartbeats_wait_to_be_received) {
  show(0x701, "05");
  show(0x702, "05");
  events.clear();
  CanFrame frame;
  sender->receive(frame, 2 * heartbeat_timeout);  // nobody polls meanwhile
  send(0x701, "05");
  send(0x702, "05");

  watch.poll(milliseconds(0));

  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(NodeWatchTest, needs_no_observer) {
  NodeWatch silent(bus, heartbeat_timeout, {});
  send(0x705, "05");
  send(0x085, "10 82 11 00 00 00 00 00");
  bus.set_state(CanStatus::interface_down);

  silent.poll(2 * heartbeat_timeout);

  EXPECT_EQ(silent.state(5), std::nullopt) << "seen, and lost again";
}

class NodeStateTest : public NodeWatchTest, public testing::WithParamInterface<StateCase> {};

TEST_P(NodeStateTest, first_heartbeat_is_told_and_its_repetition_not) {
  show(0x710, GetParam().heartbeat);
  show(0x710, GetParam().heartbeat);

  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, NodeEventKind::state_changed);
  EXPECT_EQ(events[0].node_id, 16);
  EXPECT_EQ(events[0].state, GetParam().state);
  EXPECT_EQ(events[0].text, GetParam().text);
  EXPECT_EQ(watch.state(16), GetParam().state);
}

INSTANTIATE_TEST_SUITE_P(
    all, NodeStateTest,
    testing::Values(
        StateCase{"stopped", "04", NmtState::stopped, "node 0x10 is stopped"},
        StateCase{"operational", "05", NmtState::operational, "node 0x10 is operational"},
        StateCase{"pre_operational", "7F", NmtState::pre_operational,
                  "node 0x10 is pre-operational"},
        StateCase{"toggle_bit_of_node_guarding", "85", NmtState::operational,
                  "node 0x10 is operational"},
        StateCase{"unknown", "09", static_cast<NmtState>(9), "node 0x10 is unknown state"}),
    [](const testing::TestParamInfo<StateCase>& row) { return row.param.name; });

TEST_F(NodeWatchTest, each_change_of_state_is_told) {
  show(0x710, "00");
  show(0x710, "7F");
  show(0x710, "05");
  show(0x710, "05");
  show(0x710, "04");

  EXPECT_THAT(texts(), ElementsAre("node 0x10 has started", "node 0x10 is pre-operational",
                                   "node 0x10 is operational", "node 0x10 is stopped"));
}

TEST_F(NodeWatchTest, nodes_have_states_of_their_own) {
  show(0x701, "05");
  show(0x77F, "04");

  EXPECT_EQ(watch.state(1), NmtState::operational);
  EXPECT_EQ(watch.state(127), NmtState::stopped);
  EXPECT_EQ(watch.state(2), std::nullopt) << "never heard of";
}

TEST_F(NodeWatchTest, ids_of_no_node_have_no_state) {
  show(0x700, "05");

  EXPECT_THAT(texts(), IsEmpty());
  for (const unsigned node_id : {0U, 128U, 255U}) {
    EXPECT_EQ(watch.state(static_cast<std::uint8_t>(node_id)), std::nullopt) << node_id;
  }
}

TEST_F(NodeWatchTest, frames_that_are_none_of_its_own_say_nothing) {
  show(0x710, "");
  show(0x710, "05 00");
  show(0x080, "");                         // SYNC
  show(0x090, "10 81 11 00 00 00 00");     // an emergency is 8 bytes
  show(0x100, "00 00 00 00 00 00 00 00");  // TIME
  show(0x190, "01 02 03 04 05 06 07 08");
  show(0x590, "43 00 20 01 00 00 00 00");
  show(0x000, "01 10");

  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_EQ(watch.state(16), std::nullopt);
}

TEST_F(NodeWatchTest, node_is_lost_when_its_heartbeats_stay_away) {
  show(0x710, "05");

  watch.poll(milliseconds(1000));

  ASSERT_EQ(events.size(), 2U) << "told once";
  EXPECT_EQ(events[1].kind, NodeEventKind::lost);
  EXPECT_EQ(events[1].node_id, 16);
  EXPECT_EQ(events[1].text, "node 0x10 is lost: no heartbeat for 300 ms");
  EXPECT_EQ(times[1], heartbeat_timeout) << "neither earlier nor when the poll ends";
  EXPECT_EQ(watch.state(16), std::nullopt);
  EXPECT_EQ(time(), milliseconds(1000)) << "the poll goes on to its end";
}

TEST_F(NodeWatchTest, heartbeat_in_time_keeps_the_node) {
  show(0x710, "05");
  for (int beat = 0; beat < 5; ++beat) {
    watch.poll(milliseconds(299));
    show(0x710, "05");
  }

  EXPECT_THAT(texts(), ElementsAre("node 0x10 is operational"));
  EXPECT_EQ(watch.state(16), NmtState::operational);
}

TEST_F(NodeWatchTest, node_that_is_lost_may_come_back) {
  show(0x710, "05");
  watch.poll(milliseconds(300));
  show(0x710, "05");

  EXPECT_THAT(texts(),
              ElementsAre("node 0x10 is operational", "node 0x10 is lost: no heartbeat for 300 ms",
                          "node 0x10 is operational"));
  EXPECT_EQ(watch.state(16), NmtState::operational);
}

TEST_F(NodeWatchTest, each_node_is_lost_at_its_own_time) {
  show(0x701, "05");
  watch.poll(milliseconds(100));
  show(0x77F, "05");
  watch.poll(milliseconds(1000));

  EXPECT_THAT(texts(), ElementsAre("node 0x01 is operational", "node 0x7F is operational",
                                   "node 0x01 is lost: no heartbeat for 300 ms",
                                   "node 0x7F is lost: no heartbeat for 300 ms"));
  EXPECT_THAT(
      times, ElementsAre(milliseconds(0), milliseconds(100), milliseconds(300), milliseconds(400)));
}

TEST_F(NodeWatchTest, node_that_was_never_heard_of_is_not_lost) {
  watch.poll(milliseconds(1000));

  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(NodeWatchTest, without_a_timeout_no_node_is_lost) {
  std::vector<NodeEventKind> kinds;
  for (const milliseconds timeout : {milliseconds(0), milliseconds(-1), milliseconds::min()}) {
    NodeWatch patient(bus, timeout, [&](const NodeEvent& event) { kinds.push_back(event.kind); });
    send(0x710, "05");
    patient.poll(std::chrono::hours(1));
    EXPECT_THAT(kinds, ElementsAre(NodeEventKind::state_changed));
    EXPECT_EQ(patient.state(16), NmtState::operational);
    kinds.clear();
  }
}

TEST_F(NodeWatchTest, longest_times_do_no_harm) {
  std::vector<NodeEventKind> kinds;
  NodeWatch patient(bus, milliseconds::max(),
                    [&](const NodeEvent& event) { kinds.push_back(event.kind); });
  send(0x710, "05");

  patient.poll(std::chrono::hours(1));
  EXPECT_THAT(kinds, ElementsAre(NodeEventKind::state_changed));
  patient.poll(milliseconds::max());
  EXPECT_GE(time(), std::chrono::hours(24 * 365));
}

TEST_F(NodeWatchTest, emergency_is_told_with_its_bytes) {
  show(0x710, "05");
  show(0x090, "10 81 11 01 02 03 04 FF");

  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[1].kind, NodeEventKind::emergency);
  EXPECT_EQ(events[1].node_id, 16);
  EXPECT_EQ(events[1].state, NmtState::operational) << "as last seen";
  EXPECT_THAT(events[1].data, ElementsAre(0x10, 0x81, 0x11, 1, 2, 3, 4, 0xFF));
  EXPECT_EQ(events[1].text,
            "node 0x10 reports error 0x8110, error register 0x11, data 01 02 03 04 FF");
}

TEST_F(NodeWatchTest, emergency_without_a_code_tells_that_the_error_is_over) {
  show(0x0FF, "00 00 01 00 00 00 00 00");

  EXPECT_THAT(texts(), ElementsAre("node 0x7F has no error any more, error register 0x01, data 00 "
                                   "00 00 00 00"));
}

TEST_F(NodeWatchTest, emergency_is_no_sign_of_life) {
  show(0x710, "05");
  watch.poll(milliseconds(200));
  show(0x090, "10 81 11 01 02 03 04 FF");
  watch.poll(milliseconds(100));

  EXPECT_EQ(events.back().kind, NodeEventKind::lost);
  EXPECT_EQ(watch.state(16), std::nullopt);
}

struct BusStateCase {
  std::string name;
  CanStatus status;
  std::string text;
};

void PrintTo(const BusStateCase& row, std::ostream* out) { *out << row.name; }

class WatchedBusTest : public NodeWatchTest, public testing::WithParamInterface<BusStateCase> {};

TEST_P(WatchedBusTest, state_of_the_bus_is_told_once) {
  bus.set_state(GetParam().status);
  watch.poll(milliseconds(100));

  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, NodeEventKind::bus);
  EXPECT_EQ(events[0].node_id, 0);
  EXPECT_EQ(events[0].text, GetParam().text);
  EXPECT_EQ(time(), milliseconds(100)) << "the poll goes on to its end";
}

INSTANTIATE_TEST_SUITE_P(
    all, WatchedBusTest,
    testing::Values(
        BusStateCase{"bus_off", CanStatus::bus_off,
                     "vcan0 is bus-off after too many errors: check wiring, termination and bit "
                     "rate, then ip link set vcan0 type can restart"},
        BusStateCase{"error_passive", CanStatus::error_passive,
                     "vcan0 is error-passive: check wiring, termination and bit rate"},
        BusStateCase{"down", CanStatus::interface_down,
                     "interface vcan0 is down (ip link set vcan0 up)"},
        BusStateCase{"missing", CanStatus::interface_missing,
                     "there is no interface vcan0 (ip link add dev vcan0 type vcan)"}),
    [](const testing::TestParamInfo<BusStateCase>& row) { return row.param.name; });

TEST_F(NodeWatchTest, poll_without_time_handles_all_that_has_come) {
  send(0x701, "05");
  send(0x702, "05");
  send(0x703, "05");

  watch.poll(milliseconds(0));

  EXPECT_EQ(events.size(), 3U);
  EXPECT_EQ(time(), milliseconds(0));
}

TEST_F(NodeWatchTest, poll_takes_its_time_however_much_comes) {
  bus.set_fault_rule([](const CanFrame& frame) {
    return std::vector<CanDelivery>{{frame, milliseconds(frame.data[0])}};
  });
  send(0x710, "04");
  send(0x711, "05");
  send(0x712, "7F");

  watch.poll(milliseconds(50));
  EXPECT_THAT(times, ElementsAre(milliseconds(4), milliseconds(5)));
  watch.poll(milliseconds(100));
  EXPECT_EQ(times.back(), milliseconds(127));
  EXPECT_EQ(time(), milliseconds(150));
}

TEST_F(NodeWatchTest, poll_ends_although_frames_keep_coming) {
  // Each event makes the next frame come.
  int events_seen = 0;
  NodeWatch busy(bus, milliseconds(0), [&](const NodeEvent& /*event*/) {
    ++events_seen;
    send(0x710, "00");
  });
  send(0x710, "00");

  busy.poll(milliseconds(0));

  EXPECT_GT(events_seen, 100);
}

TEST_F(NodeWatchTest, observer_may_ask_for_the_state) {
  std::optional<NmtState> seen;
  NodeWatch* self = nullptr;
  NodeWatch asked(bus, heartbeat_timeout,
                  [&](const NodeEvent& event) { seen = self->state(event.node_id); });
  self = &asked;
  send(0x710, "05");

  asked.poll(milliseconds(0));
  EXPECT_EQ(seen, NmtState::operational);
  asked.poll(milliseconds(300));
  EXPECT_EQ(seen, std::nullopt) << "told of the loss when it has taken effect";
}

}  // namespace
}  // namespace velmora_can_bridge
