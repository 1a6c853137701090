#include "velmora_can_bridge/bus/network_management.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/passing_endpoint.hpp"
#include "support/patience.hpp"
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

  /// Lets simulated time pass, while nobody polls.
  void pass(nanoseconds time) {
    CanFrame frame;
    ASSERT_EQ(sender->receive(frame, time), CanStatus::timed_out);
  }

  /// Emergencies of node 0x7F, the first after `apart` from now, each further one that much later.
  void flood(int count, nanoseconds apart) {
    nanoseconds delay{0};
    bus.set_fault_rule([&](const CanFrame& frame) {
      delay += apart;
      return std::vector<CanDelivery>{{frame, delay}};
    });
    for (int number = 0; number < count; ++number) {
      send(0x0FF, "10 81 11 00 00 00 00 00");
    }
    bus.set_fault_rule({});
  }

  std::ptrdiff_t count_of(NodeEventKind kind) const {
    return std::count_if(events.begin(), events.end(),
                         [&](const NodeEvent& event) { return event.kind == kind; });
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
  /// How long the observer takes for each.
  milliseconds handling_time{0};
  NodeWatch watch{bus, heartbeat_timeout, [this](const NodeEvent& event) {
                    events.push_back(event);
                    times.push_back(time());
                    if (handling_time > milliseconds(0)) {
                      pass(handling_time);
                    }
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

struct NodeStateCase {
  std::string name;
  std::string heartbeat;
  NmtState state;
  std::string text;
};

void PrintTo(const NodeStateCase& row, std::ostream* out) { *out << row.name; }

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
  for (int beat = 0; beat < 5; ++beat) {
    pass(milliseconds(299));
    send(0x701, "05");
    send(0x702, "05");
  }
  pass(milliseconds(299));

  watch.poll(milliseconds(0));

  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(NodeWatchTest, node_that_was_silent_too_long_is_lost_and_back_however_late_the_poll) {
  show(0x710, "05");
  pass(milliseconds(301));
  send(0x710, "05");
  pass(milliseconds(100));

  watch.poll(milliseconds(0));

  EXPECT_THAT(texts(),
              ElementsAre("node 0x10 is operational", "node 0x10 is lost: no heartbeat for 300 ms",
                          "node 0x10 is operational"));
}

TEST_F(NodeWatchTest, heartbeat_in_time_behind_that_of_another_node_is_waited_for) {
  show(0x701, "05");
  show(0x702, "05");
  events.clear();
  pass(heartbeat_timeout);
  send(0x701, "05");
  send(0x702, "05");

  watch.poll(milliseconds(0));

  EXPECT_THAT(texts(), IsEmpty()) << "both came with the last moment of their time";
}

TEST_F(NodeWatchTest, silent_node_is_lost_although_the_queue_is_never_empty) {
  show(0x710, "05");
  handling_time = milliseconds(1);
  flood(1000, milliseconds(1));

  watch.poll(milliseconds(900));

  ASSERT_EQ(count_of(NodeEventKind::lost), 1);
  EXPECT_EQ(events.at(301).kind, NodeEventKind::lost) << "after the 300th emergency";
  EXPECT_EQ(times.at(301), milliseconds(301)) << "with the first frame after its time";
}

TEST_F(NodeWatchTest, silent_node_is_lost_by_the_arrival_of_what_waits_behind_a_slow_observer) {
  show(0x710, "05");
  handling_time = milliseconds(2);
  flood(1000, milliseconds(1));

  watch.poll(milliseconds(900));

  ASSERT_EQ(count_of(NodeEventKind::lost), 1);
  EXPECT_EQ(events.at(301).kind, NodeEventKind::lost) << "as if the observer took no time";
  EXPECT_EQ(times.at(301), milliseconds(601)) << "which made 2 ms of each";
}

TEST_F(NodeWatchTest, heartbeat_that_waits_behind_a_flood_is_not_taken_for_silence) {
  show(0x710, "05");
  handling_time = milliseconds(2);
  flood(298, milliseconds(1));
  bus.set_fault_rule([](const CanFrame& frame) {
    return std::vector<CanDelivery>{{frame, milliseconds(299)}};
  });
  send(0x710, "04");
  bus.set_fault_rule({});

  for (int polls = 0; polls < 300 && watch.state(16) != NmtState::stopped; ++polls) {
    watch.poll(milliseconds(1));
  }

  EXPECT_EQ(times.back(), milliseconds(597)) << "handled long after its time-out";
  EXPECT_EQ(count_of(NodeEventKind::emergency), 298);
  EXPECT_EQ(count_of(NodeEventKind::lost), 0);
}

/// Says of its endpoints what a test wants to hear: losses, and what happens when they are asked
/// for the time.
class TellingChannel : public CanChannel {
 public:
  explicit TellingChannel(CanChannel& channel) : channel_(&channel) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(*this, channel_->open(filters));
  }

  std::uint64_t lost = 0;
  std::function<void()> asked_for_time = [] {};

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(const TellingChannel& channel, std::unique_ptr<CanEndpoint> endpoint)
        : PassingEndpoint(std::move(endpoint)), channel_(&channel) {}

    CanArrival arrival() const override {
      channel_->asked_for_time();
      return {PassingEndpoint::arrival().time, channel_->lost};
    }
    std::chrono::steady_clock::time_point now() const override {
      channel_->asked_for_time();
      return PassingEndpoint::now();
    }

   private:
    const TellingChannel* const channel_;
  };

  CanChannel* const channel_;
};

/// A watch whose endpoint has lost frames.
class NodeWatchAfterLossTest : public NodeWatchTest {
 protected:
  /// A frame of another node, and the news that some were lost before it.
  void show_loss() {
    ++channel.lost;
    send(0x0FF, "10 81 11 00 00 00 00 00");
    lossy.poll(milliseconds(0));
  }

  void beat() {
    send(0x710, "05");
    lossy.poll(milliseconds(0));
  }

  /// When node 0x10 is lost, if it is within a second.
  std::optional<milliseconds> lost_at() {
    lossy.poll(milliseconds(1000));
    return lost_at_;
  }

  std::optional<milliseconds> lost_at_;
  std::vector<std::string> losses_;
  bool loses_with_each_emergency_ = false;
  TellingChannel channel{bus};
  NodeWatch lossy{channel, heartbeat_timeout, [this](const NodeEvent& event) {
                    if (event.kind == NodeEventKind::lost) {
                      lost_at_ = time();
                    }
                    if (event.kind == NodeEventKind::frames_lost) {
                      losses_.push_back(event.text);
                    }
                    if (event.kind == NodeEventKind::emergency && loses_with_each_emergency_) {
                      ++channel.lost;
                    }
                  }};
};

TEST_F(NodeWatchAfterLossTest, node_is_judged_a_whole_timeout_after_the_loss) {
  beat();
  pass(milliseconds(200));
  show_loss();

  EXPECT_EQ(lost_at(), milliseconds(500));
}

TEST_F(NodeWatchAfterLossTest, further_losses_do_not_put_it_off) {
  beat();
  for (int loss = 0; loss < 10; ++loss) {
    pass(milliseconds(90));
    show_loss();
  }

  EXPECT_EQ(lost_at(), milliseconds(450)) << "first loss at 90 ms, told with the frame at 450 ms";
}

TEST_F(NodeWatchAfterLossTest, heartbeat_ends_the_delay) {
  beat();
  pass(milliseconds(100));
  show_loss();
  pass(milliseconds(50));
  beat();

  EXPECT_EQ(lost_at(), milliseconds(450));
}

TEST_F(NodeWatchAfterLossTest, loss_after_a_heartbeat_counts_anew) {
  beat();
  show_loss();
  pass(milliseconds(100));
  beat();
  pass(milliseconds(200));
  show_loss();

  EXPECT_EQ(lost_at(), milliseconds(600));
}

TEST_F(NodeWatchAfterLossTest, frame_that_tells_of_the_loss_is_not_judged_against) {
  beat();
  pass(milliseconds(400));
  show_loss();

  EXPECT_EQ(lost_at(), milliseconds(700));
}

TEST_F(NodeWatchAfterLossTest, loss_with_no_frame_behind_it_counts) {
  beat();
  pass(milliseconds(200));
  ++channel.lost;
  lossy.poll(milliseconds(0));

  EXPECT_EQ(lost_at(), milliseconds(500));
}

TEST_F(NodeWatchAfterLossTest, loss_that_shows_at_the_end_of_a_wait_counts) {
  beat();
  ++channel.lost;

  EXPECT_EQ(lost_at(), milliseconds(600)) << "the wait ends with the first time-out";
}

TEST_F(NodeWatchAfterLossTest, losses_of_a_moment_are_told_at_once_and_at_the_end_of_the_poll) {
  loses_with_each_emergency_ = true;
  for (int emergency = 0; emergency < 4; ++emergency) {
    send(0x0FF, "10 81 11 00 00 00 00 00");
  }
  lossy.poll(milliseconds(0));
  lossy.poll(milliseconds(0));

  EXPECT_THAT(losses_, ElementsAre("frames came faster than they were taken: 1 lost so far",
                                   "frames came faster than they were taken: 4 lost so far"));
}

TEST_F(NodeWatchAfterLossTest, losses_that_go_on_are_told_every_100_ms_of_a_long_poll) {
  loses_with_each_emergency_ = true;
  flood(35, milliseconds(10));
  lossy.poll(milliseconds(1000));

  EXPECT_EQ(channel.lost, 35U);
  EXPECT_EQ(losses_.size(), 5U) << "after 10, 110, 210 and 310 ms, and at the end";
}

TEST_F(NodeWatchAfterLossTest, loss_is_told_by_the_poll_that_sees_it) {
  beat();
  EXPECT_THAT(losses_, testing::IsEmpty());
  show_loss();
  show_loss();
  beat();

  EXPECT_THAT(losses_, ElementsAre("frames came faster than they were taken: 1 lost so far",
                                   "frames came faster than they were taken: 2 lost so far"));
}

TEST_F(NodeWatchTest, observer_that_throws_loses_the_news_of_no_other_node) {
  int told = 0;
  NodeWatch throwing(bus, heartbeat_timeout, [&](const NodeEvent& event) {
    if (event.kind == NodeEventKind::lost && ++told == 1) {
      throw std::runtime_error("of the observer");
    }
  });
  send(0x705, "05");
  send(0x706, "05");
  throwing.poll(milliseconds(0));
  EXPECT_THROW(throwing.poll(milliseconds(1000)), std::runtime_error);
  EXPECT_EQ(told, 1);

  throwing.poll(milliseconds(1));
  EXPECT_EQ(told, 2);
}

TEST_F(NodeWatchTest, asks_its_endpoint_nothing_with_its_lock_held) {
  TellingChannel channel(bus);
  NodeWatch watched(channel, heartbeat_timeout, {});
  // As handlers on an in-process bus might ask, which run with that bus locked. Kept, as one that
  // is not answered must not be waited for.
  std::vector<std::future<std::optional<NmtState>>> questions;
  bool is_answered = true;
  channel.asked_for_time = [&] {
    if (is_answered) {
      questions.push_back(std::async(std::launch::async, [&] { return watched.state(16); }));
      is_answered = is_done(questions.back());
    }
  };
  send(0x710, "05");

  watched.poll(2 * heartbeat_timeout);

  EXPECT_TRUE(is_answered);
  EXPECT_GT(questions.size(), 3U);
  EXPECT_EQ(watched.state(16), std::nullopt) << "seen, and lost again";
}

TEST_F(NodeWatchTest, needs_no_observer) {
  NodeWatch silent(bus, heartbeat_timeout, {});
  send(0x705, "05");
  send(0x085, "10 82 11 00 00 00 00 00");
  bus.set_state(CanStatus::interface_down);

  silent.poll(2 * heartbeat_timeout);

  EXPECT_EQ(silent.state(5), std::nullopt) << "seen, and lost again";
}

class NodeStateTest : public NodeWatchTest, public testing::WithParamInterface<NodeStateCase> {};

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
        NodeStateCase{"stopped", "04", NmtState::stopped, "node 0x10 is stopped"},
        NodeStateCase{"operational", "05", NmtState::operational, "node 0x10 is operational"},
        NodeStateCase{"pre_operational", "7F", NmtState::pre_operational,
                      "node 0x10 is pre-operational"},
        NodeStateCase{"toggle_bit_of_node_guarding", "85", NmtState::operational,
                      "node 0x10 is operational"},
        NodeStateCase{"unknown", "09", static_cast<NmtState>(9), "node 0x10 is unknown state"}),
    [](const testing::TestParamInfo<NodeStateCase>& row) { return row.param.name; });

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

