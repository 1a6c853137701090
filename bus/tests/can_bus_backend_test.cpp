#include "velmora_can_bridge/bus/can_bus_backend.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "scripted_node.hpp"
#include "support/patience.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Frames = std::vector<CanFrame>;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<std::uint8_t, 8> all_bytes = {1, 2, 3, 4, 5, 6, 7, 8};

class CanBusBackendTest : public testing::Test {
 protected:
  std::string last_text(std::uint8_t node_id) const {
    const auto error = backend.last_error(node_id);
    return error ? error->text : "";
  }

  InProcessBus bus{BusTime::simulated, "vcan0"};
  ScriptedNode node{bus, 5};
  std::unique_ptr<CanEndpoint> bystander = bus.open({{0, 0}});
  std::vector<BusError> told;
  CanBusBackend backend{bus, {}, [this](const BusError& error) { told.push_back(error); }};
  Bytes data;
};

TEST_F(CanBusBackendTest, read_brings_the_bytes_of_the_object) {
  node.answer_with({"4B 00 20 01 11 22 00 00"});

  EXPECT_TRUE(backend.sdo_read(5, 0x2000, 1, data));

  EXPECT_THAT(data, ElementsAre(0x11, 0x22));
  EXPECT_THAT(node.take_requests(), ElementsAre(frame_of(0x605, "40 00 20 01 00 00 00 00")));
  EXPECT_THAT(told, IsEmpty());
  EXPECT_FALSE(backend.last_error(5));
}

TEST_F(CanBusBackendTest, write_sends_the_bytes) {
  node.answer_with({"60 00 20 01 00 00 00 00"});

  EXPECT_TRUE(backend.sdo_write(5, 0x2000, 1, {0x11, 0x22}));

  EXPECT_THAT(node.take_requests(), ElementsAre(frame_of(0x605, "2B 00 20 01 11 22 00 00")));
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(CanBusBackendTest, refusal_is_told_and_remembered) {
  node.answer_with({"80 00 20 01 02 00 01 06"});

  EXPECT_FALSE(backend.sdo_write(5, 0x2000, 1, {1}));

  ASSERT_EQ(told.size(), 1U);
  const auto error = backend.last_error(5);
  ASSERT_TRUE(error);
  for (const BusError& one : {told[0], *error}) {
    EXPECT_EQ(one.kind, BusErrorKind::refused);
    EXPECT_EQ(one.node_id, 5);
    EXPECT_EQ(one.index, 0x2000);
    EXPECT_EQ(one.sub_index, 1);
    EXPECT_EQ(one.abort_code, 0x06010002U);
    EXPECT_FALSE(one.outcome_unknown);
    EXPECT_EQ(one.text, "abort 0x06010002, the object can only be read");
  }
}

TEST_F(CanBusBackendTest, lost_answer_of_a_write_leaves_its_outcome_unknown) {
  EXPECT_FALSE(backend.sdo_write(5, 0x2000, 1, {1}));

  const auto error = backend.last_error(5);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::no_answer);
  EXPECT_TRUE(error->outcome_unknown);
}

TEST_F(CanBusBackendTest, lost_answer_of_a_read_has_an_outcome) {
  EXPECT_FALSE(backend.sdo_read(5, 0x2000, 1, data));

  const auto error = backend.last_error(5);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::no_answer);
  EXPECT_FALSE(error->outcome_unknown);
}

TEST_F(CanBusBackendTest, success_does_not_clear_the_last_error) {
  node.answer_with({"80 00 20 01 02 00 01 06", "4F 00 20 01 11 00 00 00"});
  EXPECT_FALSE(backend.sdo_read(5, 0x2000, 1, data));
  EXPECT_TRUE(backend.sdo_read(5, 0x2000, 1, data));

  EXPECT_EQ(last_text(5), "abort 0x06010002, the object can only be read");
}

