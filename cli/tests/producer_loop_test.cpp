#include "producer_loop.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "scripted_channel.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/sync_producer.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

/// Each send takes a period, so nothing is waited for.
class ProducerLoopTest : public testing::Test {
 protected:
  ProducerLoopTest() {
    script.on_send = [this] {
      script.now += period;
      script.sent = sends < statuses.size() ? statuses[sends] : CanStatus::ok;
      ++sends;
      interrupted = interrupted || sends == interrupting_send;
    };
  }

  ExitStatus run(std::optional<std::uint32_t> count, bool json = false) {
    const CommandLineHost host{out, err, false, {}, {}, &interrupted};
    ScriptedChannel channel(script);
    SyncProducer producer(channel, period);
    return ProducerLoop(host, channel, producer, {"this", count, json}).run();
  }

  static constexpr milliseconds period{10};
  Script script;
  /// How the sends end; the further ones are ok.
  std::vector<CanStatus> statuses;
  std::size_t sends = 0;
  /// Counted from 1.
  std::size_t interrupting_send = 0;
  std::atomic<bool> interrupted{false};
  std::ostringstream out;
  std::ostringstream err;
};

TEST_F(ProducerLoopTest, ends_after_so_many_frames) {
  EXPECT_EQ(run(3), ExitStatus::success);
  EXPECT_EQ(sends, 3U);
  EXPECT_EQ(out.str(), "sending this; Ctrl-C ends it\nsent 3 frames\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(ProducerLoopTest, ends_after_one_frame) {
  EXPECT_EQ(run(1), ExitStatus::success);
  EXPECT_EQ(sends, 1U);
  EXPECT_EQ(out.str(), "sending this; Ctrl-C ends it\nsent 1 frame\n");
}

TEST_F(ProducerLoopTest, ends_when_interrupted) {
  interrupting_send = 4;
  EXPECT_EQ(run({}), ExitStatus::interrupted);
  EXPECT_EQ(sends, 4U);
  EXPECT_EQ(out.str(), "sending this; Ctrl-C ends it\nsent 4 frames\n");
}

TEST_F(ProducerLoopTest, count_that_is_reached_is_a_success_although_interrupted) {
  interrupting_send = 2;
  EXPECT_EQ(run(2), ExitStatus::success);
}

TEST_F(ProducerLoopTest, sends_nothing_when_interrupted_before) {
  interrupted = true;
  EXPECT_EQ(run(3), ExitStatus::interrupted);
  EXPECT_EQ(sends, 0U);
}

TEST_F(ProducerLoopTest, refuses_an_interface_that_does_not_work_from_the_start) {
  for (const CanStatus status :
       {CanStatus::interface_missing, CanStatus::interface_down, CanStatus::failed}) {
    statuses = {status};
    sends = 0;
    err.str("");
    EXPECT_EQ(run(3), ExitStatus::bus_fault);
    EXPECT_EQ(sends, 1U);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(),
              "velmora-can-bridge: state " + std::to_string(static_cast<int>(status)) + "\n");
  }
}

TEST_F(ProducerLoopTest, tells_trouble_once_per_change_and_goes_on) {
  statuses = {CanStatus::ok,
              CanStatus::queue_full,
              CanStatus::queue_full,
              CanStatus::interface_down,
              CanStatus::interface_down,
              CanStatus::ok,
              CanStatus::ok,
              CanStatus::failed};
  EXPECT_EQ(run(4), ExitStatus::success);
  EXPECT_EQ(err.str(),
            "velmora-can-bridge: state 2\n"
            "velmora-can-bridge: state 3\n"
            "velmora-can-bridge: state 0\n"
            "velmora-can-bridge: state 7\n"
            "velmora-can-bridge: state 0\n");
  EXPECT_EQ(out.str(), "sending this; Ctrl-C ends it\nsent 4 frames, failed to send 5\n");
}

TEST_F(ProducerLoopTest, waits_for_a_bus_that_takes_no_frames_yet) {
  statuses = {CanStatus::queue_full};
  EXPECT_EQ(run(1), ExitStatus::success);
  EXPECT_EQ(err.str(), "velmora-can-bridge: state 2\nvelmora-can-bridge: state 0\n");
}

TEST_F(ProducerLoopTest, prints_its_end_as_json) {
  statuses = {CanStatus::ok, CanStatus::queue_full};
  EXPECT_EQ(run(2, true), ExitStatus::success);
  EXPECT_EQ(out.str(), R"({"sent":2,"not_sent":1,"ok":true,"code":"done"})"
                       "\n");
}

TEST_F(ProducerLoopTest, prints_an_interruption_as_json) {
  interrupting_send = 1;
  EXPECT_EQ(run(2, true), ExitStatus::interrupted);
  EXPECT_EQ(out.str(), R"({"sent":1,"not_sent":0,"ok":false,"code":"interrupted"})"
                       "\n");
}

/// A wait that does not look up now and again ends with a second frame.
TEST(ProducerLoop, ends_between_two_frames_when_interrupted) {
  InProcessBus bus;
  std::atomic<bool> interrupted{false};
  std::ostringstream out;
  const CommandLineHost host{out, out, false, {}, {}, &interrupted};
  SyncProducer producer(bus, std::chrono::seconds(20));
  ProducerLoop loop(host, bus, producer, {"this", {}, false});
  std::atomic<bool> is_sent{false};
  const auto node = bus.open(
      {{0x080}},
      [&](const CanFrame& /*frame*/, std::vector<CanFrame>& /*answers*/) { is_sent = true; });
  std::thread user([&] {
    while (!is_sent) {
      std::this_thread::yield();
    }
    interrupted = true;
  });
  EXPECT_EQ(loop.run(), ExitStatus::interrupted);
  user.join();
  EXPECT_EQ(producer.sent(), 1U);
}

}  // namespace
}  // namespace velmora_can_bridge
