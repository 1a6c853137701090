// Who waits for whom at a node, and how long.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "scripted_node.hpp"
#include "support/blocked_thread.hpp"
#include "support/passing_endpoint.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<std::uint8_t, 8> eight_bytes = {1, 2, 3, 4, 5, 6, 7, 8};

/// The requests among the frames, without aborts.
std::size_t count_requests(const std::vector<CanFrame>& frames) {
  return static_cast<std::size_t>(std::count_if(
      frames.begin(), frames.end(), [](const CanFrame& frame) { return frame.data[0] != 0x80; }));
}

// --- turns ---

/// Nothing times out here: a test answers in the place of node 5.
class BackendTurnsTest : public testing::Test {
 protected:
  using Transfer = BlockedThread<bool>;

  /// Starts a transfer on a thread of its own, and comes back when that waits.
  std::unique_ptr<Transfer> read(std::uint16_t index) {
    return std::make_unique<Transfer>([this, index] {
      Bytes data;
      return backend.sdo_read(5, index, 0, data);
    });
  }
  std::unique_ptr<Transfer> write_urgently(std::uint16_t index) {
    return std::make_unique<Transfer>([this, index] {
      const UrgentScope scope;
      return backend.sdo_write(5, index, 0, {1});
    });
  }

  /// The object of the next request, which is answered.
  std::uint16_t answer_next() const {
    CanFrame frame;
    EXPECT_EQ(nodes->receive(frame, patience), CanStatus::ok);
    CanFrame answer = frame;
    answer.id = 0x585;
    answer.data[0] = frame.data[0] == 0x40 ? 0x4F : 0x60;
    EXPECT_EQ(nodes->send(answer, nanoseconds(0)), CanStatus::ok);
    return static_cast<std::uint16_t>(frame.data[1] + 256 * frame.data[2]);
  }

  static void expect_done(Transfer& transfer) {
    EXPECT_TRUE(transfer.is_blocked());
    ASSERT_TRUE(is_done(transfer.result()));
    EXPECT_TRUE(transfer.result().get());
  }

  InProcessBus bus;
  std::unique_ptr<CanEndpoint> nodes = bus.open({{0x605}});
  CanBusBackend backend{bus, {hours(1), hours(1), hours(1)}};
};

TEST_F(BackendTurnsTest, transfers_with_a_node_take_turns_in_the_order_in_which_they_came) {
  std::vector<std::unique_ptr<Transfer>> transfers;
  for (std::uint16_t index = 0x2001; index <= 0x2006; ++index) {
    transfers.push_back(read(index));
  }
  for (std::uint16_t index = 0x2001; index <= 0x2006; ++index) {
    EXPECT_EQ(answer_next(), index);
  }
  for (const auto& transfer : transfers) {
    expect_done(*transfer);
  }
}

TEST_F(BackendTurnsTest, urgent_ones_go_after_the_transfer_under_way_and_before_all_that_wait) {
  const auto under_way = read(0x2001);
  const auto second = read(0x2002);
  const auto third = read(0x2003);
  const auto urgent = write_urgently(0x6040);
  const auto next_urgent = write_urgently(0x6840);
  for (const int index : {0x2001, 0x6040, 0x6840, 0x2002, 0x2003}) {
    EXPECT_EQ(answer_next(), index);
  }
  for (const auto* transfer : {&under_way, &second, &third, &urgent, &next_urgent}) {
    expect_done(**transfer);
  }
}

struct StopRow {
  const char* name;
  const char* kind;
};

void PrintTo(const StopRow& row, std::ostream* out) { *out << row.name; }

class StopAmongReadersTest : public BackendTurnsTest,
                             public testing::WithParamInterface<StopRow> {};