TEST_F(CanBusBackendTest, later_error_replaces_the_last_one) {
  node.answer_with({"80 00 20 01 02 00 01 06", "80 00 20 01 00 00 02 06"});
  EXPECT_FALSE(backend.sdo_read(5, 0x2000, 1, data));
  EXPECT_FALSE(backend.sdo_read(5, 0x2000, 1, data));

  EXPECT_EQ(last_text(5), "abort 0x06020000, no object at this index");
  EXPECT_EQ(told.size(), 2U);
}

TEST_F(CanBusBackendTest, errors_of_one_node_are_not_those_of_another) {
  node.answer_with({"80 00 20 01 02 00 01 06"});
  EXPECT_FALSE(backend.sdo_read(5, 0x2000, 1, data));
  EXPECT_FALSE(backend.sdo_read(6, 0x2000, 1, data));

  EXPECT_EQ(last_text(5), "abort 0x06010002, the object can only be read");
  EXPECT_EQ(last_text(6), "no answer within 500 ms");
  EXPECT_FALSE(backend.last_error(7));
}

TEST_F(CanBusBackendTest, works_without_an_observer) {
  CanBusBackend quiet(bus);
  bus.set_state(CanStatus::error_passive);

  EXPECT_FALSE(quiet.sdo_read(5, 0x2000, 1, data));
  EXPECT_FALSE(quiet.sdo_read(0, 0x2000, 1, data));

  EXPECT_TRUE(quiet.last_error(5));
}

TEST_F(CanBusBackendTest, times_given_are_those_that_are_waited) {
  CanBusBackend hasty(bus, {milliseconds(7), milliseconds(100), milliseconds(0), milliseconds(3)});

  EXPECT_FALSE(hasty.sdo_read(5, 0x2000, 1, data));
  EXPECT_EQ(bystander->now().time_since_epoch(), milliseconds(7));
  bus.set_state(CanStatus::queue_full);
  EXPECT_FALSE(hasty.send_rpdo(5, 1, all_bytes, 8));
  EXPECT_EQ(bystander->now().time_since_epoch(), milliseconds(10));
}

TEST_F(CanBusBackendTest, longest_patience_does_no_harm) {
  CanBusBackend patient(bus,
                        {milliseconds(1), milliseconds(1), milliseconds(1), milliseconds::max()});
  bus.set_state(CanStatus::queue_full);

  EXPECT_FALSE(patient.send_rpdo(5, 1, all_bytes, 8));

  EXPECT_GE(bystander->now().time_since_epoch(), std::chrono::hours(24 * 365));
}

TEST_F(CanBusBackendTest, state_that_ends_no_transfer_is_told_and_not_remembered) {
  node.answer_with({"4F 00 20 01 11 00 00 00", "4F 00 20 01 11 00 00 00"});
  EXPECT_TRUE(backend.sdo_read(5, 0x2000, 1, data));  // opens the endpoint
  bus.set_state(CanStatus::error_passive);

  EXPECT_TRUE(backend.sdo_read(5, 0x2000, 1, data));

  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].kind, BusErrorKind::bus_warning);
  EXPECT_EQ(told[0].node_id, 0);
  EXPECT_EQ(told[0].text, "vcan0 is error-passive: check wiring, termination and bit rate");
  EXPECT_FALSE(backend.last_error(5));
  EXPECT_FALSE(backend.last_error(0));
}

TEST_F(CanBusBackendTest, bus_off_between_transfers_is_told_as_a_fault) {
  node.answer_with({"4F 00 20 01 11 00 00 00", "4F 00 20 01 11 00 00 00"});
  EXPECT_TRUE(backend.sdo_read(5, 0x2000, 1, data));
  bus.set_state(CanStatus::bus_off);
  bus.set_state(CanStatus::ok);

  EXPECT_TRUE(backend.sdo_read(5, 0x2000, 1, data));

  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].kind, BusErrorKind::bus_fault);
  EXPECT_EQ(told[0].node_id, 0);
}

