#include "velmora_can_bridge/bus/periodic_producer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class AnyProducer : public PeriodicProducer {
 public:
  AnyProducer(CanChannel& channel, milliseconds period,
              std::optional<std::string> refusal = std::nullopt)
      : PeriodicProducer(channel, frame_of(0x123, "11 22"), period, std::move(refusal)) {}
};

/// Passes on to a bus, and notes what its endpoints receive.
class NotingChannel : public CanChannel {
 public:
  explicit NotingChannel(CanChannel& bus) : bus_(&bus) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    opened.push_back(filters);
    return bus_->open(filters);
  }

  std::vector<std::vector<CanFilter>> opened;

 private:
  CanChannel* const bus_;
};

class PeriodicProducerTest : public testing::Test {
 protected:
  /// A receive that tells how the bus is takes no time.
  void pass(milliseconds time) {
    const auto end = clock->now() + time;
    CanFrame frame;
    while (clock->now() < end) {
      clock->receive(frame, end - clock->now());
    }
  }

  milliseconds now() const {
    return std::chrono::duration_cast<milliseconds>(clock->now() - start);
  }

  /// Calls `poll` now. Notes the time of every frame that goes out.
  std::optional<BusError> poll(PeriodicProducer& producer) {
    std::optional<BusError> error = producer.poll();
    for (const CanFrame& frame : received(*bystander)) {
      EXPECT_EQ(frame, frame_of(0x123, "11 22"));
      times.push_back(now().count());
    }
    return error;
  }

  /// Calls `poll` whenever the next frame is due, so many times.
  void run(PeriodicProducer& producer, int polls) {
    for (int count = 0; count < polls; ++count) {
      pass(std::chrono::duration_cast<milliseconds>(producer.next() - clock->now()));
      EXPECT_FALSE(poll(producer));
    }
  }

  InProcessBus bus{BusTime::simulated, "vcan0"};
  const std::unique_ptr<CanEndpoint> bystander = bus.open({{0, 0}});
  const std::unique_ptr<CanEndpoint> clock = bus.open({});
  const std::chrono::steady_clock::time_point start = clock->now();
  std::vector<milliseconds::rep> times;
};

TEST_F(PeriodicProducerTest, frames_go_out_on_a_grid_that_begins_at_once) {
  AnyProducer producer(bus, milliseconds(10));
  run(producer, 4);
  EXPECT_THAT(times, ElementsAre(0, 10, 20, 30));
  EXPECT_EQ(producer.sent(), 4U);
}

TEST_F(PeriodicProducerTest, receives_nothing_that_others_send) {
  NotingChannel channel(bus);
  AnyProducer producer(channel, milliseconds(10));
  run(producer, 2);
  EXPECT_THAT(channel.opened, ElementsAre(IsEmpty()));
}

TEST_F(PeriodicProducerTest, nothing_is_sent_before_it_is_due) {
  AnyProducer producer(bus, milliseconds(10));
  for (int count = 0; count < 25; ++count) {
    EXPECT_FALSE(poll(producer));
    pass(milliseconds(1));
  }
  EXPECT_THAT(times, ElementsAre(0, 10, 20));
}

TEST_F(PeriodicProducerTest, one_call_sends_one_frame) {
  AnyProducer producer(bus, milliseconds(10));
  EXPECT_FALSE(poll(producer));
  EXPECT_FALSE(poll(producer));
  EXPECT_THAT(times, ElementsAre(0));
}

TEST_F(PeriodicProducerTest, lateness_does_not_add_up) {
  AnyProducer producer(bus, milliseconds(10));
  for (int count = 0; count < 20; ++count) {
    EXPECT_FALSE(poll(producer));
    pass(milliseconds(3));
  }
  // Due at 10, 20, 30, 40, 50; looked at every third millisecond.
  EXPECT_THAT(times, ElementsAre(0, 12, 21, 30, 42, 51));
}

TEST_F(PeriodicProducerTest, call_late_by_less_than_a_period_leaves_the_grid_alone) {
  AnyProducer producer(bus, milliseconds(10));
  run(producer, 1);
  pass(milliseconds(19));
  run(producer, 2);
  EXPECT_THAT(times, ElementsAre(0, 19, 20));
}

TEST_F(PeriodicProducerTest, missed_frames_are_not_made_up_for) {
  AnyProducer producer(bus, milliseconds(10));
  run(producer, 2);
  pass(milliseconds(1003));
  run(producer, 3);
  EXPECT_THAT(times, ElementsAre(0, 10, 1013, 1023, 1033));
}