TEST_P(StopAmongReadersTest, goes_on_the_bus_next_beside_threads_that_read_a_statusword) {
  const std::uint8_t node_id = 5;
  BoardConfig board;
  board.device_od_map = {{"wheel", {"ci402", 0x6040, 0}}};
  CanOpenNodeController controller(node_id, backend, board);
  OperationConfig op;
  op.kind = GetParam().kind;

  const auto under_way = read(0x6041);
  const auto waiting = read(0x6041);
  const auto also_waiting = read(0x6041);
  BlockedThread<bool> stop(
      [&] { return controller.execute_configured_operation(op, "wheel", {}).ok; });
  for (const int index : {0x6041, 0x6040, 0x6041, 0x6041}) {
    EXPECT_EQ(answer_next(), index);
  }
  expect_done(stop);
  for (const auto* transfer : {&under_way, &waiting, &also_waiting}) {
    expect_done(**transfer);
  }
}

INSTANTIATE_TEST_SUITE_P(of, StopAmongReadersTest,
                         testing::Values(StopRow{"quick_stop", "ci402_quick_stop"},
                                         StopRow{"disable", "ci402_disable"}),
                         [](const auto& row) { return std::string(row.param.name); });

// --- a node that does not answer, by the time of the bus ---

/// Frame time-out and quarantine of 500 ms. RPDO 1 of the node carries eight objects of a byte.
class SilentNodeTest : public testing::Test {
 protected:
  SilentNodeTest() {
    board.pdos = {{1, "RPDO", 0, {}}, {2, "RPDO", 0, {{0x2100, 1, 8, "other"}}}};
    for (std::uint8_t sub_index = 1; sub_index <= 8; ++sub_index) {
      board.pdos[0].mappings.push_back({0x2000, sub_index, 8, "f" + std::to_string(sub_index)});
    }
  }

  bool read(std::uint16_t index = 0x2000) {
    Bytes data;
    return backend.sdo_read(5, index, 1, data);
  }

  OperationResult refresh() {
    OperationConfig op;
    op.kind = "pdo_write";
    op.pdo_number = 1;
    op.field = "f1";
    op.refresh_shadow = 1;
    return controller.execute_configured_operation(op, "led", {0xA1});
  }

  std::string last_text() const { return backend.last_error(5).value_or(BusError()).text; }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }

  void pass(milliseconds span) const {
    CanFrame none;
    bystander->receive(none, span);
  }

  InProcessBus bus{BusTime::simulated};
  ScriptedNode node{bus};
  std::unique_ptr<CanEndpoint> bystander = bus.open({});
  CanBusBackend backend{bus};
  const std::uint8_t node_id = 5;
  BoardConfig board;
  CanOpenNodeController controller{node_id, backend, board};
};

TEST_F(SilentNodeTest, refresh_ends_after_two_timeouts_and_one_quarantine) {
  EXPECT_TRUE(refresh().ok);
  EXPECT_EQ(count_requests(node.take_requests()), 2U);
  EXPECT_EQ(time(), milliseconds(1500));
}

TEST_F(SilentNodeTest, refresh_of_a_node_known_to_be_silent_ends_after_one_timeout) {
  refresh();
  pass(milliseconds(500));
  node.take_requests();
  const milliseconds before = time();
  EXPECT_TRUE(refresh().ok);
  EXPECT_EQ(count_requests(node.take_requests()), 1U);
  EXPECT_EQ(time() - before, milliseconds(500));
}

TEST_F(SilentNodeTest, refresh_within_the_quarantine_asks_nothing_and_waits_for_nothing) {
  refresh();
  node.take_requests();
  const milliseconds before = time();
  EXPECT_TRUE(refresh().ok);
  EXPECT_THAT(node.take_requests(), IsEmpty());
  EXPECT_EQ(time(), before);
}

