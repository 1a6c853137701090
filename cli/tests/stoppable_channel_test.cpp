#include "stoppable_channel.hpp"

#include <gmock/gmock.h>

#include "scripted_channel.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class Stoppable : public testing::Test {
 protected:
  Script script;
  ScriptedChannel inner{script};
  std::atomic<bool> interrupted{false};
  int sent = 0;
  std::vector<milliseconds> seen;
  StoppableChannel channel{inner,
                           &interrupted,
                           {[this] { ++sent; },
                            [this](nanoseconds left) {
                              seen.push_back(std::chrono::duration_cast<milliseconds>(left));
                            }}};
  std::unique_ptr<CanEndpoint> endpoint = channel.open({{1}, {2}});
  CanFrame frame;
};

TEST_F(Stoppable, wait_of_nothing_is_one_call) {
  EXPECT_EQ(endpoint->receive(frame, nanoseconds(0)), CanStatus::timed_out);
  EXPECT_THAT(script.waits, ElementsAre(nanoseconds(0)));
}

TEST_F(Stoppable, wait_is_cut_into_slices_that_make_its_length) {
  EXPECT_EQ(endpoint->receive(frame, milliseconds(50)), CanStatus::timed_out);
  EXPECT_THAT(script.waits, ElementsAre(milliseconds(20), milliseconds(20), milliseconds(10)));
  EXPECT_THAT(seen, IsEmpty());
}

TEST_F(Stoppable, interruption_is_seen_after_a_slice_and_the_wait_goes_on) {
  interrupted = true;
  EXPECT_EQ(endpoint->receive(frame, milliseconds(500)), CanStatus::timed_out);
  EXPECT_THAT(seen, ElementsAre(milliseconds(480)));
  EXPECT_EQ(script.now, milliseconds(500));
}

TEST_F(Stoppable, wait_that_lasts_longer_than_asked_has_nothing_left) {
  interrupted = true;
  script.lateness = milliseconds(15);
  EXPECT_EQ(endpoint->receive(frame, milliseconds(30)), CanStatus::timed_out);
  EXPECT_THAT(script.waits, ElementsAre(milliseconds(20)));
  EXPECT_THAT(seen, ElementsAre(milliseconds(0)));
}

TEST_F(Stoppable, frame_after_the_interruption_is_received) {
  interrupted = true;
  script.news = {{milliseconds(300), CanStatus::ok}};
  EXPECT_EQ(endpoint->receive(frame, milliseconds(500)), CanStatus::ok);
  EXPECT_EQ(frame.id, 0x123);
  EXPECT_EQ(script.now, milliseconds(300));
}

TEST_F(Stoppable, interruption_is_seen_when_a_frame_ends_the_wait) {
  interrupted = true;
  script.news = {{milliseconds(10), CanStatus::ok}, {milliseconds(10), CanStatus::ok}};
  EXPECT_EQ(endpoint->receive(frame, milliseconds(500)), CanStatus::ok);
  EXPECT_EQ(endpoint->receive(frame, milliseconds(0)), CanStatus::ok);
  EXPECT_THAT(seen, ElementsAre(milliseconds(0), milliseconds(0)));
}

TEST_F(Stoppable, errors_end_the_wait_unchanged) {
  for (const CanStatus status : {CanStatus::interface_down, CanStatus::interface_missing,
                                 CanStatus::bus_off, CanStatus::error_passive, CanStatus::failed}) {
    script = Script();
    script.news = {{milliseconds(30), status}};
    EXPECT_EQ(endpoint->receive(frame, milliseconds(500)), status);
    EXPECT_THAT(script.waits, ElementsAre(milliseconds(20), milliseconds(20)));
  }
  EXPECT_THAT(seen, IsEmpty());
}

TEST_F(Stoppable, frames_that_were_handed_to_the_bus_are_told) {
  EXPECT_EQ(endpoint->send(frame, milliseconds(3)), CanStatus::ok);
  EXPECT_EQ(sent, 1);
  script.sent = CanStatus::queue_full;
  EXPECT_EQ(endpoint->send(frame, milliseconds(3)), CanStatus::queue_full);
  EXPECT_EQ(sent, 1);
}

TEST_F(Stoppable, passes_on_what_the_endpoint_knows) {
  EXPECT_EQ(inner.opened, 2U);
  EXPECT_FALSE(endpoint->has_frame());
  script.news = {{milliseconds(0), CanStatus::ok}};
  EXPECT_TRUE(endpoint->has_frame());
  script.now = milliseconds(7);
  EXPECT_EQ(endpoint->now().time_since_epoch(), milliseconds(7));
  script.state = CanStatus::bus_off;
  EXPECT_EQ(endpoint->state(), CanStatus::bus_off);
  EXPECT_EQ(endpoint->explain(CanStatus::ok), "state 0");
}

TEST_F(Stoppable, nothing_is_cut_where_nobody_can_interrupt) {
  StoppableChannel endless(inner, nullptr, {});
  EXPECT_EQ(endless.open({})->receive(frame, milliseconds(500)), CanStatus::timed_out);
  EXPECT_THAT(script.waits, ElementsAre(milliseconds(500)));
}

}  // namespace
}  // namespace velmora_can_bridge
