#include "velmora_can_bridge/bus/in_process_bus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/patience.hpp"
#include "test_frames.hpp"

namespace velmora_can_bridge {
namespace {

using Frames = std::vector<CanFrame>;
using Deliveries = std::vector<CanDelivery>;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const CanFrame first = {0x101, 1, {1}};
const CanFrame second = {0x102, 1, {2}};
const CanFrame third = {0x103, 1, {3}};

class InProcessBusTest : public testing::Test {
 protected:
  CanStatus send(const CanFrame& sent, nanoseconds patience = nanoseconds(0)) {
    return sender->send(sent, patience);
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(sender->now().time_since_epoch());
  }

  InProcessBus bus{BusTime::simulated};
  std::unique_ptr<CanEndpoint> sender = bus.open({{0, 0}});
  std::unique_ptr<CanEndpoint> receiver = bus.open({{0, 0}});
  CanFrame frame;
};

TEST_F(InProcessBusTest, frame_has_arrived_when_send_returns) {
  EXPECT_EQ(send(first), CanStatus::ok);

  EXPECT_THAT(received(*receiver), ElementsAre(first));
}

TEST_F(InProcessBusTest, endpoint_knows_whether_a_frame_waits) {
  EXPECT_FALSE(receiver->has_frame());
  send(first);
  send(second);
  EXPECT_TRUE(receiver->has_frame());
  EXPECT_FALSE(sender->has_frame());

  EXPECT_THAT(received(*receiver), ElementsAre(first, second));
  EXPECT_FALSE(receiver->has_frame());
}

TEST_F(InProcessBusTest, simulated_clock_moves_by_waiting_alone) {
  const milliseconds begin = time();
  send(first);
  receiver->receive(frame, milliseconds(100));
  EXPECT_EQ(time() - begin, milliseconds(0)) << "a frame was there";

  EXPECT_EQ(receiver->receive(frame, milliseconds(100)), CanStatus::timed_out);
  EXPECT_EQ(time() - begin, milliseconds(100));
  EXPECT_EQ(receiver->receive(frame, milliseconds(0)), CanStatus::timed_out);
  EXPECT_EQ(time() - begin, milliseconds(100));
}

TEST_F(InProcessBusTest, real_clock_is_the_steady_one) {
  InProcessBus real;
  const auto before = std::chrono::steady_clock::now();
  const auto now = real.open({})->now();

  EXPECT_GE(now, before);
  EXPECT_LE(now, std::chrono::steady_clock::now());
}

TEST_F(InProcessBusTest, wait_for_a_frame_ends_when_it_comes) {
  InProcessBus real;
  const auto waiting = real.open({{0, 0}});
  auto status = std::async(std::launch::async,
                           [&] { return waiting->receive(frame, std::chrono::hours(1)); });
  EXPECT_TRUE(still_waits(status));
  real.open({})->send(first, nanoseconds(0));

  ASSERT_TRUE(is_done(status));
  EXPECT_EQ(status.get(), CanStatus::ok);
  EXPECT_EQ(frame, first);
}

TEST_F(InProcessBusTest, handler_answers_before_send_returns_and_in_its_order) {
  Frames seen;
  const auto node = bus.open({{0x101}}, [&](const CanFrame& request, Frames& answers) {
    seen.push_back(request);
    answers = {second, third};
  });

  send(first);

  EXPECT_THAT(seen, ElementsAre(first)) << "its own answers it does not see";
  EXPECT_THAT(received(*sender), ElementsAre(second, third));
  EXPECT_THAT(received(*receiver), ElementsAre(first, second, third));
}

TEST_F(InProcessBusTest, handlers_answer_one_another) {
  const auto one = bus.open(
      {{0x101}}, [](const CanFrame& /*request*/, Frames& answers) { answers.push_back(second); });
  const auto two = bus.open(
      {{0x102}}, [](const CanFrame& /*request*/, Frames& answers) { answers.push_back(third); });

  send(first);

  EXPECT_THAT(received(*receiver), ElementsAre(first, second, third));
}

TEST_F(InProcessBusTest, handler_sees_only_what_passes_its_filters) {
  Frames seen;
  const auto node = bus.open(
      {{0x102}}, [&](const CanFrame& request, Frames& /*answers*/) { seen.push_back(request); });

  send(first);
  send(second);

  EXPECT_THAT(seen, ElementsAre(second));
}

TEST_F(InProcessBusTest, endpoint_with_a_handler_receives_nothing_and_can_send) {
  const auto node = bus.open({{0, 0}}, [](const CanFrame& /*request*/, Frames& /*answers*/) {});
  send(first);

  EXPECT_EQ(node->receive(frame, milliseconds(1)), CanStatus::timed_out);
  EXPECT_EQ(node->send(second, nanoseconds(0)), CanStatus::ok);
  EXPECT_THAT(received(*receiver), ElementsAre(first, second));
}

TEST_F(InProcessBusTest, answer_that_no_bus_carries_is_dropped) {
  const auto node = bus.open({{0x101}}, [](const CanFrame& /*request*/, Frames& answers) {
    answers = {{0x800, 1, {}}, {0x102, 9, {}}, third};
  });

  send(first);

  EXPECT_THAT(received(*sender), ElementsAre(third));
}

TEST_F(InProcessBusTest, closed_endpoint_is_asked_no_more) {
  int calls = 0;
  bus.open({{0, 0}}, [&](const CanFrame& /*request*/, Frames& /*answers*/) { ++calls; }).reset();

  send(first);

  EXPECT_EQ(calls, 0);
}

TEST_F(InProcessBusTest, frames_beyond_the_queue_are_lost_and_counted) {
  for (std::size_t number = 0; number < InProcessBus::queue_limit; ++number) {
    send({static_cast<std::uint16_t>(number & 0x3FFU), 0, {}});
  }
  EXPECT_EQ(bus.lost_frames(), 0U);
  send({0x555, 0, {}});
  EXPECT_EQ(bus.lost_frames(), 1U);

  const Frames frames = received(*receiver);
  ASSERT_EQ(frames.size(), InProcessBus::queue_limit);
  EXPECT_EQ(frames.front().id, 0);
  EXPECT_EQ(frames.back().id, (InProcessBus::queue_limit - 1) & 0x3FFU);
  send(first);
  EXPECT_THAT(received(*receiver), ElementsAre(first));
}

TEST_F(InProcessBusTest, frame_that_was_received_makes_room) {
  for (std::size_t number = 0; number < InProcessBus::queue_limit; ++number) {
    send(first);
  }
  receiver->receive(frame, nanoseconds(0));
  send(second);

  EXPECT_EQ(bus.lost_frames(), 0U);
}

TEST_F(InProcessBusTest, arrival_is_the_time_at_which_the_frame_came) {
  receiver->note_arrivals();
  bus.set_fault_rule([](const CanFrame& sent) {
    return Deliveries{{sent, milliseconds(sent == first ? 0 : 20)}};
  });
  sender->receive(frame, milliseconds(5));
  send(first);
  send(second);
  sender->receive(frame, milliseconds(100));

  std::vector<nanoseconds> times;
  while (receiver->receive(frame, milliseconds(0)) == CanStatus::ok) {
    times.push_back(receiver->arrival().time.time_since_epoch());
  }
  EXPECT_THAT(times, ElementsAre(milliseconds(5), milliseconds(25)));
}

TEST_F(InProcessBusTest, endpoint_counts_what_it_lost_before_each_frame) {
  receiver->note_arrivals();
  for (std::size_t number = 0; number < InProcessBus::queue_limit + 3; ++number) {
    send(first);
  }
  receiver->receive(frame, milliseconds(0));
  EXPECT_EQ(receiver->arrival().lost, 0U) << "it came before the queue was full";
  send(second);
  send(second);

  while (receiver->receive(frame, milliseconds(0)) == CanStatus::ok && !(frame == second)) {
    ASSERT_EQ(receiver->arrival().lost, 0U);
  }
  EXPECT_EQ(frame, second);
  EXPECT_EQ(receiver->arrival().lost, 3U);

  EXPECT_EQ(receiver->receive(frame, milliseconds(0)), CanStatus::timed_out);
  EXPECT_EQ(receiver->arrival().lost, 4U) << "up to now, with no frame to tell it";
}

TEST_F(InProcessBusTest, queue_that_is_never_empty_keeps_arrivals_beside_their_frames) {
  receiver->note_arrivals();
  send(first);
  for (std::size_t count = 0; count < InProcessBus::queue_limit + 2; ++count) {
    const auto sent_at = receiver->now();
    CanFrame ignored;
    sender->receive(ignored, milliseconds(1));
    send(first);
    ASSERT_EQ(receiver->receive(frame, milliseconds(0)), CanStatus::ok);
    ASSERT_EQ(receiver->arrival().time, sent_at) << count;
  }
}

/// What becomes of three frames in a row when a rule applies to the second.
struct RuleCase {
  std::string name;
  Deliveries deliveries;
  Frames at_once;
  Frames after_10_ms;
};

void PrintTo(const RuleCase& row, std::ostream* out) { *out << row.name; }

class FaultRuleTest : public InProcessBusTest, public testing::WithParamInterface<RuleCase> {};

TEST_P(FaultRuleTest, says_what_is_delivered) {
  bus.set_fault_rule([](const CanFrame& sent) {
    return sent == second ? GetParam().deliveries : Deliveries{{sent}};
  });
  send(first);
  send(second);
  send(third);

  EXPECT_EQ(received(*receiver), GetParam().at_once);
  receiver->receive(frame, milliseconds(9));
  Frames later;
  while (receiver->receive(frame, milliseconds(1)) == CanStatus::ok) {
    later.push_back(frame);
  }
  EXPECT_EQ(later, GetParam().after_10_ms);
}

INSTANTIATE_TEST_SUITE_P(
    all, FaultRuleTest,
    testing::Values(
        RuleCase{"as_it_is", {{second}}, {first, second, third}, {}},
        RuleCase{"lost", {}, {first, third}, {}},
        RuleCase{"doubled", {{second}, {second}}, {first, second, second, third}, {}},
        RuleCase{"corrupted", {{{0x102, 1, {7}}}}, {first, {0x102, 1, {7}}, third}, {}},
        RuleCase{"made_impossible", {{{0x800, 1, {7}}}, {{0x102, 9, {}}}}, {first, third}, {}},
        RuleCase{"late_and_overtaken", {{second, milliseconds(10)}}, {first, third}, {second}},
        RuleCase{"at_once_and_late",
                 {{second}, {first, milliseconds(10)}},
                 {first, second, third},
                 {first}}),
    [](const testing::TestParamInfo<RuleCase>& row) { return row.param.name; });

TEST_F(InProcessBusTest, late_frames_come_at_their_time_in_the_order_of_their_times) {
  bus.set_fault_rule([](const CanFrame& sent) {
    return Deliveries{{sent, milliseconds(sent == first ? 30 : 20)}};
  });
  send(first);
  send(second);
  send(third);

  EXPECT_EQ(receiver->receive(frame, milliseconds(19)), CanStatus::timed_out);
  EXPECT_EQ(receiver->receive(frame, milliseconds(100)), CanStatus::ok);
  EXPECT_EQ(time(), milliseconds(20));
  EXPECT_EQ(frame, second);
  EXPECT_THAT(received(*receiver), ElementsAre(third));
  EXPECT_EQ(receiver->receive(frame, milliseconds(100)), CanStatus::ok);
  EXPECT_EQ(frame, first);
  EXPECT_EQ(time(), milliseconds(30));
}

TEST_F(InProcessBusTest, rule_applies_to_answers_too) {
  const auto node = bus.open(
      {{0x101}}, [](const CanFrame& /*request*/, Frames& answers) { answers.push_back(second); });
  bus.set_fault_rule([](const CanFrame& sent) {
    return sent == second ? Deliveries{{third}} : Deliveries{{sent}};
  });

  send(first);

  EXPECT_THAT(received(*sender), ElementsAre(third));
}

TEST_F(InProcessBusTest, handler_answers_a_late_request_when_it_comes) {
  const auto node = bus.open(
      {{0x101}}, [](const CanFrame& /*request*/, Frames& answers) { answers.push_back(second); });
  bus.set_fault_rule([](const CanFrame& sent) {
    return Deliveries{{sent, milliseconds(sent == first ? 10 : 0)}};
  });
  send(first);

  EXPECT_EQ(sender->receive(frame, milliseconds(50)), CanStatus::ok);
  EXPECT_EQ(frame, second);
  EXPECT_EQ(time(), milliseconds(10));
}

TEST_F(InProcessBusTest, late_frame_does_not_come_back_to_its_sender) {
  bus.set_fault_rule([](const CanFrame& sent) { return Deliveries{{sent, milliseconds(10)}}; });
  send(first);

  EXPECT_EQ(sender->receive(frame, milliseconds(50)), CanStatus::timed_out);
  EXPECT_THAT(received(*receiver), ElementsAre(first));
}

TEST_F(InProcessBusTest, late_frame_of_a_closed_endpoint_still_comes) {
  bus.set_fault_rule([](const CanFrame& sent) { return Deliveries{{sent, milliseconds(10)}}; });
  send(first);
  sender.reset();
  // Maybe where the closed one was.
  const auto another = bus.open({{0, 0}});

  EXPECT_EQ(receiver->receive(frame, milliseconds(50)), CanStatus::ok);
  EXPECT_THAT(received(*another), ElementsAre(first));
}

TEST_F(InProcessBusTest, exception_of_the_rule_leaves_no_frame_that_comes_with_the_next) {
  const auto node = bus.open({{0x101}}, [](const CanFrame& /*request*/, Frames& answers) {
    answers = {second, third};
  });
  bus.set_fault_rule([](const CanFrame& sent) {
    return sent == third ? throw std::runtime_error("rule") : Deliveries{{sent}};
  });
  EXPECT_THROW(send(first), std::runtime_error);
  EXPECT_THAT(received(*receiver), ElementsAre(first, second));

  EXPECT_EQ(send(CanFrame{0x104, 1, {4}}), CanStatus::ok);
  EXPECT_THAT(received(*receiver), ElementsAre(CanFrame{0x104, 1, {4}}));
  EXPECT_THAT(received(*sender), ElementsAre(second));
}

TEST_F(InProcessBusTest, exception_of_a_handler_leaves_no_frame_that_comes_with_the_next) {
  const auto node = bus.open(
      {{0x101}}, [](const CanFrame& /*request*/, Frames& answers) { answers.push_back(second); });
  int failures = 1;
  const auto broken = bus.open({{0x101}}, [&](const CanFrame& /*request*/, Frames& answers) {
    answers.push_back(third);
    if (failures-- > 0) {
      throw std::runtime_error("handler");
    }
  });
  EXPECT_THROW(send(first), std::runtime_error);
  EXPECT_THAT(received(*receiver), ElementsAre(first));

  EXPECT_EQ(send(first), CanStatus::ok);
  EXPECT_THAT(received(*receiver), ElementsAre(first, second, third));
}

TEST_F(InProcessBusTest, late_frame_whose_handler_throws_is_gone_and_the_other_late_ones_come) {
  int calls = 0;
  const auto node = bus.open({{0x101}, {0x102}}, [&](const CanFrame& request, Frames& answers) {
    ++calls;
    answers.push_back({0x104, 1, request.data});
    if (request == first) {
      throw std::runtime_error("handler");
    }
  });
  bus.set_fault_rule([](const CanFrame& sent) {
    const auto delay = sent == first ? milliseconds(10) : milliseconds(20);
    return Deliveries{{sent, sent.id == 0x104 ? milliseconds(0) : delay}};
  });
  send(first);
  send(second);
  send(third);

  EXPECT_THROW(sender->receive(frame, milliseconds(10)), std::runtime_error);
  EXPECT_THAT(received(*receiver), ElementsAre(first));
  EXPECT_EQ(sender->receive(frame, milliseconds(20)), CanStatus::ok);
  EXPECT_EQ(frame, (CanFrame{0x104, 1, second.data}));
  EXPECT_THAT(received(*receiver), ElementsAre(second, frame, third));
  EXPECT_EQ(calls, 2);
}

TEST_F(InProcessBusTest,
       late_frame_that_throws_leaves_no_answer_that_comes_with_the_next_late_one) {
  const auto node = bus.open(
      {{0x101}}, [](const CanFrame& /*request*/, Frames& answers) { answers.push_back(third); });
  const auto broken = bus.open({{0x101}}, [](const CanFrame& /*request*/, Frames& /*answers*/) {
    throw std::runtime_error("handler");
  });
  bus.set_fault_rule([](const CanFrame& sent) {
    return Deliveries{{sent, milliseconds(sent == first ? 10 : 20)}};
  });
  send(first);
  send(second);

  EXPECT_THROW(receiver->receive(frame, milliseconds(10)), std::runtime_error);
  EXPECT_EQ(sender->receive(frame, milliseconds(50)), CanStatus::timed_out);
  EXPECT_THAT(received(*receiver), ElementsAre(first, second));
}

TEST_F(InProcessBusTest, without_a_rule_all_are_delivered_again) {
  bus.set_fault_rule([](const CanFrame& /*sent*/) { return Deliveries(); });
  send(first);
  bus.set_fault_rule({});
  send(second);

  EXPECT_THAT(received(*receiver), ElementsAre(second));
}

TEST_F(InProcessBusTest, longest_delay_does_no_harm) {
  bus.set_fault_rule([](const CanFrame& sent) { return Deliveries{{sent, nanoseconds::max()}}; });
  send(first);

  EXPECT_EQ(receiver->receive(frame, std::chrono::hours(24)), CanStatus::timed_out);
}

TEST_F(InProcessBusTest, late_frame_wakes_one_who_waited_before_it_was_sent) {
  InProcessBus real;
  const auto source = real.open({});
  const auto waiting = real.open({{0, 0}});
  real.set_fault_rule([](const CanFrame& sent) { return Deliveries{{sent, milliseconds(5)}}; });
  auto status = std::async(std::launch::async,
                           [&] { return waiting->receive(frame, std::chrono::hours(1)); });
  EXPECT_TRUE(still_waits(status));
  source->send(first, nanoseconds(0));

  const bool woken = is_done(status);
  EXPECT_TRUE(woken);
  // Lets a wait end that would last an hour.
  real.set_state(CanStatus::interface_down);
  EXPECT_EQ(status.get(), CanStatus::ok);
  EXPECT_EQ(frame, first);
}

/// How the bus behaves in a state.
struct StateCase {
  std::string name;
  CanStatus state;
  CanStatus send;
  bool arrives;
  /// What the next receive says; `timed_out` for nothing.
  CanStatus told;
  std::string text;
};

void PrintTo(const StateCase& row, std::ostream* out) { *out << row.name; }

class BusStateTest : public InProcessBusTest, public testing::WithParamInterface<StateCase> {};

TEST_F(InProcessBusTest, queue_that_is_never_empty_holds_what_waits_alone) {
  send(first);
  CanFrame waiting = first;
  for (std::size_t count = 0; count < 2 * InProcessBus::queue_limit; ++count) {
    const CanFrame next{static_cast<std::uint16_t>(count % 0x700), 0, {}};
    ASSERT_EQ(send(next), CanStatus::ok);
    ASSERT_EQ(receiver->receive(frame, milliseconds(0)), CanStatus::ok);
    ASSERT_EQ(frame, waiting);
    waiting = next;
  }
  EXPECT_EQ(bus.lost_frames(), 0U);
}

TEST_P(BusStateTest, decides_about_sends) {
  bus.set_state(GetParam().state);

  EXPECT_EQ(send(first), GetParam().send);

  bus.set_state(CanStatus::ok);
  EXPECT_EQ(send(second), CanStatus::ok);
  EXPECT_EQ(received(*receiver), GetParam().arrives ? (Frames{first, second}) : Frames{second});
}

TEST_P(BusStateTest, is_told_once_to_each_endpoint) {
  bus.set_state(GetParam().state);

  for (CanEndpoint* const endpoint : {sender.get(), receiver.get()}) {
    frame = third;
    EXPECT_EQ(endpoint->receive(frame, milliseconds(10)), GetParam().told);
    EXPECT_EQ(frame, third) << "left as it was";
    EXPECT_EQ(endpoint->receive(frame, milliseconds(10)), CanStatus::timed_out);
  }
}

TEST_P(BusStateTest, is_told_to_a_receive_without_time) {
  bus.set_state(GetParam().state);

  EXPECT_EQ(receiver->receive(frame, milliseconds(0)), GetParam().told);
  EXPECT_EQ(receiver->receive(frame, milliseconds(0)), CanStatus::timed_out);
}

TEST_P(BusStateTest, is_told_once_to_an_endpoint_opened_later) {
  bus.set_state(GetParam().state);
  const auto late = bus.open({{0, 0}});

  EXPECT_EQ(late->receive(frame, milliseconds(10)), GetParam().told);
  EXPECT_EQ(late->receive(frame, milliseconds(10)), CanStatus::timed_out);
}

TEST_P(BusStateTest, has_words_with_the_name_of_the_bus) {
  InProcessBus named(BusTime::simulated, "can0");

  EXPECT_EQ(named.open({})->explain(GetParam().state), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    all, BusStateTest,
    testing::Values(
        StateCase{"ok", CanStatus::ok, CanStatus::ok, true, CanStatus::timed_out,
                  "interface can0 works"},
        StateCase{"queue_full", CanStatus::queue_full, CanStatus::queue_full, false,
                  CanStatus::timed_out,
                  "the transmit queue of can0 stays full: no node acknowledges frames, or "
                  "txqueuelen is too small (ip link set can0 txqueuelen 1000)"},
        StateCase{"down", CanStatus::interface_down, CanStatus::interface_down, false,
                  CanStatus::interface_down,
                  "interface can0 is down (ip link set can0 up; before the first time: ip link set "
                  "can0 type can bitrate 1000000, or what the board has)"},
        StateCase{"missing", CanStatus::interface_missing, CanStatus::interface_missing, false,
                  CanStatus::interface_missing,
                  "there is no interface can0 (ip link lists those that there are)"},
        StateCase{"bus_off", CanStatus::bus_off, CanStatus::ok, false, CanStatus::bus_off,
                  "can0 is bus-off after too many errors: check wiring, termination and bit rate, "
                  "then ip link set can0 type can restart"},
        StateCase{"error_passive", CanStatus::error_passive, CanStatus::ok, true,
                  CanStatus::error_passive,
                  "can0 is error-passive: check wiring, termination and bit rate"},
        StateCase{"failed", CanStatus::failed, CanStatus::failed, false, CanStatus::failed,
                  "can0 refuses the frame"}),
    [](const testing::TestParamInfo<StateCase>& row) { return row.param.name; });

TEST_F(InProcessBusTest, unnamed_bus_has_a_name_all_the_same) {
  EXPECT_EQ(sender->explain(CanStatus::ok), "interface in-process bus works");
}

TEST_F(InProcessBusTest, send_waits_its_patience_for_room) {
  bus.set_state(CanStatus::queue_full);

  EXPECT_EQ(send(first, milliseconds(25)), CanStatus::queue_full);

  EXPECT_EQ(time(), milliseconds(25));
  EXPECT_THAT(received(*receiver), IsEmpty());
}

TEST_F(InProcessBusTest, send_goes_through_when_room_comes) {
  InProcessBus real;
  const auto source = real.open({});
  const auto sink = real.open({{0, 0}});
  real.set_state(CanStatus::queue_full);
  auto status =
      std::async(std::launch::async, [&] { return source->send(first, std::chrono::hours(1)); });
  EXPECT_TRUE(still_waits(status));
  real.set_state(CanStatus::ok);

  ASSERT_TRUE(is_done(status));
  EXPECT_EQ(status.get(), CanStatus::ok);
  EXPECT_THAT(received(*sink), ElementsAre(first));
}

TEST_F(InProcessBusTest, state_wakes_one_who_waits_for_a_frame) {
  InProcessBus real;
  const auto waiting = real.open({{0, 0}});
  auto status = std::async(std::launch::async,
                           [&] { return waiting->receive(frame, std::chrono::hours(1)); });
  EXPECT_TRUE(still_waits(status));
  real.set_state(CanStatus::interface_down);

  ASSERT_TRUE(is_done(status));
  EXPECT_EQ(status.get(), CanStatus::interface_down);
}

}  // namespace
}  // namespace velmora_can_bridge
