#include "velmora_can_bridge/bus/sync_producer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SyncProducerTest, sync_is_a_frame_without_data) {
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  EXPECT_FALSE(SyncProducer(bus, milliseconds(10)).poll());
  EXPECT_THAT(received(*bystander), ElementsAre(frame_of(0x080, "")));
}

TEST(SyncProducerTest, cob_id_can_be_another_one) {
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  for (const std::uint16_t cob_id : std::vector<std::uint16_t>{0x001, 0x0AA, 0x7FF}) {
    EXPECT_FALSE(SyncProducer(bus, milliseconds(10), cob_id).poll());
    EXPECT_THAT(received(*bystander), ElementsAre(frame_of(cob_id, "")));
  }
}

TEST(SyncProducerTest, cob_id_that_is_none_is_refused) {
  struct Case {
    std::uint16_t cob_id;
    std::string text;
  };
  InProcessBus bus(BusTime::simulated);
  const auto bystander = bus.open({{0, 0}});
  for (const Case& row :
       {Case{0, "COB-ID 0x0000 of the SYNC is not one of 0x0001 to 0x07FF"},
        Case{0x800, "COB-ID 0x0800 of the SYNC is not one of 0x0001 to 0x07FF"}}) {
    const std::optional<BusError> error = SyncProducer(bus, milliseconds(10), row.cob_id).poll();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, BusErrorKind::not_configured);
    EXPECT_EQ(error->text, row.text);
  }
  EXPECT_THAT(received(*bystander), IsEmpty());
}

TEST(SyncProducerTest, period_is_kept) {
  InProcessBus bus(BusTime::simulated);
  SyncProducer producer(bus, milliseconds(7));
  const auto first = producer.next();
  EXPECT_FALSE(producer.poll());
  EXPECT_EQ(producer.next() - first, milliseconds(7));
}

}  // namespace
}  // namespace velmora_can_bridge