TEST_F(SilentNodeTest, one_lost_frame_costs_one_field) {
  node.answer_with({"", "4F 00 20 02 12 00 00 00", "4F 00 20 03 13 00 00 00",
                    "4F 00 20 04 14 00 00 00", "4F 00 20 05 15 00 00 00", "4F 00 20 06 16 00 00 00",
                    "4F 00 20 07 17 00 00 00", "4F 00 20 08 18 00 00 00"});
  const auto frames = bus.open({{0x205}});
  EXPECT_TRUE(refresh().ok);
  EXPECT_EQ(count_requests(node.take_requests()), 8U);
  EXPECT_THAT(received(*frames), ElementsAre(frame_of(0x205, "A1 12 13 14 15 16 17 18")));
}

TEST_F(SilentNodeTest, read_after_one_timeout_waits_the_quarantine_out) {
  node.answer_with({"", "4F 00 20 01 11 00 00 00"});
  EXPECT_FALSE(read());
  EXPECT_TRUE(read());
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(SilentNodeTest,
       read_after_two_timeouts_fails_at_once_and_says_when_the_node_is_asked_again) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  node.take_requests();
  pass(milliseconds(80));
  const milliseconds before = time();
  EXPECT_FALSE(read(0x6041));
  EXPECT_EQ(time(), before);
  EXPECT_THAT(node.take_requests(), IsEmpty());
  const BusError error = backend.last_error(5).value();
  EXPECT_EQ(
      bus_error_text(error),
      "node 0x05, object 0x6041/1: no answer to the requests before; the node is asked again in "
      "420 ms");
  EXPECT_EQ(error.kind, BusErrorKind::no_answer);
  EXPECT_EQ(error.abort_code, 0U);
  EXPECT_FALSE(error.outcome_unknown);
}

TEST_F(SilentNodeTest, read_after_the_quarantine_asks_again) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  pass(milliseconds(500));
  node.answer_with({"4F 00 20 01 11 00 00 00"});
  EXPECT_TRUE(read());
}

TEST_F(SilentNodeTest, third_timeout_makes_reads_fail_at_once_again) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  pass(milliseconds(500));
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  EXPECT_EQ(last_text(), "no answer to the requests before; the node is asked again in 500 ms");
}

TEST_F(SilentNodeTest, anything_from_the_node_between_begins_the_count_anew) {
  node.answer_with({"", "80 00 20 01 00 00 02 06", "", "4F 00 20 01 11 00 00 00"});
  EXPECT_FALSE(read());
  EXPECT_FALSE(read()) << "refused";
  EXPECT_FALSE(read());
  EXPECT_TRUE(read());
}

TEST_F(SilentNodeTest, write_to_a_silent_node_waits_the_quarantine_out) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  node.answer_with({"60 00 20 01 00 00 00 00"});
  EXPECT_TRUE(backend.sdo_write(5, 0x2000, 1, {1}));
  EXPECT_EQ(time(), milliseconds(2000));
}

TEST_F(SilentNodeTest, read_after_a_write_that_was_answered_is_asked) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  node.answer_with({"60 00 20 01 00 00 00 00", "4F 00 20 01 11 00 00 00"});
  EXPECT_TRUE(backend.sdo_write(5, 0x2000, 1, {1}));
  EXPECT_TRUE(read());
}

TEST_F(SilentNodeTest, urgent_read_and_write_of_a_silent_node_are_sent_at_once) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  node.take_requests();
  node.answer_with({"60 40 60 00 00 00 00 00", "4F 41 60 00 11 00 00 00"});
  const milliseconds before = time();
  const UrgentScope scope;
  Bytes data;
  EXPECT_TRUE(backend.sdo_write(5, 0x6040, 0, {2, 0}));
  EXPECT_TRUE(backend.sdo_read(5, 0x6041, 0, data));
  EXPECT_EQ(time(), before);
}

TEST_F(SilentNodeTest, fault_of_the_bus_after_silence_is_told_as_what_it_is) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  pass(milliseconds(500));
  bus.set_state(CanStatus::interface_down);
  EXPECT_FALSE(read());
  EXPECT_EQ(backend.last_error(5).value().kind, BusErrorKind::bus_fault);
  EXPECT_FALSE(read());
  EXPECT_EQ(backend.last_error(5).value().kind, BusErrorKind::bus_fault);
  EXPECT_EQ(backend.last_error(5).value().status, CanStatus::interface_down);
}

