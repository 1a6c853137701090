#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hand_made_frames.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Frames = std::vector<CanFrame>;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const CanFrame read_5 = sdo_frame(0x605, 0x40, {0x1018, 4});
const CanFrame read_6 = sdo_frame(0x606, 0x40, {0x1018, 4});
const CanFrame serial_5 = sdo_frame(0x585, 0x43, {0x1018, 4}, 5);
const CanFrame serial_6 = sdo_frame(0x586, 0x43, {0x1018, 4}, 6);

class SimulatedNodeServerTest : public testing::Test {
 protected:
  void send(const CanFrame& frame) {
    ASSERT_EQ(client->send(frame, nanoseconds(0)), CanStatus::ok);
  }

  Frames received() const {
    Frames frames;
    CanFrame frame;
    while (client->receive(frame, nanoseconds(0)) == CanStatus::ok) {
      frames.push_back(frame);
    }
    return frames;
  }

  InProcessBus bus{BusTime::simulated};
  SimulatedBusNode five{5};
  SimulatedBusNode six{6};
  SimulatedNodeServer server{bus, {&five, &six}};
  std::unique_ptr<CanEndpoint> client = bus.open({{0, 0}});
};

TEST_F(SimulatedNodeServerTest, boots_all_nodes) {
  server.boot();

  EXPECT_THAT(received(), ElementsAre(CanFrame{0x705, 1, {0}}, CanFrame{0x706, 1, {0}}));
}

TEST_F(SimulatedNodeServerTest, each_node_answers_for_itself) {
  server.boot();
  received();
  send(read_6);
  send(read_5);

  EXPECT_EQ(server.poll(milliseconds(1)), CanStatus::ok);

  EXPECT_THAT(received(), ElementsAre(serial_6, serial_5));
}

TEST_F(SimulatedNodeServerTest, command_to_all_reaches_every_node) {
  server.boot();
  send({0x000, 2, {1, 0}});

  server.poll(milliseconds(1));

  EXPECT_EQ(five.state(), NmtState::operational);
  EXPECT_EQ(six.state(), NmtState::operational);
}

TEST_F(SimulatedNodeServerTest, time_of_the_bus_passes_for_the_nodes) {
  server.boot();
  five.device().set_object_value(0x1017, 0, {10, 0});
  six.device().set_object_value(0x1017, 0, {30, 0});
  received();

  server.poll(milliseconds(60));

  const Frames frames = received();
  const auto count = [&](std::uint16_t id) {
    return std::count_if(frames.begin(), frames.end(),
                         [&](const CanFrame& frame) { return frame.id == id; });
  };
  EXPECT_EQ(count(0x705), 6);
  EXPECT_EQ(count(0x706), 2);
}

TEST_F(SimulatedNodeServerTest, time_between_polls_passes_too) {
  server.boot();
  five.device().set_object_value(0x1017, 0, {10, 0});
  received();
  CanFrame frame;
  client->receive(frame, milliseconds(25));  // lets the bus's time pass

  server.poll(milliseconds(0));

  EXPECT_EQ(received().size(), 1U) << "of what was missed the latest alone";
}

TEST_F(SimulatedNodeServerTest, frames_of_a_node_do_not_reach_the_others) {
  SimulatedBusNode sender(7, {{{1, "TPDO", 0x321, {{0x2000, 0, 8, ""}}}}, {}});
  SimulatedBusNode receiver(8, {{{1, "RPDO", 0x321, {{0x2001, 0, 8, ""}}}}, {}});
  SimulatedNodeServer both(bus, {&sender, &receiver});
  both.boot();
  send({0x000, 2, {1, 0}});
  both.poll(milliseconds(1));
  sender.device().set_object_value(0x2000, 0, {9});
  both.poll(milliseconds(1));

  EXPECT_EQ(receiver.device().object_value(0x2001, 0), Bytes{0});
  EXPECT_EQ(received().back(), (CanFrame{0x321, 1, {9}}));
}

TEST_F(SimulatedNodeServerTest, does_not_take_its_own_frames_for_those_of_others) {
  five.device().set_object_value(0x1017, 0, {5, 0});
  server.boot();
  send(read_5);
  send(read_6);

  server.poll(milliseconds(20));

  EXPECT_THAT(server.doubled_node_ids(), IsEmpty());
}

