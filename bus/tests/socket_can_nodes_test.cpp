// Client and simulated nodes on an interface of the kernel; ./dev vcan finds one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "no_descriptors.hpp"
#include "socket_can_interface.hpp"
#include "support/patience.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/network_management.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

constexpr std::uint16_t word = 0x3000;
constexpr std::uint16_t text = 0x3001;
constexpr std::uint16_t mapped = 0x3002;

/// Nodes 5 and 6 behind a server of their own thread; nobody is node 7.
class SocketCanNodesTest : public testing::Test {
 public:
  SocketCanNodesTest() {
    for (SimulatedBusNode* const node : {&five, &six}) {
      node->device().add_object(word, 0, {ObjectAccess::read_write, {1, 2}});
      node->device().add_object(text, 0, {ObjectAccess::read_write, {}, true, 2000});
    }
    server.boot();
    thread = std::thread([this] {
      while (!stop) {
        server.poll(milliseconds(5));
      }
    });
  }
  ~SocketCanNodesTest() override {
    stop = true;
    thread.join();
  }
  SocketCanNodesTest(const SocketCanNodesTest&) = delete;
  SocketCanNodesTest(SocketCanNodesTest&&) = delete;
  SocketCanNodesTest& operator=(const SocketCanNodesTest&) = delete;
  SocketCanNodesTest& operator=(SocketCanNodesTest&&) = delete;

 protected:
  std::string error_text(std::uint8_t node_id) const {
    const auto error = backend.last_error(node_id);
    return error ? error->text : "no error";
  }

  SocketCanChannel channel{test_interface()};
  SimulatedBusNode five{5, {{{1, "RPDO", 0, {{mapped, 0, 16, "mapped"}}}}, {}}};
  SimulatedBusNode six{6};
  SimulatedNodeServer server{channel, {&five, &six}};
  std::atomic<bool> stop{false};
  std::thread thread;
  // An emulated machine may be slow.
  CanBusBackend backend{channel, {milliseconds(10000), milliseconds(60000)}};
  Bytes data;
};

TEST_F(SocketCanNodesTest, backend_whose_first_transfer_lacked_descriptors_works_afterwards) {
  {
    const NoDescriptors lack;
    EXPECT_FALSE(backend.sdo_read(5, word, 0, data));
    EXPECT_THAT(error_text(5), testing::HasSubstr("too many open files"));
  }
  EXPECT_TRUE(backend.sdo_read(5, word, 0, data)) << error_text(5);
  EXPECT_EQ(data, (Bytes{1, 2}));
}

TEST_F(SocketCanNodesTest, objects_of_every_length_are_written_and_read_back) {
  for (const std::size_t length : {0U, 1U, 4U, 5U, 7U, 8U, 14U, 15U, 1000U}) {
    Bytes bytes;
    for (std::size_t position = 0; position < length; ++position) {
      bytes.push_back(static_cast<std::uint8_t>(position * 7 + length));
    }
    EXPECT_TRUE(backend.sdo_write(5, text, 0, bytes)) << length << ": " << error_text(5);
    data.clear();
    EXPECT_TRUE(backend.sdo_read(5, text, 0, data)) << length << ": " << error_text(5);
    EXPECT_EQ(data, bytes);
  }
  EXPECT_EQ(six.device().object_value(text, 0), Bytes());
}

TEST_F(SocketCanNodesTest, refusal_of_the_node_comes_back) {
  EXPECT_FALSE(backend.sdo_read(5, 0x4000, 0, data));

  ASSERT_TRUE(backend.last_error(5));
  EXPECT_EQ(backend.last_error(5)->kind, BusErrorKind::refused);
  EXPECT_EQ(error_text(5), "abort 0x06020000, no object at this index");
}

TEST_F(SocketCanNodesTest, node_that_is_not_there_does_not_answer) {
  CanBusBackend hasty(channel, {milliseconds(20), milliseconds(20), milliseconds(1)});

  EXPECT_FALSE(hasty.sdo_write(7, word, 0, {1, 2}));

  ASSERT_TRUE(hasty.last_error(7));
  EXPECT_EQ(hasty.last_error(7)->kind, BusErrorKind::no_answer);
  EXPECT_TRUE(hasty.last_error(7)->outcome_unknown);
}

TEST_F(SocketCanNodesTest, lateness_of_an_answer_is_told_by_the_kernels_time_stamp) {
  std::vector<BusError> told;
  CanBusBackend hasty(channel, {milliseconds(20), milliseconds(20), milliseconds(1)},
                      [&](const BusError& error) { told.push_back(error); });
  const auto listener = channel.open({{0x587}});
  listener->note_arrivals();
  const auto begun = listener->now();
  EXPECT_FALSE(hasty.sdo_read(7, word, 0, data));
  const auto node = channel.open({});
  CanFrame answer{0x587, 8, {0x4B, 0x00, 0x30, 0x00, 1, 2}};
  ASSERT_EQ(node->send(answer, milliseconds(1000)), CanStatus::ok);
  ASSERT_EQ(listener->receive(answer, milliseconds(10000)), CanStatus::ok);
  std::this_thread::sleep_for(milliseconds(500));  // as long it lies in the client's socket

  EXPECT_FALSE(hasty.sdo_read(7, text, 0, data));

  ASSERT_FALSE(told.empty());
  const auto late = std::find_if(told.begin(), told.end(), [](const BusError& error) {
    return error.kind == BusErrorKind::late_answer;
  });
  ASSERT_NE(late, told.end());
  EXPECT_EQ(late->index, word);
  EXPECT_LE(late->lateness, listener->arrival().time - begun + milliseconds(10));
}