TEST_F(NodeWatchTest, emergency_of_a_node_that_was_never_heard_has_the_state_of_the_start) {
  show(0x710, "05");
  show(0x091, "10 81 11 01 02 03 04 FF");

  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[1].node_id, 17);
  EXPECT_EQ(events[1].state, NmtState::boot_up);
  EXPECT_EQ(watch.state(17), std::nullopt) << "no sign of life";
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
  EXPECT_EQ(events[0].status, GetParam().status);
  EXPECT_EQ(events[0].text, GetParam().text);
  EXPECT_EQ(time(), milliseconds(100)) << "the poll goes on to its end";
}

TEST_P(WatchedBusTest, end_of_trouble_is_told_with_the_first_frame) {
  bus.set_state(GetParam().status);
  watch.poll(milliseconds(0));
  bus.set_state(CanStatus::error_passive);
  watch.poll(milliseconds(0));
  bus.set_state(CanStatus::ok);
  watch.poll(milliseconds(0));
  events.clear();

  show(0x710, "00");
  show(0x710, "00");

  std::vector<std::string> expected{"node 0x10 has started", "node 0x10 has started"};
  if (GetParam().status != CanStatus::error_passive) {
    expected.insert(expected.begin(), "interface vcan0 works");
    EXPECT_EQ(events[0].kind, NodeEventKind::bus);
    EXPECT_EQ(events[0].node_id, 0);
    EXPECT_EQ(events[0].status, CanStatus::ok);
  }
  EXPECT_EQ(texts(), expected);
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
                     "there is no interface vcan0 (ip link add dev vcan0 type vcan)"},
        BusStateCase{"failed", CanStatus::failed, "vcan0 refuses the frame"}),
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
  std::size_t events_seen = 0;
  NodeWatch busy(bus, milliseconds(0), [&](const NodeEvent& /*event*/) {
    ++events_seen;
    send(0x710, "00");
  });
  send(0x710, "00");

  busy.poll(milliseconds(0));

  EXPECT_EQ(events_seen, InProcessBus::queue_limit);
}