TEST_F(PeriodicProducerTest, one_missed_frame_begins_a_new_grid) {
  AnyProducer producer(bus, milliseconds(10));
  run(producer, 1);
  pass(milliseconds(20));
  run(producer, 2);
  EXPECT_THAT(times, ElementsAre(0, 20, 30));
}

TEST_F(PeriodicProducerTest, pause_before_the_first_call_is_one_like_others) {
  AnyProducer producer(bus, milliseconds(10));
  pass(milliseconds(75));
  run(producer, 2);
  EXPECT_THAT(times, ElementsAre(75, 85));
}

TEST_F(PeriodicProducerTest, failed_send_is_told_with_its_words) {
  AnyProducer producer(bus, milliseconds(10));
  for (const CanStatus status : {CanStatus::interface_down, CanStatus::interface_missing}) {
    bus.set_state(status);
    const std::optional<BusError> error = poll(producer);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, BusErrorKind::bus_fault);
    EXPECT_EQ(error->status, status);
    EXPECT_EQ(error->text, clock->explain(status));
    EXPECT_EQ(error->node_id, 0);
    pass(milliseconds(10));
  }
  EXPECT_EQ(producer.sent(), 0U);
  EXPECT_THAT(times, IsEmpty());
}

TEST_F(PeriodicProducerTest, failed_send_is_not_retried_out_of_turn) {
  AnyProducer producer(bus, milliseconds(10));
  bus.set_state(CanStatus::interface_down);
  EXPECT_TRUE(poll(producer));
  bus.set_state(CanStatus::ok);
  pass(milliseconds(4));
  EXPECT_FALSE(poll(producer));
  run(producer, 2);
  EXPECT_THAT(times, ElementsAre(10, 20));
}

TEST_F(PeriodicProducerTest, frame_that_a_bus_off_controller_drops_is_told) {
  AnyProducer producer(bus, milliseconds(10));
  bus.set_state(CanStatus::bus_off);
  const std::optional<BusError> error = poll(producer);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->status, CanStatus::bus_off);
  EXPECT_EQ(producer.sent(), 0U);
}

TEST_F(PeriodicProducerTest, full_queue_is_waited_for_no_longer_than_20_ms) {
  AnyProducer producer(bus, milliseconds(500));
  bus.set_state(CanStatus::queue_full);
  EXPECT_TRUE(poll(producer));
  EXPECT_EQ(now(), milliseconds(20));
}

TEST_F(PeriodicProducerTest, full_queue_is_waited_for_no_longer_than_a_period) {
  AnyProducer producer(bus, milliseconds(5));
  bus.set_state(CanStatus::queue_full);
  EXPECT_TRUE(poll(producer));
  EXPECT_EQ(now(), milliseconds(5));
  bus.set_state(CanStatus::ok);
  run(producer, 2);
  EXPECT_THAT(times, ElementsAre(5, 10));
}

TEST_F(PeriodicProducerTest, period_of_less_than_1_ms_sends_nothing) {
  for (const milliseconds period : {milliseconds(0), milliseconds(-5), milliseconds::min()}) {
    AnyProducer producer(bus, period);
    for (int count = 0; count < 3; ++count) {
      const std::optional<BusError> error = poll(producer);
      ASSERT_TRUE(error);
      EXPECT_EQ(error->kind, BusErrorKind::not_configured);
      EXPECT_EQ(error->text,
                "a period of " + std::to_string(period.count()) + " ms is less than 1 ms");
      EXPECT_EQ(producer.next() - clock->now(), milliseconds(1));
      pass(milliseconds(1));
    }
  }
  EXPECT_THAT(times, IsEmpty());
}

TEST_F(PeriodicProducerTest, refused_frame_is_told_once_a_period) {
  AnyProducer producer(bus, milliseconds(10), "no such frame");
  EXPECT_EQ(poll(producer).value().text, "no such frame");
  EXPECT_FALSE(poll(producer));
  pass(milliseconds(10));
  EXPECT_EQ(poll(producer).value().kind, BusErrorKind::not_configured);
  EXPECT_THAT(times, IsEmpty());
}

TEST_F(PeriodicProducerTest, longest_period_does_not_overflow) {
  AnyProducer producer(bus, milliseconds::max());
  EXPECT_FALSE(poll(producer));
  pass(milliseconds(1000));
  EXPECT_FALSE(poll(producer));
  EXPECT_THAT(times, SizeIs(1));
  EXPECT_GT(producer.next(), clock->now());
}

}  // namespace
}  // namespace velmora_can_bridge