TEST_F(SocketCanNodesTest, nodes_are_served_side_by_side) {
  std::atomic<int> failures{0};
  const auto work = [&](std::uint8_t node_id) {
    for (std::uint8_t round = 0; round < 50; ++round) {
      Bytes read;
      const Bytes written(2, round);
      const bool done = backend.sdo_write(node_id, word, 0, written) &&
                        backend.sdo_read(node_id, word, 0, read) && read == written;
      failures += done ? 0 : 1;
    }
  };
  std::thread first(work, std::uint8_t{5});
  std::thread second(work, std::uint8_t{6});
  first.join();
  second.join();

  EXPECT_EQ(failures, 0) << error_text(5) << ", " << error_text(6);
}

TEST_F(SocketCanNodesTest, commands_rpdos_and_heartbeats_reach_each_other) {
  five.device().set_object_value(0x1017, 0, {10, 0});
  NodeWatch watch(channel, milliseconds(60000), [](const NodeEvent& /*event*/) {});
  const auto is = [&](NmtState state) {
    return [&watch, state] {
      watch.poll(milliseconds(5));
      return watch.state(5) == state;
    };
  };
  EXPECT_TRUE(comes_true(is(NmtState::pre_operational)));
  NmtMaster master(channel);
  EXPECT_FALSE(master.send(NmtCommand::start, 5));
  EXPECT_TRUE(comes_true(is(NmtState::operational)));

  EXPECT_TRUE(backend.send_rpdo(5, 1, {0x34, 0x12}, 2));
  const auto has_come = [&] { return five.device().object_value(mapped, 0) == Bytes{0x34, 0x12}; };
  EXPECT_TRUE(comes_true(has_come));
}

TEST(SocketCanManyNodesTest, all_node_ids_work_on_one_socket) {
  std::vector<PdoConfig> rpdos;
  for (std::uint8_t number = 1; number <= 8; ++number) {
    // The second four have the COB-IDs that are predefined for the TPDOs of node 127.
    const auto cob_id = static_cast<std::uint16_t>(number <= 4 ? 0 : 0xFF + 0x100 * (number - 4));
    rpdos.push_back({number, "RPDO", cob_id, {{mapped, number, 8, ""}}});
  }
  std::vector<std::unique_ptr<SimulatedBusNode>> nodes;
  std::vector<SimulatedBusNode*> served;
  for (std::uint8_t node_id = 1; node_id <= 127; ++node_id) {
    // RPDOs cost no filter; on an emulated machine they cost time.
    const BoardConfig board{node_id == 127 ? rpdos : std::vector<PdoConfig>(), {}};
    nodes.push_back(std::make_unique<SimulatedBusNode>(node_id, board));
    served.push_back(nodes.back().get());
  }
  SocketCanChannel channel(test_interface());
  SimulatedNodeServer server(channel, served);
  ASSERT_EQ(server.boot(), CanStatus::ok);
  const auto client = channel.open({});
  ASSERT_EQ(client->send({0x000, 2, {1, 127}}, patience), CanStatus::ok);
  // RPDO 4 and 8.
  ASSERT_EQ(client->send({0x57F, 1, {4}}, patience), CanStatus::ok);
  ASSERT_EQ(client->send({0x4FF, 1, {8}}, patience), CanStatus::ok);

  EXPECT_TRUE(comes_true([&] {
    server.poll(milliseconds(1));
    return nodes.back()->device().object_value(mapped, 4) == Bytes{4} &&
           nodes.back()->device().object_value(mapped, 8) == Bytes{8};
  }));
}

TEST_F(SocketCanNodesTest, own_frames_are_not_taken_for_those_of_another_device) {
  ASSERT_TRUE(backend.sdo_read(5, word, 0, data)) << error_text(5);
  ASSERT_TRUE(backend.sdo_read(6, word, 0, data)) << error_text(6);
  EXPECT_THAT(server.doubled_node_ids(), testing::IsEmpty());

  SimulatedBusNode second_six(6);
  SimulatedNodeServer second(channel, {&second_six});
  ASSERT_EQ(second.boot(), CanStatus::ok);

  EXPECT_TRUE(comes_true([&] { return server.doubled_node_ids() == Bytes{6}; }));
}

}  // namespace
}  // namespace velmora_can_bridge