TEST_F(NodeWatchTest, poll_takes_no_frame_once_its_time_has_passed) {
  handling_time = milliseconds(10);
  for (int count = 0; count < 100; ++count) {
    send(0x710, "00");
  }

  watch.poll(milliseconds(50));
  EXPECT_EQ(events.size(), 5U);
  EXPECT_EQ(time(), milliseconds(50));

  watch.poll(milliseconds(1));
  EXPECT_EQ(events.size(), 6U);
  EXPECT_EQ(time(), milliseconds(60));
}

TEST_F(NodeWatchTest, poll_without_time_takes_all_that_came_before_however_long_it_takes) {
  handling_time = milliseconds(10);
  for (int count = 0; count < 100; ++count) {
    send(0x710, "00");
  }

  watch.poll(milliseconds(0));

  EXPECT_EQ(events.size(), 100U);
}

TEST_F(NodeWatchTest, poll_without_time_ends_with_the_first_frame_that_came_after_its_begin) {
  handling_time = milliseconds(1);
  send(0x710, "00");
  send(0x710, "00");
  flood(100, milliseconds(1));

  watch.poll(milliseconds(0));

  EXPECT_EQ(count_of(NodeEventKind::booted), 2);
  EXPECT_EQ(count_of(NodeEventKind::emergency), 1);
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