TEST_F(SimulatedNodeServerTest, tells_which_nodes_another_device_is_as_well) {
  server.boot();
  SimulatedBusNode other_six(6);
  SimulatedBusNode seven(7);
  SimulatedNodeServer others(bus, {&other_six, &seven});
  others.boot();
  server.poll(milliseconds(1));
  EXPECT_THAT(server.doubled_node_ids(), ElementsAre(6)) << "its boot-up message";

  send(read_6);
  server.poll(milliseconds(1));
  others.poll(milliseconds(1));
  EXPECT_THAT(server.doubled_node_ids(), ElementsAre(6));
  EXPECT_THAT(others.doubled_node_ids(), ElementsAre(6)) << "its answer";
}

TEST_F(SimulatedNodeServerTest, tells_doubles_in_the_order_of_the_nodes) {
  server.boot();
  send(serial_6);
  send(serial_5);
  server.poll(milliseconds(1));

  EXPECT_THAT(server.doubled_node_ids(), ElementsAre(5, 6));
}

TEST_F(SimulatedNodeServerTest, goes_on_after_the_interface_was_down) {
  server.boot();
  bus.set_state(CanStatus::interface_down);
  EXPECT_EQ(server.poll(milliseconds(5)), CanStatus::interface_down);
  EXPECT_EQ(server.poll(milliseconds(5)), CanStatus::ok) << "nothing came and nothing was sent";
  EXPECT_FALSE(server.explain(CanStatus::interface_down).empty());

  five.device().set_object_value(0x1017, 0, {5, 0});
  EXPECT_EQ(server.poll(milliseconds(10)), CanStatus::interface_down) << "heartbeats are refused";

  bus.set_state(CanStatus::ok);
  received();
  send(read_6);
  EXPECT_EQ(server.poll(milliseconds(1)), CanStatus::ok);
  EXPECT_THAT(received(), ElementsAre(serial_6));
}

TEST(SimulatedNodeServerThreadTest, client_on_another_thread_is_served) {
  InProcessBus bus;
  SimulatedBusNode node(5);
  SimulatedNodeServer server(bus, {&node});
  server.boot();
  std::atomic<bool> stops{false};
  std::thread serving([&] {
    while (!stops) {
      server.poll(milliseconds(1));
    }
  });
  CanBusBackend backend(bus, {milliseconds(30'000), milliseconds(60'000)});
  node.device().add_object(0x3000, 0, {ObjectAccess::read_write, {}, true, 300});
  Bytes read;
  const Bytes written = counting_bytes(300);

  EXPECT_TRUE(backend.sdo_write(5, 0x3000, 0, written));
  EXPECT_TRUE(backend.sdo_read(5, 0x3000, 0, read));

  stops = true;
  serving.join();
  EXPECT_EQ(read, written);
}

// Many nodes

/// Opens endpoints of a bus, and notes how many filters the last one has.
class CountingChannel : public CanChannel {
 public:
  explicit CountingChannel(InProcessBus& bus) : bus_(&bus) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    filters_ = filters.size();
    return bus_->open(filters);
  }
  std::size_t filters() const { return filters_; }

 private:
  InProcessBus* const bus_;
  std::size_t filters_ = 0;
};

/// The first four have the predefined COB-IDs, the others those that are predefined for TPDOs.
std::vector<PdoConfig> eight_rpdos(std::uint8_t node_id) {
  std::vector<PdoConfig> rpdos;
  for (std::uint8_t number = 1; number <= 8; ++number) {
    const unsigned of_tpdo = 0x80U + 0x100U * (number - 4U) + node_id;
    rpdos.push_back({number,
                     "RPDO",
                     number <= 4 ? std::uint16_t{0} : static_cast<std::uint16_t>(of_tpdo),
                     {{0x2000, number, 8, ""}}});
  }
  return rpdos;
}