/// Which calls there are.
struct CallCase {
  std::string name;
  std::function<bool(CanBusBackend&, std::uint8_t node_id)> call;
};

void PrintTo(const CallCase& row, std::ostream* out) { *out << row.name; }

class BackendCallTest : public CanBusBackendTest, public testing::WithParamInterface<CallCase> {};

TEST_P(BackendCallTest, node_id_that_is_none_fails_and_sends_nothing) {
  for (const unsigned id : {0U, 128U, 255U}) {
    const auto node_id = static_cast<std::uint8_t>(id);
    EXPECT_FALSE(GetParam().call(backend, node_id));

    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back().kind, BusErrorKind::not_configured);
    EXPECT_EQ(told.back().node_id, node_id);
    EXPECT_EQ(told.back().text, "node id " + std::to_string(id) + " is not one of 1 to 127");
    EXPECT_EQ(last_text(0), told.back().text) << "all such ids together";
    EXPECT_EQ(last_text(200), told.back().text);
  }
  EXPECT_EQ(told.size(), 3U);
  EXPECT_FALSE(backend.last_error(127));
  EXPECT_THAT(received(*bystander), IsEmpty());
}

TEST_P(BackendCallTest, interface_that_is_down_fails_with_its_words) {
  bus.set_state(CanStatus::interface_down);

  EXPECT_FALSE(GetParam().call(backend, 5));

  const auto error = backend.last_error(5);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->kind, BusErrorKind::bus_fault);
  EXPECT_EQ(error->text, "interface vcan0 is down (ip link set vcan0 up)");
  EXPECT_EQ(error->abort_code, 0U);
  EXPECT_FALSE(error->outcome_unknown);
}

TEST_P(BackendCallTest, full_queue_fails_after_the_patience) {
  bus.set_state(CanStatus::queue_full);

  EXPECT_FALSE(GetParam().call(backend, 5));

  EXPECT_EQ(bystander->now().time_since_epoch(), SdoTimes().send_patience);
  EXPECT_EQ(backend.last_error(5)->kind, BusErrorKind::bus_fault);
  bus.set_state(CanStatus::ok);
  EXPECT_THAT(received(*bystander), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    all, BackendCallTest,
    testing::Values(CallCase{"sdo_read",
                             [](CanBusBackend& backend, std::uint8_t node_id) {
                               Bytes data;
                               return backend.sdo_read(node_id, 0x2000, 1, data);
                             }},
                    CallCase{"sdo_write",
                             [](CanBusBackend& backend, std::uint8_t node_id) {
                               return backend.sdo_write(node_id, 0x2000, 1, {1});
                             }},
                    CallCase{"send_rpdo",
                             [](CanBusBackend& backend, std::uint8_t node_id) {
                               return backend.send_rpdo(node_id, 1, all_bytes, 8);
                             }}),
    [](const testing::TestParamInfo<CallCase>& row) { return row.param.name; });

/// The identifier with which an RPDO goes out.
struct CobIdCase {
  std::string name;
  std::vector<PdoConfig> pdos;
  std::uint8_t rpdo;
  /// 0: none.
  std::uint16_t cob_id;
};

void PrintTo(const CobIdCase& row, std::ostream* out) { *out << row.name; }

class RpdoCobIdTest : public CanBusBackendTest, public testing::WithParamInterface<CobIdCase> {};

TEST_P(RpdoCobIdTest, is_that_of_the_board_else_the_predefined_one) {
  backend.set_cob_ids(5, {GetParam().pdos, {}});

  EXPECT_EQ(backend.send_rpdo(5, GetParam().rpdo, all_bytes, 8), GetParam().cob_id != 0);

  if (GetParam().cob_id != 0) {
    EXPECT_THAT(received(*bystander), ElementsAre(CanFrame{GetParam().cob_id, 8, all_bytes}));
    return;
  }
  EXPECT_THAT(received(*bystander), IsEmpty());
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].kind, BusErrorKind::not_configured);
  EXPECT_EQ(told[0].node_id, 5);
  EXPECT_EQ(told[0].text, "RPDO " + std::to_string(GetParam().rpdo) +
                              " has no COB-ID: give it a cob_id in the board configuration");
}