TEST_F(SilentNodeTest, write_that_waits_a_quarantine_out_is_not_sent_when_a_stop_comes_at_its_end) {
  EXPECT_FALSE(read());
  node.take_requests();
  // Frames of others pass while the write waits: the last of them in its last moment.
  bus.set_fault_rule([](const CanFrame& frame) -> std::vector<CanDelivery> {
    return {{frame, milliseconds(500)}};
  });
  const auto other =
      bus.open({{0x123}}, [this](const CanFrame& /*frame*/, auto& /*answers*/) { backend.stop(); });
  bystander->send(frame_of(0x123, "00"), nanoseconds(0));
  EXPECT_FALSE(backend.sdo_write(5, 0x2000, 1, {1}));
  EXPECT_EQ(backend.last_error(5).value().kind, BusErrorKind::stopped);
  EXPECT_THAT(node.take_requests(), IsEmpty());
}

TEST_F(SilentNodeTest, stop_between_two_segments_gives_the_transfer_up) {
  node.answer_with({"41 00 20 01 0A 00 00 00", "00 11 22 33 44 55 66 77"});
  const auto listener = bus.open({{0x605}}, [this](const CanFrame& request, auto& /*answers*/) {
    if (request.data[0] == 0x60) {
      backend.stop();
    }
  });
  EXPECT_FALSE(read());
  EXPECT_EQ(backend.last_error(5).value().kind, BusErrorKind::stopped);
  EXPECT_EQ(node.take_requests().size(), 3U) << "the last one is the abort";
}

TEST_F(SilentNodeTest, other_nodes_are_not_silent) {
  EXPECT_FALSE(read());
  EXPECT_FALSE(read());
  const milliseconds before = time();
  Bytes data;
  EXPECT_FALSE(backend.sdo_read(6, 0x2000, 1, data));
  EXPECT_EQ(time() - before, milliseconds(500));
}

// --- urgent ones and stops beside those that wait, in real time ---

/// Answers time out soon, and the quarantine after it lasts longer than any test.
class LongQuarantineTest : public testing::Test {
 protected:
  using Transfer = BlockedThread<bool>;

  std::unique_ptr<Transfer> start_read() {
    return std::make_unique<Transfer>([this] { return read(); });
  }
  bool read() {
    Bytes data;
    return backend.sdo_read(5, 0x2000, 1, data);
  }
  std::unique_ptr<Transfer> start_write() {
    return std::make_unique<Transfer>([this] { return backend.sdo_write(5, 0x2000, 1, {1}); });
  }
  bool write_urgently() {
    const UrgentScope scope;
    return backend.sdo_write(5, 0x6040, 0, {2, 0});
  }

  static void expect_failed(Transfer& transfer) {
    EXPECT_TRUE(transfer.is_blocked());
    ASSERT_TRUE(is_done(transfer.result()));
    EXPECT_FALSE(transfer.result().get());
  }

  InProcessBus bus;
  ScriptedNode node{bus};
  std::vector<BusErrorKind> told;
  std::mutex told_mutex;
  CanBusBackend backend{
      bus, {milliseconds(5), milliseconds(5), hours(1)}, [this](const BusError& error) {
        const std::lock_guard<std::mutex> lock(told_mutex);
        told.push_back(error.kind);
      }};
};

TEST_F(LongQuarantineTest, write_that_waits_a_quarantine_out_lets_urgent_ones_go) {
  EXPECT_FALSE(read());
  const auto waiting = start_write();
  const auto behind = start_read();
  node.answer_with({"60 40 60 00 00 00 00 00", "60 40 60 00 00 00 00 00"});
  EXPECT_TRUE(write_urgently());
  EXPECT_TRUE(write_urgently());
  EXPECT_TRUE(still_waits(waiting->result()));
  backend.stop();
  expect_failed(*waiting);
  expect_failed(*behind);
  EXPECT_THAT(told,
              ElementsAre(BusErrorKind::no_answer, BusErrorKind::stopped, BusErrorKind::stopped));
}

