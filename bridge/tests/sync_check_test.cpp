#include "sync_check.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

DeviceComparison waiting_for(std::uint32_t cob_id, std::vector<std::string> rpdos = {"RPDO 1"}) {
  DeviceComparison comparison;
  comparison.synchronous_rpdos = std::move(rpdos);
  comparison.sync_cob_id = cob_id;
  return comparison;
}

class SyncCheckTest : public testing::Test {
 protected:
  SyncCheckTest() {
    bus.set_fault_rule([this](const CanFrame& frame) {
      return std::vector<CanDelivery>{{frame, on_its_way}};
    });
  }

  /// From now, by the time of the bus.
  void send_after(milliseconds delay, std::uint16_t cob_id) {
    on_its_way = delay;
    ASSERT_EQ(producer->send({cob_id, 0, {}}, nanoseconds(0)), CanStatus::ok);
  }

  void pass(milliseconds time) {
    CanFrame frame;
    producer->receive(frame, time);
  }

  milliseconds now() const {
    return std::chrono::duration_cast<milliseconds>(producer->now() - start);
  }

  void begin_all(const std::vector<DeviceComparison>& nodes) {
    for (const DeviceComparison& node : nodes) {
      check.begin(node);
    }
  }

  InProcessBus bus{BusTime::simulated, "can7"};
  const std::unique_ptr<CanEndpoint> producer = bus.open({});
  const std::chrono::steady_clock::time_point start = producer->now();
  nanoseconds on_its_way{0};
  std::atomic<bool> interrupted{false};
  SyncCheck check{bus, [this] {
                    return interrupted ? std::make_optional<std::string>("interrupted")
                                       : std::nullopt;
                  }};
};

TEST_F(SyncCheckTest, warns_when_none_comes_within_a_second) {
  DeviceComparison node = waiting_for(0x80, {"RPDO 1", "RPDO 3"});
  check.begin(node);
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings,
              ElementsAre("no SYNC came within 1 s (COB-ID 0x0080); until one comes nothing moves "
                          "by RPDO 1, RPDO 3"));
  EXPECT_THAT(node.gaps, IsEmpty());
  EXPECT_EQ(now(), milliseconds(1000));
}

TEST_F(SyncCheckTest, ends_with_the_first_sync) {
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  send_after(milliseconds(700), 0x80);
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings, IsEmpty());
  EXPECT_EQ(now(), milliseconds(700));
}

TEST_F(SyncCheckTest, one_that_comes_later_is_none) {
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  send_after(milliseconds(1001), 0x80);
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings, SizeIs(1));
}

TEST_F(SyncCheckTest, second_runs_while_other_nodes_are_read) {
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  send_after(milliseconds(100), 0x80);
  pass(milliseconds(5000));
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings, IsEmpty());
  EXPECT_EQ(now(), milliseconds(5000));
}

TEST_F(SyncCheckTest, listens_once_for_all_nodes_and_identifiers) {
  std::vector<DeviceComparison> nodes{waiting_for(0x80), waiting_for(0x81), waiting_for(0x80),
                                      waiting_for(0x82)};
  begin_all(nodes);
  send_after(milliseconds(900), 0x81);
  check.listen();
  std::vector<std::size_t> warnings;
  for (DeviceComparison& node : nodes) {
    check.judge(node);
    warnings.push_back(node.warnings.size());
  }
  EXPECT_THAT(warnings, ElementsAre(1U, 0U, 1U, 1U));
  EXPECT_EQ(now(), milliseconds(1000));
}

TEST_F(SyncCheckTest, another_identifier_is_no_sync) {
  DeviceComparison node = waiting_for(0x81);
  check.begin(node);
  send_after(milliseconds(1), 0x80);
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings, SizeIs(1));
}

TEST_F(SyncCheckTest, does_not_wait_for_what_cannot_be_received) {
  struct Case {
    std::uint32_t cob_id;
    std::string text;
  };
  for (const Case& row : {Case{0x20000080, "0x00000080 (29 bits)"}, Case{0, "none"}}) {
    DeviceComparison node = waiting_for(row.cob_id);
    check.begin(node);
    check.listen();
    check.judge(node);
    EXPECT_THAT(node.warnings, ElementsAre("the SYNC cannot be listened to (COB-ID " + row.text +
                                           " in 0x1005); without it nothing moves by RPDO 1"));
  }
  EXPECT_EQ(now(), milliseconds(0));
}

TEST_F(SyncCheckTest, says_nothing_of_a_node_that_waits_for_none) {
  DeviceComparison node;
  check.begin(node);
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings, IsEmpty());
  EXPECT_THAT(node.gaps, IsEmpty());
  EXPECT_EQ(now(), milliseconds(0));
}

TEST_F(SyncCheckTest, bus_that_does_not_work_is_a_gap) {
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  bus.set_state(CanStatus::interface_down);
  check.listen();
  check.judge(node);
  ASSERT_THAT(node.gaps, SizeIs(1));
  EXPECT_EQ(node.gaps[0].what, "SYNC");
  EXPECT_THAT(node.gaps[0].reason, testing::StartsWith("interface can7 is down"));
  EXPECT_EQ(node.gaps[0].error.kind, BusErrorKind::bus_fault);
  EXPECT_THAT(node.warnings, IsEmpty());
}

TEST_F(SyncCheckTest, bus_that_works_badly_is_listened_to) {
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  bus.set_state(CanStatus::error_passive);
  send_after(milliseconds(10), 0x80);
  check.listen();
  check.judge(node);
  EXPECT_THAT(node.warnings, IsEmpty());
  EXPECT_THAT(node.gaps, IsEmpty());
}

TEST_F(SyncCheckTest, interruption_is_a_gap) {
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  interrupted = true;
  check.listen();
  check.judge(node);
  ASSERT_THAT(node.gaps, SizeIs(1));
  EXPECT_EQ(node.gaps[0].reason, "interrupted");
  EXPECT_EQ(node.gaps[0].error.kind, BusErrorKind::stopped);
  EXPECT_THAT(node.warnings, IsEmpty());
  EXPECT_EQ(now(), milliseconds(0));
}

TEST_F(SyncCheckTest, interruption_is_noticed_while_it_listens) {
  const auto user =
      bus.open({{0x123}}, [this](const CanFrame& /*frame*/, std::vector<CanFrame>& /*answers*/) {
        interrupted = true;
      });
  DeviceComparison node = waiting_for(0x80);
  check.begin(node);
  send_after(milliseconds(250), 0x123);
  check.listen();
  EXPECT_LE(now(), milliseconds(350));
  check.judge(node);
  ASSERT_THAT(node.gaps, SizeIs(1));
  EXPECT_EQ(node.gaps[0].reason, "interrupted");
}

}  // namespace
}  // namespace velmora_can_bridge