INSTANTIATE_TEST_SUITE_P(
    all, RpdoCobIdTest,
    testing::Values(
        CobIdCase{"predefined_1", {}, 1, 0x205}, CobIdCase{"predefined_2", {}, 2, 0x305},
        CobIdCase{"predefined_3", {}, 3, 0x405}, CobIdCase{"predefined_4", {}, 4, 0x505},
        CobIdCase{"none_5", {}, 5, 0}, CobIdCase{"none_0", {}, 0, 0},
        CobIdCase{"none_255", {}, 255, 0}, CobIdCase{"given", {{1, "RPDO", 0x321, {}}}, 1, 0x321},
        CobIdCase{"given_255", {{255, "RPDO", 0x321, {}}}, 255, 0x321},
        CobIdCase{"given_to_another_number", {{2, "RPDO", 0x321, {}}}, 1, 0x205},
        CobIdCase{"given_to_a_tpdo", {{1, "TPDO", 0x321, {}}}, 1, 0x205},
        CobIdCase{"0_leaves_the_predefined_one", {{1, "RPDO", 0, {}}}, 1, 0x205},
        CobIdCase{"0_without_a_predefined_one", {{9, "RPDO", 0, {}}}, 9, 0},
        CobIdCase{"first_of_two", {{1, "RPDO", 0x321, {}}, {1, "RPDO", 0x322, {}}}, 1, 0x321},
        CobIdCase{"first_of_two_has_none", {{1, "RPDO", 0, {}}, {1, "RPDO", 0x322, {}}}, 1, 0x205},
        CobIdCase{"tpdo_before_it", {{1, "TPDO", 0x321, {}}, {1, "RPDO", 0x322, {}}}, 1, 0x322}),
    [](const testing::TestParamInfo<CobIdCase>& row) { return row.param.name; });

TEST_F(CanBusBackendTest, cob_ids_are_those_of_one_node) {
  backend.set_cob_ids(5, {{{1, "RPDO", 0x321, {}}}, {}});

  EXPECT_TRUE(backend.send_rpdo(6, 1, all_bytes, 8));

  EXPECT_EQ(received(*bystander).at(0).id, 0x206);
}

TEST_F(CanBusBackendTest, cob_ids_of_no_node_are_ignored) {
  for (const unsigned node_id : {0U, 128U, 255U}) {
    backend.set_cob_ids(static_cast<std::uint8_t>(node_id), {{{1, "RPDO", 0x321, {}}}, {}});
  }

  for (std::uint8_t node_id = 1; node_id <= 127; ++node_id) {
    EXPECT_TRUE(backend.send_rpdo(node_id, 1, all_bytes, 0));
    EXPECT_EQ(received(*bystander).at(0).id, 0x200 + node_id);
  }
}

TEST_F(CanBusBackendTest, rpdo_has_the_first_bytes_and_no_others) {
  for (std::uint8_t length = 0; length <= 8; ++length) {
    EXPECT_TRUE(backend.send_rpdo(5, 1, all_bytes, length));

    CanFrame expected{0x205, length, {}};
    std::copy_n(all_bytes.begin(), length, expected.data.begin());
    EXPECT_THAT(received(*bystander), ElementsAre(expected));
  }
}

TEST_F(CanBusBackendTest, rpdo_longer_than_a_frame_is_not_sent) {
  for (const unsigned length : {9U, 255U}) {
    EXPECT_FALSE(backend.send_rpdo(5, 2, all_bytes, static_cast<std::uint8_t>(length)));

    EXPECT_EQ(told.back().kind, BusErrorKind::not_configured);
    EXPECT_EQ(last_text(5), "RPDO 2 is longer than a CAN frame");
  }
  EXPECT_THAT(received(*bystander), IsEmpty());
}

