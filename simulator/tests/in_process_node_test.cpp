#include "velmora_can_bridge/simulator/in_process_node.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "hand_made_frames.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Frames = std::vector<CanFrame>;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const CanFrame boot_up_frame{0x705, 1, {0}};
const CanFrame start_all{0x000, 2, {1, 0}};
const CanFrame read_serial_number = sdo_frame(0x605, 0x40, {0x1018, 4});
const CanFrame serial_number_read = sdo_frame(0x585, 0x43, {0x1018, 4}, 5);

/// RPDO 1 writes what TPDO 1 shows.
BoardConfig echo_board() {
  return {{{1, "RPDO", 0, {{0x2000, 1, 16, "output"}}}, {1, "TPDO", 0, {{0x2000, 1, 16, ""}}}}, {}};
}

CanFrame rpdo(std::uint16_t value) {
  return {
      0x205, 2, {static_cast<std::uint8_t>(value & 0xFFU), static_cast<std::uint8_t>(value >> 8U)}};
}

CanFrame tpdo(std::uint16_t value) {
  CanFrame frame = rpdo(value);
  frame.id = 0x185;
  return frame;
}

class InProcessNodeTest : public testing::Test {
 protected:
  void send(const CanFrame& frame) {
    ASSERT_EQ(client->send(frame, nanoseconds(0)), CanStatus::ok);
  }

  /// What the client's endpoint has now.
  Frames received() const {
    Frames frames;
    CanFrame frame;
    while (client->receive(frame, nanoseconds(0)) == CanStatus::ok) {
      frames.push_back(frame);
    }
    return frames;
  }

  InProcessBus bus;
  SimulatedBusNode device{5, echo_board()};
  InProcessNode node{bus, device};
  std::unique_ptr<CanEndpoint> client = bus.open({{0, 0}});
};

TEST_F(InProcessNodeTest, does_not_hear_itself) {
  device.device().set_object_value(0x1017, 0, {10, 0});
  node.boot();
  send(read_serial_number);
  node.tick(milliseconds(10));

  EXPECT_THAT(received(),
              ElementsAre(boot_up_frame, serial_number_read, CanFrame{0x705, 1, {127}}));
  EXPECT_FALSE(device.is_doubled());
}

TEST_F(InProcessNodeTest, hears_another_node_with_its_id) {
  SimulatedBusNode second_device(5);
  InProcessNode second(bus, second_device);
  node.boot();
  EXPECT_FALSE(second_device.is_doubled()) << "deaf until it boots";

  second.boot();
  EXPECT_TRUE(device.is_doubled());
  EXPECT_FALSE(second_device.is_doubled());

  send(read_serial_number);
  EXPECT_TRUE(second_device.is_doubled());
}

TEST_F(InProcessNodeTest, boots_on_the_bus) {
  send(read_serial_number);
  EXPECT_THAT(received(), IsEmpty()) << "deaf until then";

  node.boot();

  EXPECT_THAT(received(), ElementsAre(boot_up_frame));
}

TEST_F(InProcessNodeTest, answers_before_the_send_returns) {
  node.boot();
  received();

  send(read_serial_number);

  EXPECT_THAT(received(), ElementsAre(serial_number_read));
}

TEST_F(InProcessNodeTest, hears_only_its_own_frames) {
  node.boot();
  received();

  send(sdo_frame(0x606, 0x40, {0x1018, 4}));

  EXPECT_THAT(received(), IsEmpty());
}

TEST_F(InProcessNodeTest, tick_sends_what_time_brings) {
  node.boot();
  device.device().set_object_value(0x1017, 0, {10, 0});
  received();

  node.tick(milliseconds(20));

  EXPECT_EQ(received(), Frames(1, CanFrame{0x705, 1, {0x7F}}));
}

TEST_F(InProcessNodeTest, tick_sends_again_only_what_is_new) {
  node.boot();
  send(start_all);
  received();

  node.tick(milliseconds(1));
  node.tick(milliseconds(1));

  EXPECT_THAT(received(), IsEmpty());
}

TEST_F(InProcessNodeTest, two_nodes_share_the_bus) {
  SimulatedBusNode other_device(6);
  InProcessNode other(bus, other_device);
  node.boot();
  other.boot();
  received();

  send(sdo_frame(0x606, 0x40, {0x1018, 4}));
  send(read_serial_number);

  EXPECT_THAT(received(), ElementsAre(sdo_frame(0x586, 0x43, {0x1018, 4}, 6), serial_number_read));
}

TEST_F(InProcessNodeTest, leaves_the_bus_when_it_goes) {
  {
    InProcessNode twin(bus, device);
    twin.boot();
    send(read_serial_number);
    ASSERT_EQ(received().size(), 3U) << "boot-up, and an answer of each of the two";
  }
  send(read_serial_number);

  EXPECT_THAT(received(), ElementsAre(serial_number_read));
}

TEST_F(InProcessNodeTest, lost_frames_do_not_disturb_it) {
  bus.set_state(CanStatus::interface_down);
  node.boot();
  node.tick(milliseconds(1));
  bus.set_state(CanStatus::ok);
  received();

  send(read_serial_number);

  EXPECT_THAT(received(), ElementsAre(serial_number_read));
}

