#include "velmora_can_bridge/bus/heartbeat_producer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(HeartbeatProducerTest, heartbeat_says_operational) {
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  for (const std::uint8_t node_id : std::vector<std::uint8_t>{1, 0x7E, 127}) {
    EXPECT_FALSE(HeartbeatProducer(bus, node_id, milliseconds(100)).poll());
    EXPECT_THAT(received(*bystander),
                ElementsAre(frame_of(static_cast<std::uint16_t>(0x700 + node_id), "05")));
  }
}

TEST(HeartbeatProducerTest, node_id_that_is_none_is_refused) {
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  for (const std::uint8_t node_id : std::vector<std::uint8_t>{0, 128, 255}) {
    const std::optional<BusError> error = HeartbeatProducer(bus, node_id, milliseconds(100)).poll();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, BusErrorKind::not_configured);
    EXPECT_EQ(error->text, "node id " + std::to_string(node_id) + " is not one of 1 to 127");
  }
  EXPECT_THAT(received(*bystander), IsEmpty());
}

TEST(HeartbeatProducerTest, other_masters_see_no_restart) {
  InProcessBus bus(BusTime::simulated);
  std::vector<NodeEventKind> events;
  NodeWatch watch(bus, milliseconds(300),
                  [&](const NodeEvent& event) { events.push_back(event.kind); });
  HeartbeatProducer producer(bus, 0x7E, milliseconds(100));
  for (int count = 0; count < 10; ++count) {
    EXPECT_FALSE(producer.poll());
    watch.poll(milliseconds(100));
  }
  EXPECT_THAT(events, ElementsAre(NodeEventKind::state_changed));
  EXPECT_EQ(producer.sent(), 10U);
}

TEST(HeartbeatProducerTest, watcher_notices_that_it_has_ended) {
  InProcessBus bus(BusTime::simulated);
  NodeWatch watch(bus, milliseconds(300), {});
  {
    HeartbeatProducer producer(bus, 0x7E, milliseconds(100));
    EXPECT_FALSE(producer.poll());
    watch.poll(milliseconds(200));
    EXPECT_EQ(watch.state(0x7E), NmtState::operational);
  }
  watch.poll(milliseconds(200));
  EXPECT_EQ(watch.state(0x7E), std::nullopt);
}

}  // namespace
}  // namespace velmora_can_bridge