TEST_F(CanBusBackendTest, cob_id_that_no_bus_carries_counts_as_none) {
  backend.set_cob_ids(5, {{{1, "RPDO", 0x800, {}}}, {}});

  EXPECT_FALSE(backend.send_rpdo(5, 1, all_bytes, 8));

  EXPECT_EQ(told.back().kind, BusErrorKind::not_configured);
  EXPECT_EQ(last_text(5), "RPDO 1 has no COB-ID: give it a cob_id in the board configuration");
}

/// Nodes that the test itself plays, by real time with time-outs that are never reached.
class BackendThreadsTest : public testing::Test {
 protected:
  /// Starts a read of the object 0x2000/1 on a thread of its own.
  std::future<Bytes> start_read(std::uint8_t node_id) {
    return std::async(std::launch::async, [this, node_id] {
      Bytes data;
      return backend.sdo_read(node_id, 0x2000, 1, data) ? data : Bytes{0xDE, 0xAD};
    });
  }

  CanFrame next_request() const {
    CanFrame frame;
    EXPECT_EQ(nodes->receive(frame, patience), CanStatus::ok);
    return frame;
  }

  void answer(std::uint16_t id, const std::string& bytes) const {
    EXPECT_EQ(nodes->send(frame_of(id, bytes), nanoseconds(0)), CanStatus::ok);
  }

  InProcessBus bus;
  std::unique_ptr<CanEndpoint> nodes = bus.open({{0, 0}});
  CanBusBackend backend{bus, {std::chrono::hours(1), std::chrono::hours(1)}};
};

TEST_F(BackendThreadsTest, silent_node_holds_up_no_other) {
  auto silent = start_read(5);
  EXPECT_EQ(next_request().id, 0x605);

  auto other = start_read(6);
  EXPECT_EQ(next_request().id, 0x606);
  answer(0x586, "4F 00 20 01 66 00 00 00");
  ASSERT_TRUE(is_done(other));
  EXPECT_THAT(other.get(), ElementsAre(0x66));

  answer(0x585, "4F 00 20 01 55 00 00 00");
  ASSERT_TRUE(is_done(silent));
  EXPECT_THAT(silent.get(), ElementsAre(0x55));
}

TEST_F(BackendThreadsTest, rpdo_waits_for_no_transfer) {
  auto silent = start_read(5);
  EXPECT_EQ(next_request().id, 0x605);

  auto sent = std::async(std::launch::async, [this] {
    return backend.send_rpdo(5, 1, all_bytes, 8) && backend.send_rpdo(6, 1, all_bytes, 8);
  });
  ASSERT_TRUE(is_done(sent));
  EXPECT_TRUE(sent.get());
  EXPECT_EQ(next_request().id, 0x205);
  EXPECT_EQ(next_request().id, 0x206);

  answer(0x585, "4F 00 20 01 55 00 00 00");
  EXPECT_THAT(silent.get(), ElementsAre(0x55));
}

TEST_F(BackendThreadsTest, errors_can_be_asked_for_during_a_transfer) {
  auto silent = start_read(5);
  EXPECT_EQ(next_request().id, 0x605);

  auto asked = std::async(std::launch::async, [this] { return backend.last_error(5); });
  ASSERT_TRUE(is_done(asked));
  EXPECT_FALSE(asked.get());

  answer(0x585, "4F 00 20 01 55 00 00 00");
  EXPECT_THAT(silent.get(), ElementsAre(0x55));
}

TEST_F(BackendThreadsTest, transfers_with_one_node_follow_one_another) {
  auto one = start_read(5);
  EXPECT_EQ(next_request().id, 0x605);
  auto two = start_read(5);
  CanFrame early;
  EXPECT_EQ(nodes->receive(early, milliseconds(30)), CanStatus::timed_out) << "it has to wait";

  answer(0x585, "4F 00 20 01 11 00 00 00");
  ASSERT_TRUE(is_done(one));
  EXPECT_THAT(one.get(), ElementsAre(0x11));
  EXPECT_EQ(next_request().id, 0x605);
  answer(0x585, "4F 00 20 01 22 00 00 00");
  ASSERT_TRUE(is_done(two));
  EXPECT_THAT(two.get(), ElementsAre(0x22));
}