TEST_F(LongQuarantineTest, reads_that_wait_when_the_node_falls_silent_fail_at_once) {
  EXPECT_FALSE(read());
  const auto in_quarantine = start_read();
  const auto in_queue = start_read();
  const auto write = start_write();
  EXPECT_FALSE(write_urgently());
  expect_failed(*in_quarantine);
  expect_failed(*in_queue);
  EXPECT_TRUE(still_waits(write->result())) << "writes wait";
  EXPECT_THAT(told, ElementsAre(BusErrorKind::no_answer, BusErrorKind::no_answer,
                                BusErrorKind::no_answer, BusErrorKind::no_answer));
  backend.stop();
  expect_failed(*write);
}

TEST_F(LongQuarantineTest, reads_that_wait_behind_a_write_fail_at_once_when_the_node_falls_silent) {
  EXPECT_FALSE(read());
  const auto write = start_write();
  const auto first_read = start_read();
  const auto second_read = start_read();
  EXPECT_FALSE(write_urgently());
  expect_failed(*first_read);
  expect_failed(*second_read);
  EXPECT_TRUE(still_waits(write->result()));
  backend.stop();
  expect_failed(*write);
}

TEST_F(BackendTurnsTest, stop_does_not_end_the_wait_of_an_urgent_transfer) {
  const auto under_way = read(0x2001);
  const auto urgent = write_urgently(0x6040);
  const auto also_urgent = write_urgently(0x6840);
  backend.stop();
  for (const int index : {0x2001, 0x6040, 0x6840}) {
    EXPECT_EQ(answer_next(), index);
  }
  expect_done(*under_way);
  expect_done(*urgent);
  expect_done(*also_urgent);
}

TEST_F(BackendTurnsTest, stop_reaches_the_first_and_the_last_node) {
  std::vector<std::unique_ptr<Transfer>> waiting;
  std::vector<std::unique_ptr<Transfer>> first_two;
  for (const std::uint8_t node_id : {std::uint8_t{1}, highest_node_id}) {
    const auto start = [&](std::vector<std::unique_ptr<Transfer>>& transfers) {
      transfers.push_back(std::make_unique<Transfer>([this, node_id] {
        Bytes data;
        return backend.sdo_read(node_id, 0x2000, 0, data);
      }));
    };
    start(first_two);  // under way
    start(first_two);  // next in line
    start(waiting);
  }
  backend.stop();
  for (const auto& transfer : waiting) {
    ASSERT_TRUE(is_done(transfer->result()));
    EXPECT_FALSE(transfer->result().get());
  }
  for (const char* answer : {"581", "5FF"}) {
    const CanFrame frame = frame_of(static_cast<std::uint16_t>(std::stoul(answer, nullptr, 16)),
                                    "4F 00 20 00 11 00 00 00");
    EXPECT_EQ(nodes->send(frame, nanoseconds(0)), CanStatus::ok);
  }
}

TEST_F(BackendTurnsTest, stop_ends_the_waits_and_leaves_the_transfer_under_way) {
  const auto under_way = read(0x2001);
  const auto next = read(0x2002);
  const auto waiting = read(0x2003);
  backend.stop();
  ASSERT_TRUE(is_done(waiting->result()));
  EXPECT_FALSE(waiting->result().get());
  EXPECT_EQ(bus_error_text(backend.last_error(5).value()), "node 0x05, object 0x2003/0: stopped");
  EXPECT_EQ(answer_next(), 0x2001);
  expect_done(*under_way);
  ASSERT_TRUE(is_done(next->result()));
  EXPECT_FALSE(next->result().get());
}