TEST(ManyNodesTest, have_fewer_filters_than_a_socket_of_the_kernel_takes_and_work) {
  constexpr std::size_t most_filters_of_a_socket = 512;
  std::vector<std::unique_ptr<SimulatedBusNode>> nodes;
  std::vector<SimulatedBusNode*> served;
  for (std::uint8_t node_id = 1; node_id <= 127; ++node_id) {
    nodes.push_back(
        std::make_unique<SimulatedBusNode>(node_id, BoardConfig{eight_rpdos(node_id), {}}));
    served.push_back(nodes.back().get());
  }
  InProcessBus bus(BusTime::simulated);
  CountingChannel channel(bus);
  SimulatedNodeServer server(channel, served);
  EXPECT_LE(channel.filters(), most_filters_of_a_socket);

  ASSERT_EQ(server.boot(), CanStatus::ok);
  const auto client = bus.open({});
  client->send({0x000, 2, {1, 0}}, nanoseconds(0));
  for (unsigned number = 1; number <= 8; ++number) {
    const unsigned function = number <= 4 ? 0x100 + 0x100 * number : 0x80 + 0x100 * (number - 4);
    for (unsigned node_id = 1; node_id <= 127; ++node_id) {
      client->send({static_cast<std::uint16_t>(function + node_id),
                    1,
                    {static_cast<std::uint8_t>(node_id + number)}},
                   nanoseconds(0));
    }
  }
  ASSERT_EQ(server.poll(milliseconds(2)), CanStatus::ok);

  for (const auto& node : nodes) {
    for (std::uint8_t number = 1; number <= 8; ++number) {
      const Bytes expected{static_cast<std::uint8_t>(node->node_id() + number)};
      EXPECT_EQ(node->device().object_value(0x2000, number), expected)
          << int{node->node_id()} << ", RPDO " << int{number};
    }
  }
}

// On a bus that does as the test says

/// Answers receives and sends by script, then with its last line; notes how it was asked. Its clock
/// moves by `step` with each receive.
struct Script {
  std::deque<CanStatus> receives = {CanStatus::timed_out};
  std::deque<CanStatus> sends = {CanStatus::ok};
  nanoseconds step{0};
  std::chrono::steady_clock::time_point now{};
  std::vector<nanoseconds> timeouts;
  std::vector<nanoseconds> patiences;
  std::vector<CanFilter> filters;

  static CanStatus next(std::deque<CanStatus>& lines) {
    const CanStatus line = lines.front();
    if (lines.size() > 1) {
      lines.pop_front();
    }
    return line;
  }
};

class ScriptedEndpoint : public CanEndpoint {
 public:
  explicit ScriptedEndpoint(Script& script) : script_(&script) {}

  CanStatus send(const CanFrame& /*frame*/, nanoseconds patience) override {
    script_->patiences.push_back(patience);
    return Script::next(script_->sends);
  }
  CanStatus receive(CanFrame& frame, nanoseconds timeout) override {
    script_->timeouts.push_back(timeout);
    script_->now += script_->step;
    const CanStatus status = Script::next(script_->receives);
    if (status == CanStatus::ok) {
      frame = read_5;
    }
    return status;
  }
  std::chrono::steady_clock::time_point now() const override { return script_->now; }
  std::string explain(CanStatus /*status*/) const override { return "as the script says"; }

 private:
  Script* script_;
};

class ScriptedChannel : public CanChannel {
 public:
  explicit ScriptedChannel(Script& script) : script_(&script) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    script_->filters = filters;
    return std::make_unique<ScriptedEndpoint>(*script_);
  }

 private:
  Script* script_;
};

class ScriptedServerTest : public testing::Test {
 protected:
  Script script;
  ScriptedChannel channel{script};
  SimulatedBusNode five{5};
  SimulatedBusNode six{6, {{{1, "RPDO", 0x321, {{0x2000, 0, 8, ""}}}}, {}}};
  SimulatedNodeServer server{channel, {&five, &six}};
};

TEST_F(ScriptedServerTest, opens_with_the_filters_of_all) {
  for (const SimulatedBusNode* const node : {&five, &six}) {
    for (const CanFilter& wanted : node->filters()) {
      EXPECT_EQ(std::count_if(script.filters.begin(), script.filters.end(),
                              [&](const CanFilter& filter) {
                                return filter.id == wanted.id && filter.mask == wanted.mask;
                              }),
                1)
          << wanted.id;
    }
  }
}