/// One object of 4 bytes, and a count of what came. Runs with the bus locked.
class MemoryNode {
 public:
  MemoryNode(InProcessBus& bus, std::uint8_t node_id)
      : answer_id_(static_cast<std::uint16_t>(0x580 + node_id)),
        endpoint_(bus.open({{static_cast<std::uint16_t>(0x600 + node_id)}},
                           [this](const CanFrame& request, Frames& answers) {
                             answers.push_back(answer(request));
                           })) {}

  int requests() const { return requests_; }

 private:
  CanFrame answer(const CanFrame& request) {
    ++requests_;
    CanFrame answer = request;
    answer.id = answer_id_;
    if (request.data[0] == 0x40) {
      answer.data[0] = 0x43;
      std::copy(value_.begin(), value_.end(), answer.data.begin() + 4);
      return answer;
    }
    std::copy(request.data.begin() + 4, request.data.end(), value_.begin());
    answer.data[0] = 0x60;
    return answer;
  }

  const std::uint16_t answer_id_;
  std::array<std::uint8_t, 4> value_{};
  int requests_ = 0;
  const std::unique_ptr<CanEndpoint> endpoint_;
};

TEST(BackendStressTest, many_threads_on_few_nodes_lose_nothing) {
  constexpr int rounds = 200;
  InProcessBus bus;
  MemoryNode five(bus, 5);
  MemoryNode six(bus, 6);
  CanBusBackend backend(bus);
  std::atomic<int> failures{0};
  const auto work = [&](std::uint8_t node_id, std::uint8_t value) {
    for (int round = 0; round < rounds; ++round) {
      Bytes data;
      const bool done = backend.sdo_write(node_id, 0x2000, 1, Bytes(4, value)) &&
                        backend.sdo_read(node_id, 0x2000, 1, data) &&
                        backend.send_rpdo(node_id, 1, all_bytes, 8);
      const bool whole = data.size() == 4 && data == Bytes(4, data.front());
      const bool refused = !backend.send_rpdo(node_id, 9, all_bytes, 8);
      failures += done && whole && refused && backend.last_error(node_id) ? 0 : 1;
    }
  };
  std::vector<std::thread> threads;
  for (std::uint8_t thread = 0; thread < 6; ++thread) {
    threads.emplace_back(work, static_cast<std::uint8_t>(5 + thread % 2), thread);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(failures, 0);
  EXPECT_EQ(five.requests(), 3 * 2 * rounds);
  EXPECT_EQ(six.requests(), 3 * 2 * rounds);
}

TEST(CanBusBackendCobIds, follow_the_board_given_last) {
  InProcessBus bus(BusTime::simulated);
  CanBusBackend backend(bus);
  const auto listener = bus.open({{0, 0}});
  const auto sent = [&](std::uint8_t rpdo) -> std::uint16_t {
    CanFrame frame;
    return backend.send_rpdo(5, rpdo, {}, 1) &&
                   listener->receive(frame, std::chrono::nanoseconds(0)) == CanStatus::ok
               ? frame.id
               : std::uint16_t{0};
  };
  backend.set_cob_ids(5, BoardConfig{{{1, "RPDO", 0x301, {}}, {9, "RPDO", 0x302, {}}}, {}});
  EXPECT_EQ(sent(1), 0x301);
  EXPECT_EQ(sent(9), 0x302);

  backend.set_cob_ids(5, {});
  EXPECT_EQ(sent(1), 0x205);
  EXPECT_EQ(sent(9), 0);
}

}  // namespace
}  // namespace velmora_can_bridge