TEST_F(BackendTurnsTest, after_a_stop_only_urgent_transfers_and_rpdos_go) {
  backend.stop();
  Bytes data;
  EXPECT_FALSE(backend.sdo_read(5, 0x2001, 0, data));
  EXPECT_EQ(backend.last_error(5).value().kind, BusErrorKind::stopped);
  EXPECT_FALSE(backend.sdo_write(6, 0x2001, 0, {1}));
  EXPECT_TRUE(backend.send_rpdo(5, 1, eight_bytes, 8));
  const auto urgent = write_urgently(0x6040);
  EXPECT_EQ(answer_next(), 0x6040);
  expect_done(*urgent);
}

// --- late answers that a program waits for before it ends ---

class AwaitLateAnswersTest : public testing::Test {
 protected:
  /// Answers of nodes come so late.
  void delay_answers(milliseconds delay) {
    bus.set_fault_rule([delay](const CanFrame& frame) -> std::vector<CanDelivery> {
      return {{frame, frame.id < 0x600 ? delay : milliseconds(0)}};
    });
  }
  bool read(std::uint8_t node_id) {
    Bytes data;
    return backend.sdo_read(node_id, 0x2000, 1, data);
  }
  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }
  std::unique_ptr<CanEndpoint> answering(std::uint16_t node_id) {
    return bus.open({{static_cast<std::uint16_t>(0x600 + node_id)}},
                    [node_id](const CanFrame& request, std::vector<CanFrame>& answers) {
                      if (request.data[0] == 0x40) {
                        answers.push_back(frame_of(static_cast<std::uint16_t>(0x580 + node_id),
                                                   "4F 00 20 01 11 00 00 00"));
                      }
                    });
  }

  InProcessBus bus{BusTime::simulated};
  std::unique_ptr<CanEndpoint> bystander = bus.open({});
  std::vector<BusError> told;
  CanBusBackend backend{bus, {}, [this](const BusError& error) {
                          if (error.kind == BusErrorKind::late_answer) {
                            told.push_back(error);
                          }
                        }};
};

TEST_F(AwaitLateAnswersTest, is_over_at_once_when_nothing_timed_out) {
  EXPECT_THAT(backend.await_late_answers(), IsEmpty());
  EXPECT_EQ(time(), milliseconds(0));
}

TEST_F(AwaitLateAnswersTest, takes_the_quarantines_of_all_nodes_together) {
  read(5);
  read(6);
  read(7);
  EXPECT_EQ(time(), milliseconds(1500));
  EXPECT_THAT(backend.await_late_answers(), IsEmpty());
  EXPECT_EQ(time(), milliseconds(2000));
}

TEST_F(AwaitLateAnswersTest, is_over_when_the_last_one_is_there) {
  const auto first = answering(5);
  const auto second = answering(6);
  delay_answers(milliseconds(600));
  read(5);
  read(6);
  EXPECT_THAT(backend.await_late_answers(), IsEmpty());
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0].node_id, 5);
  EXPECT_EQ(told[0].lateness, milliseconds(100));
  EXPECT_EQ(told[1].node_id, 6);
  EXPECT_EQ(told[1].lateness, milliseconds(100));
  EXPECT_LE(time(), milliseconds(1110));
}