TEST_F(InProcessNodeTest, change_while_a_tick_is_sent_follows_with_the_next_tick) {
  node.boot();
  send(start_all);
  bool has_answered = false;
  const auto master = bus.open({{0x185}}, [&](const CanFrame&, Frames& answers) {
    if (!has_answered) {
      answers.push_back(rpdo(2));
      has_answered = true;
    }
  });
  received();
  device.device().set_object_value(0x2000, 1, {1, 0});

  node.tick(milliseconds(1));
  EXPECT_THAT(received(), ElementsAre(tpdo(1), rpdo(2)));

  node.tick(milliseconds(0));
  EXPECT_THAT(received(), ElementsAre(tpdo(2)));
}

TEST_F(InProcessNodeTest, changes_are_sent_again_after_a_tick_that_ended_with_an_exception) {
  node.boot();
  send(start_all);
  bool has_thrown = false;
  const auto master = bus.open({{0x185}}, [&](const CanFrame&, Frames&) {
    if (!std::exchange(has_thrown, true)) {
      throw std::runtime_error("out of order");
    }
  });
  device.device().set_object_value(0x2000, 1, {1, 0});
  EXPECT_THROW(node.tick(milliseconds(1)), std::runtime_error);
  received();

  send(rpdo(2));

  EXPECT_THAT(received(), ElementsAre(tpdo(2)));
}

TEST_F(InProcessNodeTest, request_while_a_tick_is_sent_is_answered) {
  node.boot();
  send(start_all);
  const auto master = bus.open(
      {{0x185}}, [&](const CanFrame&, Frames& answers) { answers.push_back(read_serial_number); });
  received();
  device.device().set_object_value(0x2000, 1, {1, 0});

  node.tick(milliseconds(1));

  EXPECT_THAT(received(), ElementsAre(tpdo(1), read_serial_number, serial_number_read));
}

// With the client's side of the bus

TEST_F(InProcessNodeTest, transfers_of_every_length_come_back) {
  node.boot();
  device.device().add_object(0x3000, 0, {ObjectAccess::read_write, {}, true, 300});
  CanBusBackend backend(bus);
  for (std::size_t length = 0; length <= 300; ++length) {
    const Bytes written = counting_bytes(length, static_cast<std::uint8_t>(length));
    Bytes read;

    ASSERT_TRUE(backend.sdo_write(5, 0x3000, 0, written)) << length;
    ASSERT_TRUE(backend.sdo_read(5, 0x3000, 0, read)) << length;
    ASSERT_EQ(read, written);
  }
}

TEST_F(InProcessNodeTest, refusal_reaches_the_client_with_its_reason) {
  node.boot();
  CanBusBackend backend(bus);

  EXPECT_FALSE(backend.sdo_write(5, 0x1018, 4, {1, 2, 3, 4}));

  const std::optional<BusError> error = backend.last_error(5);
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->kind, BusErrorKind::refused);
  EXPECT_EQ(error->abort_code, 0x06010002U);
}

TEST_F(InProcessNodeTest, master_sees_its_states) {
  std::vector<NmtState> seen;
  NodeWatch watch(bus, milliseconds(0), [](const NodeEvent& /*event*/) {});
  NmtMaster master(bus);
  node.boot();
  device.device().set_object_value(0x1017, 0, {10, 0});
  for (const NmtCommand command : {NmtCommand::start, NmtCommand::stop}) {
    EXPECT_EQ(master.send(command, 5), std::nullopt);
    node.tick(milliseconds(10));
    watch.poll(milliseconds(0));
    seen.push_back(watch.state(5).value());
  }

  EXPECT_THAT(seen, ElementsAre(NmtState::operational, NmtState::stopped));
}

// From several threads

TEST_F(InProcessNodeTest, last_tpdo_is_the_last_value) {
  constexpr int rounds = 500;
  node.boot();
  send(start_all);
  received();
  std::atomic<int> failures{0};
  const auto run = [&](const std::function<void(int)>& task) {
    return std::thread([task] {
      for (int round = 1; round <= rounds; ++round) {
        task(round);
      }
    });
  };
  const auto sender = bus.open({});
  CanBusBackend backend(bus);
  std::vector<std::thread> threads;
  threads.push_back(run([&](int) { node.tick(milliseconds(1)); }));
  threads.push_back(run([&](int) { node.tick(milliseconds(1)); }));
  threads.push_back(run(
      [&](int round) { sender->send(rpdo(static_cast<std::uint16_t>(round)), nanoseconds(0)); }));
  threads.push_back(run([&](int round) {
    const bool done = backend.sdo_write(5, 0x2000, 1, {static_cast<std::uint8_t>(round), 0x80});
    failures += done ? 0 : 1;
  }));
  threads.push_back(run([&](int round) {
    device.device().set_object_value(0x2000, 1, {static_cast<std::uint8_t>(round), 0x40});
  }));
  for (std::thread& thread : threads) {
    thread.join();
  }
  node.tick(milliseconds(1));

  std::optional<CanFrame> last;
  for (const CanFrame& each : received()) {
    last = each.id == 0x185 ? each : last;
  }
  const Bytes value = device.device().object_value(0x2000, 1).value();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(last, tpdo(static_cast<std::uint16_t>(value[0] | value[1] << 8)));
}

}  // namespace
}  // namespace velmora_can_bridge