TEST_F(ScriptedServerTest, waits_in_steps_of_the_tick_interval) {
  script.step = nanoseconds(700'000);

  EXPECT_EQ(server.poll(milliseconds(2)), CanStatus::ok);

  EXPECT_THAT(script.timeouts, ElementsAre(milliseconds(1), milliseconds(1), nanoseconds(600'000)));
}

TEST_F(ScriptedServerTest, poll_without_time_takes_what_is_there) {
  for (const milliseconds timeout : {milliseconds(0), milliseconds(-1), milliseconds::min()}) {
    script.timeouts.clear();
    server.poll(timeout);
    EXPECT_THAT(script.timeouts, ElementsAre(nanoseconds(0)));
  }
}

TEST_F(ScriptedServerTest, longest_poll_is_an_hour) {
  script.step = std::chrono::minutes(10);

  server.poll(milliseconds::max());

  EXPECT_EQ(script.timeouts.size(), 6U);
}

TEST_F(ScriptedServerTest, less_than_a_millisecond_is_kept_for_the_next_tick) {
  server.boot();
  five.device().set_object_value(0x1017, 0, {7, 0});
  script.patiences.clear();
  script.step = nanoseconds(1'400'000);

  server.poll(milliseconds(7));  // five receives

  EXPECT_EQ(script.patiences.size(), 1U);
}

TEST_F(ScriptedServerTest, bus_that_fails_for_good_does_not_make_it_spin) {
  script.receives = {CanStatus::failed};

  EXPECT_EQ(server.poll(milliseconds(1000)), CanStatus::failed);
  EXPECT_EQ(script.timeouts.size(), 2U) << "the second one ends the poll";
  EXPECT_EQ(server.poll(milliseconds(1000)), CanStatus::failed);
  EXPECT_EQ(script.timeouts.size(), 3U);
}

TEST_F(ScriptedServerTest, trouble_that_is_told_once_ends_nothing) {
  script.receives = {CanStatus::bus_off,   CanStatus::timed_out, CanStatus::error_passive,
                     CanStatus::timed_out, CanStatus::bus_off,   CanStatus::ok,
                     CanStatus::timed_out};
  script.step = milliseconds(1);

  EXPECT_EQ(server.poll(milliseconds(10)), CanStatus::bus_off);
  EXPECT_EQ(script.timeouts.size(), 10U);
  EXPECT_EQ(server.poll(milliseconds(1)), CanStatus::ok) << "trouble of an earlier poll";
}

struct SendingCase {
  std::string name;
  /// What the boot-up messages of three nodes meet.
  std::deque<CanStatus> sends;
  CanStatus told;
  std::vector<milliseconds> patiences;
};

void PrintTo(const SendingCase& row, std::ostream* out) { *out << row.name; }

class ServerSendingTest : public ScriptedServerTest,
                          public testing::WithParamInterface<SendingCase> {};

TEST_P(ServerSendingTest, waits_for_a_full_queue_once_and_tells_the_last_trouble) {
  SimulatedBusNode seven{7};
  SimulatedNodeServer three(channel, {&five, &six, &seven});
  script.sends = GetParam().sends;

  EXPECT_EQ(three.boot(), GetParam().told);

  EXPECT_EQ(script.patiences,
            std::vector<nanoseconds>(GetParam().patiences.begin(), GetParam().patiences.end()));
}

constexpr milliseconds patient{5};
constexpr milliseconds impatient{0};

INSTANTIATE_TEST_SUITE_P(
    all, ServerSendingTest,
    testing::Values(
        SendingCase{"all_go", {CanStatus::ok}, CanStatus::ok, {patient, patient, patient}},
        SendingCase{"first_fails",
                    {CanStatus::queue_full, CanStatus::ok},
                    CanStatus::queue_full,
                    {patient, impatient, impatient}},
        SendingCase{"second_fails",
                    {CanStatus::ok, CanStatus::queue_full, CanStatus::ok},
                    CanStatus::queue_full,
                    {patient, patient, impatient}},
        SendingCase{"last_fails",
                    {CanStatus::ok, CanStatus::ok, CanStatus::queue_full},
                    CanStatus::queue_full,
                    {patient, patient, patient}},
        SendingCase{"two_fail",
                    {CanStatus::queue_full, CanStatus::interface_down, CanStatus::ok},
                    CanStatus::interface_down,
                    {patient, impatient, impatient}}),
    [](const testing::TestParamInfo<SendingCase>& row) { return row.param.name; });

TEST_F(ScriptedServerTest, patience_is_back_with_the_next_frames) {
  script.sends = {CanStatus::queue_full};
  server.boot();
  script.patiences.clear();
  script.receives = {CanStatus::ok, CanStatus::ok, CanStatus::timed_out};
  script.step = milliseconds(1);

  EXPECT_EQ(server.poll(milliseconds(4)), CanStatus::queue_full);

  EXPECT_THAT(script.patiences, ElementsAre(patient, patient));
}

TEST_F(ScriptedServerTest, frame_that_was_refused_is_lost) {
  script.sends = {CanStatus::interface_down};
  server.boot();
  script.patiences.clear();

  server.poll(milliseconds(0));

  EXPECT_THAT(script.patiences, IsEmpty());
}

}  // namespace
}  // namespace velmora_can_bridge