TEST_F(AwaitLateAnswersTest, ends_with_a_stop_and_names_the_nodes) {
  read(5);
  read(6);
  backend.stop();
  EXPECT_THAT(backend.await_late_answers(), ElementsAre(6)) << "the quarantine of 5 is over";
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(AwaitLateAnswersTest, waits_for_the_longer_quarantine_that_a_late_answer_has_shown) {
  const auto node = answering(5);
  delay_answers(milliseconds(900));
  SdoTimes times;
  times.quarantine = milliseconds(100);
  CanBusBackend hasty(bus, times);
  Bytes data;
  hasty.sdo_read(5, 0x2000, 1, data);  // answered at 900 ms
  hasty.sdo_read(5, 0x2000, 2, data);  // from 600 to 1100 ms: sees that answer
  EXPECT_THAT(hasty.await_late_answers(), IsEmpty());
  EXPECT_EQ(time(), milliseconds(1500)) << "400 ms after the time-out";
}

/// Adds up how long receives with a filter were to wait: those of SDO clients.
class WaitSum : public CanChannel {
 public:
  explicit WaitSum(CanChannel& channel) : channel_(&channel) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    if (filters.empty()) {
      return channel_->open(filters);
    }
    return std::make_unique<Endpoint>(channel_->open(filters), sum);
  }

  nanoseconds sum{0};

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(std::unique_ptr<CanEndpoint> endpoint, nanoseconds& sum)
        : PassingEndpoint(std::move(endpoint)), sum_(&sum) {}

    CanStatus receive(CanFrame& frame, nanoseconds timeout) override {
      *sum_ += timeout;
      return PassingEndpoint::receive(frame, timeout);
    }

   private:
    nanoseconds* const sum_;
  };

  CanChannel* const channel_;
};

TEST_F(AwaitLateAnswersTest,
       quarantine_that_a_late_answer_puts_off_is_waited_out_without_the_turn) {
  const auto node = answering(5);
  WaitSum channel(bus);
  SdoTimes times;
  times.quarantine = milliseconds(100);
  CanBusBackend hasty(channel, times);
  {
    Bytes data;
    const UrgentScope scope;
    delay_answers(milliseconds(1050));
    hasty.sdo_read(5, 0x2000, 1, data);  // given up at 500 ms, answered at 1050 ms
    bus.set_fault_rule([](const CanFrame&) { return std::vector<CanDelivery>(); });
    hasty.sdo_read(5, 0x2000, 2, data);  // given up at 1000 ms
  }
  EXPECT_FALSE(hasty.sdo_write(5, 0x2000, 1, {1}));
  EXPECT_EQ(time(), milliseconds(2050)) << "begins 550 ms after the time-out";
  EXPECT_EQ(channel.sum, milliseconds(1500)) << "nothing but the three time-outs";
}

TEST_F(AwaitLateAnswersTest, quarantine_that_a_late_answer_revives_is_waited_out_without_the_turn) {
  const auto node = answering(5);
  WaitSum channel(bus);
  SdoTimes times;
  times.quarantine = milliseconds(100);
  CanBusBackend hasty(channel, times);
  {
    Bytes data;
    const UrgentScope scope;
    delay_answers(milliseconds(2000));
    hasty.sdo_read(5, 0x2000, 1, data);  // given up at 500 ms, answered at 2000 ms
    bus.set_fault_rule([](const CanFrame&) { return std::vector<CanDelivery>(); });
    hasty.sdo_read(5, 0x2000, 2, data);  // given up at 1000 ms
  }
  CanFrame none;
  bystander->receive(none, milliseconds(1100));
  EXPECT_FALSE(hasty.sdo_write(5, 0x2000, 1, {1}));
  EXPECT_EQ(time(), milliseconds(3000)) << "begins 1500 ms after the time-out";
  EXPECT_EQ(channel.sum, milliseconds(1500)) << "nothing but the three time-outs";
}

TEST_F(AwaitLateAnswersTest, ends_although_another_thread_goes_on_with_a_silent_node) {
  SdoTimes times;
  times.frame_timeout = times.quarantine = milliseconds(100);
  CanBusBackend hasty(bus, times);
  Bytes data;
  hasty.sdo_read(5, 0x2000, 1, data);
  std::atomic<bool> has_ended{false};
  std::thread other([&] {
    while (!has_ended) {
      const UrgentScope scope;
      hasty.sdo_write(5, 0x2000, 1, {1});
    }
  });
  hasty.await_late_answers();
  has_ended = true;
  other.join();
  EXPECT_GE(time(), milliseconds(200));
}

}  // namespace
}  // namespace velmora_can_bridge
