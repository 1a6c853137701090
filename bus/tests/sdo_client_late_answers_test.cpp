// Answers that come after their request has timed out, and what is learned from them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "talkative_node.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const char* const value_of_2000 = "4F 00 20 01 11 00 00 00";
const char* const value_of_3000 = "4F 00 30 01 22 00 00 00";

/// Node 5, whose answers are waited for 500 ms and distrusted for 500 ms more.
class LateAnswersTest : public testing::Test {
 protected:
  SdoClient::Failure upload(std::uint16_t index) {
    data.clear();
    return client->upload(index, 1, data);
  }

  void use_times(milliseconds frame_timeout, milliseconds quarantine) {
    SdoTimes times;
    times.frame_timeout = frame_timeout;
    times.quarantine = quarantine;
    client = std::make_unique<SdoClient>(bus, 5, times,
                                         [this](const BusError& error) { told.push_back(error); });
  }

  void pass(milliseconds time) {
    CanFrame none;
    bystander->receive(none, time);
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }

  /// How long the quarantine after a time-out is now: makes one.
  milliseconds quarantine() {
    node.answer_with({});
    EXPECT_TRUE(upload(0x4000));
    return std::chrono::duration_cast<milliseconds>(client->quarantine_end() - bystander->now());
  }

  InProcessBus bus{BusTime::simulated};
  TalkativeNode node{bus};
  std::unique_ptr<CanEndpoint> bystander = bus.open({});
  std::vector<BusError> told;
  std::unique_ptr<SdoClient> client = std::make_unique<SdoClient>(
      bus, 5, SdoTimes(), [this](const BusError& error) { told.push_back(error); });
  Bytes data;
};

TEST_F(LateAnswersTest, one_that_the_next_transfer_throws_away_is_told_with_its_lateness) {
  node.answer_with({{{value_of_2000, milliseconds(600)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].kind, BusErrorKind::late_answer);
  EXPECT_EQ(told[0].node_id, 5);
  EXPECT_EQ(told[0].index, 0x2000);
  EXPECT_EQ(told[0].sub_index, 1);
  EXPECT_EQ(told[0].lateness, milliseconds(100));
  EXPECT_EQ(told[0].text, "answered 100 ms after the time-out");
  EXPECT_EQ(told[0].abort_code, 0U);
  EXPECT_FALSE(told[0].outcome_unknown);
}

TEST_F(LateAnswersTest, lateness_counts_to_the_arrival_not_to_the_next_transfer) {
  node.answer_with({{{value_of_2000, milliseconds(600)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(3000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].lateness, milliseconds(100));
}

TEST_F(LateAnswersTest, one_that_comes_while_the_next_is_awaited_is_told_too) {
  node.answer_with({{{value_of_2000, milliseconds(1200)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);  // begins at 1000 ms
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].lateness, milliseconds(700));
  EXPECT_THAT(data, ElementsAre(0x22));
}

TEST_F(LateAnswersTest, confirmation_of_a_whole_download_says_that_the_value_was_taken) {
  node.answer_with({{{"60 00 20 01 00 00 00 00", milliseconds(600)}}, {value_of_3000}});
  EXPECT_TRUE(client->download(0x2000, 1, {1}));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].text, "answered 100 ms after the time-out: the node has taken the value");
}

TEST_F(LateAnswersTest, confirmation_does_not_say_so_when_the_write_was_repeated) {
  use_times(milliseconds(500), milliseconds(2000));
  node.answer_with({{{"60 00 20 01 00 00 00 00", milliseconds(1100)}}, {}, {value_of_3000}});
  EXPECT_TRUE(client->download(0x2000, 1, {1}));
  {
    const UrgentScope scope;
    EXPECT_TRUE(client->download(0x2000, 1, {2}));  // until 1000 ms
  }
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].text, "answered 600 ms after the time-out");
}

TEST_F(LateAnswersTest, confirmation_after_the_quarantine_does_not_say_so) {
  node.answer_with(
      {{{"60 00 20 01 00 00 00 00", milliseconds(1200)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(client->download(0x2000, 1, {1}));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].text, "answered 700 ms after the time-out");
}

TEST_F(LateAnswersTest, answer_that_the_next_request_may_have_taken_is_told_as_doubtful) {
  node.answer_with({{},
                    {{value_of_2000, milliseconds(100)}, {value_of_2000, milliseconds(300)}},
                    {{value_of_3000, milliseconds(400)}},
                    {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x2000), std::nullopt);  // 1000 to 1100 ms
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].kind, BusErrorKind::late_answer);
  EXPECT_EQ(told[0].lateness, milliseconds(800));
  EXPECT_EQ(told[0].text,
            "perhaps answered 800 ms after the time-out; the next request may have got its answer");
  EXPECT_EQ(quarantine(), milliseconds(800));
}

TEST_F(LateAnswersTest, confirmation_while_the_object_is_read_is_late_and_not_wrong) {
  node.answer_with(
      {{{"60 00 20 01 00 00 00 00", milliseconds(1100)}}, {{value_of_2000, milliseconds(300)}}});
  EXPECT_TRUE(client->download(0x2000, 1, {0x11}));
  EXPECT_EQ(upload(0x2000), std::nullopt);  // begins at 1000 ms
  EXPECT_THAT(data, ElementsAre(0x11));
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].lateness, milliseconds(600));
}

TEST_F(LateAnswersTest, lateness_is_rounded_up) {
  node.answer_with({{value_of_2000}, {value_of_3000}});
  bus.set_fault_rule([](const CanFrame& frame) -> std::vector<CanDelivery> {
    return {{frame, std::chrono::microseconds(frame.id == 0x585 ? 600001 : 0)}};
  });
  EXPECT_TRUE(upload(0x2000));
  bus.set_fault_rule({});
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].lateness, milliseconds(101));
}

TEST_F(LateAnswersTest, answers_of_others_in_the_transfer_that_timed_out_are_not_told_again) {
  node.answer_with({{value_of_3000, {value_of_2000, milliseconds(600)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].text, "answered 100 ms after the time-out");
}

TEST_F(LateAnswersTest, abort_is_told_with_its_code) {
  node.answer_with({{{"80 00 20 01 00 00 02 06", milliseconds(600)}}, {value_of_3000}});
  EXPECT_TRUE(client->download(0x2000, 1, {1}));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].abort_code, 0x06020000U);
  EXPECT_EQ(told[0].text, "abort 0x06020000, no object at this index, 100 ms after the time-out");
}

TEST_F(LateAnswersTest, answer_to_a_segment_is_told_of_the_transfer_that_awaited_one) {
  node.answer_with({{"41 00 20 01 07 00 00 00"},
                    {{"01 01 02 03 04 05 06 07", milliseconds(700)}},
                    {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].index, 0x2000);
  EXPECT_EQ(told[0].lateness, milliseconds(200));
}

TEST_F(LateAnswersTest, frames_that_answer_no_request_that_timed_out_are_not_told) {
  node.answer_with({{{value_of_3000, milliseconds(600)},
                     {"60 00 20 01 00 00 00 00", milliseconds(610)},
                     {"4F 00 20 02 11 00 00 00", milliseconds(620)},
                     {"01 01 02 03 04 05 06 07", milliseconds(630)},
                     {"80 00 30 01 00 00 02 06", milliseconds(640)},
                     {"4F 00 20 01", milliseconds(650)}},
                    {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(LateAnswersTest, second_copy_of_a_late_answer_is_not_told_again) {
  node.answer_with(
      {{{value_of_2000, milliseconds(600)}, {value_of_2000, milliseconds(601)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_THAT(told, SizeIs(1));
}

TEST_F(LateAnswersTest, transfer_that_failed_otherwise_has_no_late_answer) {
  node.answer_with(
      {{"60 00 20 01 00 00 00 00", {value_of_2000, milliseconds(100)}}, {value_of_3000}});
  const SdoClient::Failure failure = upload(0x2000);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_THAT(told, IsEmpty());
}

// --- the quarantine that is learned ---

TEST_F(LateAnswersTest, quarantine_becomes_the_lateness_seen) {
  node.answer_with({{{value_of_2000, milliseconds(1300)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_EQ(quarantine(), milliseconds(800));
}

TEST_F(LateAnswersTest, quarantine_stays_as_configured_when_that_is_longer) {
  node.answer_with({{{value_of_2000, milliseconds(600)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_EQ(quarantine(), milliseconds(500));
}

TEST_F(LateAnswersTest, quarantine_becomes_5_seconds_at_most) {
  node.answer_with({{{value_of_2000, milliseconds(5700)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(8000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].lateness, milliseconds(5200));
  EXPECT_EQ(quarantine(), milliseconds(5000));
}

TEST_F(LateAnswersTest, request_without_answer_for_5_seconds_is_forgotten) {
  node.answer_with({{}, {value_of_3000}, {{value_of_2000}}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(5000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  node.answer_with({{value_of_2000, value_of_2000}, {value_of_3000}});
  EXPECT_EQ(upload(0x2000), std::nullopt);
  EXPECT_EQ(upload(0x3000), std::nullopt) << "throws the second copy away";
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(LateAnswersTest, quarantine_after_a_late_answer_has_come_is_the_configured_one) {
  node.answer_with({{{value_of_2000, milliseconds(1300)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  node.answer_with({{{value_of_2000, milliseconds(700)}}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(200));
  client->take_late_answers();
  EXPECT_EQ(client->quarantine_end() - bystander->now(), milliseconds(300));
}

TEST_F(LateAnswersTest, quarantine_after_a_wrong_answer_is_the_configured_one) {
  node.answer_with({{{value_of_2000, milliseconds(1300)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  node.answer_with({{"60 00 20 01 00 00 00 00"}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(client->quarantine_end() - bystander->now(), milliseconds(500));
}

TEST_F(LateAnswersTest, stop_that_is_sent_once_a_second_is_confirmed_after_a_longer_quarantine) {
  const char* const stopped = "60 40 60 01 00 00 00 00";
  node.answer_with({{{value_of_2000, milliseconds(3500)}}, {value_of_3000}, {}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(4000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_TRUE(client->download(0x6040, 1, {15, 0}));  // its answer is lost: 3 s of quarantine
  int attempts = 0;
  const UrgentScope scope;
  do {
    node.answer_with({{stopped}});
    pass(milliseconds(1000));
  } while (client->download(0x6040, 1, {2, 0}) && ++attempts < 10);
  EXPECT_EQ(attempts, 2) << "uncertain at 1 and 2 s, certain when the quarantine is over";
}

TEST_F(LateAnswersTest, transfer_after_the_quarantine_distrusts_nothing) {
  node.answer_with({{}, {"80 00 20 01 00 00 02 06"}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(500));
  const UrgentScope scope;
  const SdoClient::Failure failure = upload(0x2000);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::refused);
}

TEST_F(LateAnswersTest, quarantine_of_another_transfer_makes_no_answer_uncertain) {
  node.answer_with({{}, {}, {value_of_2000}});
  const UrgentScope scope;
  EXPECT_TRUE(upload(0x2000));  // until 500 ms, distrusted until 1000 ms
  pass(milliseconds(200));
  EXPECT_TRUE(upload(0x3000));  // until 1200 ms
  EXPECT_EQ(upload(0x2000), std::nullopt);
}

TEST_F(LateAnswersTest, of_repetitions_the_first_and_the_last_are_remembered) {
  use_times(milliseconds(100), milliseconds(2000));
  {
    const UrgentScope scope;
    for (int repetition = 0; repetition < 10; ++repetition) {
      EXPECT_TRUE(upload(0x2000));  // given up at 100 ms, 200 ms ...
    }
  }
  node.answer_with({{value_of_2000, value_of_2000, value_of_2000, value_of_3000}});
  {
    const UrgentScope scope;
    EXPECT_EQ(upload(0x3000), std::nullopt);
  }
  ASSERT_THAT(told, SizeIs(2));
  EXPECT_EQ(told[0].lateness, milliseconds(900));
  EXPECT_EQ(told[1].lateness, milliseconds(0));
}

TEST_F(LateAnswersTest, one_that_comes_in_the_wait_for_the_end_of_a_quarantine_puts_that_off) {
  use_times(milliseconds(500), milliseconds(100));
  node.answer_with({{{value_of_2000, milliseconds(1050)}},  // 550 ms after its time-out
                    {{value_of_3000, milliseconds(1000)}},  // arrives at 1500 ms
                    {"4F 00 30 01 33 00 00 00"}});
  {
    const UrgentScope scope;
    EXPECT_TRUE(upload(0x2000));
    EXPECT_TRUE(upload(0x3000));  // given up at 1000 ms
  }
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x33));
  EXPECT_THAT(told, SizeIs(2));
}

TEST_F(LateAnswersTest, quarantine_that_is_configured_longer_than_5_seconds_stays) {
  use_times(milliseconds(500), milliseconds(8000));
  node.answer_with({{{value_of_2000, milliseconds(7000)}}, {value_of_3000}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].lateness, milliseconds(6500));
  EXPECT_EQ(quarantine(), milliseconds(8000));
}

TEST_F(LateAnswersTest, quarantine_of_0_stays_0) {
  use_times(milliseconds(500), milliseconds(0));
  node.answer_with({{{value_of_2000, milliseconds(600)}}, {{value_of_3000, milliseconds(300)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_EQ(time(), milliseconds(800));
  EXPECT_THAT(told, IsEmpty());
  node.answer_with({});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_LE(client->quarantine_end(), bystander->now());
}

TEST_F(LateAnswersTest, quarantine_falls_back_after_100_answers_in_time) {
  node.answer_with({{{value_of_2000, milliseconds(1300)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);  // the first of the 100
  node.answer_with(std::vector<std::vector<SpokenFrame>>(98, {value_of_3000}));
  for (int answer = 0; answer < 98; ++answer) {
    EXPECT_EQ(upload(0x3000), std::nullopt);
  }
  EXPECT_EQ(quarantine(), milliseconds(800)) << "after 99 answers";
  node.answer_with({{value_of_3000}});
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_EQ(quarantine(), milliseconds(500)) << "after 100 answers";
}

TEST_F(LateAnswersTest, late_answer_begins_the_count_of_100_anew) {
  node.answer_with({{{value_of_2000, milliseconds(1300)}}, {{value_of_3000, milliseconds(400)}}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload(0x3000), std::nullopt);
  node.answer_with(std::vector<std::vector<SpokenFrame>>(90, {value_of_3000}));
  for (int answer = 0; answer < 90; ++answer) {
    EXPECT_EQ(upload(0x3000), std::nullopt);
  }
  node.answer_with({{{value_of_2000, milliseconds(700)}}});
  EXPECT_TRUE(upload(0x2000));
  node.answer_with(std::vector<std::vector<SpokenFrame>>(99, {value_of_3000}));
  for (int answer = 0; answer < 99; ++answer) {
    EXPECT_EQ(upload(0x3000), std::nullopt);
  }
  EXPECT_EQ(quarantine(), milliseconds(800));
}

TEST_F(LateAnswersTest, lateness_seen_in_a_quarantine_puts_off_its_end) {
  use_times(milliseconds(500), milliseconds(100));
  node.answer_with({{{value_of_2000, milliseconds(850)}},  // late by 350 ms
                    {{value_of_3000, milliseconds(850)}},  // sent at 600 ms, arrives at 1450 ms
                    {"4F 00 30 01 33 00 00 00"}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_TRUE(upload(0x3000));  // given up at 1100 ms
  EXPECT_EQ(upload(0x3000), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x33));
  EXPECT_THAT(told, SizeIs(2));
}

/// A node that answers each read of its counter so much later than it is waited for.
class SlowNode {
 public:
  SlowNode(InProcessBus& bus, milliseconds delay)
      : endpoint_(bus.open({{0x605}}, [this](const CanFrame& request, auto& answers) {
          if (request.data[0] != 0x80) {
            answers.push_back(frame_of(0x585, value_of_2000));
            answers.back().data[4] = ++reads;
          }
        })) {
    bus.set_fault_rule([delay](const CanFrame& frame) -> std::vector<CanDelivery> {
      return {{frame, frame.id == 0x585 ? delay : milliseconds(0)}};
    });
  }

  std::uint8_t reads = 0;

 private:
  std::unique_ptr<CanEndpoint> endpoint_;
};

class SlowNodeTest : public testing::TestWithParam<int> {};

TEST_P(SlowNodeTest, of_60_reads_hardly_one_is_answered_with_an_older_value) {
  InProcessBus bus(BusTime::simulated);
  SlowNode node(bus, milliseconds(GetParam()));
  SdoTimes times;
  times.frame_timeout = milliseconds(50);
  times.quarantine = milliseconds(50);
  SdoClient client(bus, 5, times, {});
  int older = 0;
  for (int read = 0; read < 60; ++read) {
    Bytes data;
    const bool ok = !client.upload(0x2000, 1, data);
    older += ok && data[0] != node.reads ? 1 : 0;
  }
  EXPECT_EQ(node.reads, 60);
  // Two answers about one object cannot be told apart before the first one was seen to be late.
  EXPECT_LE(older, 1);
}

INSTANTIATE_TEST_SUITE_P(after_ms, SlowNodeTest,
                         testing::Values(60, 99, 101, 110, 120, 149, 151, 300, 2000),
                         testing::PrintToStringParamName());

// --- what a program that ends waits for ---

TEST_F(LateAnswersTest, are_expected_until_the_quarantine_is_over) {
  EXPECT_EQ(client->late_answers_end(), SdoClient::Time::min());
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(client->late_answers_end(), client->quarantine_end());
}

TEST_F(LateAnswersTest, are_not_expected_once_they_have_come) {
  node.answer_with({{{value_of_2000, milliseconds(600)}}});
  EXPECT_TRUE(upload(0x2000));
  pass(milliseconds(100));
  client->take_late_answers();
  EXPECT_EQ(client->late_answers_end(), SdoClient::Time::min());
  EXPECT_EQ(client->quarantine_end().time_since_epoch(), milliseconds(1000));
}

TEST_F(LateAnswersTest, are_expected_after_an_answer_that_may_have_been_late) {
  node.answer_with({{}, {value_of_2000}});
  EXPECT_TRUE(upload(0x2000));
  const UrgentScope scope;
  pass(milliseconds(300));
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(client->late_answers_end().time_since_epoch(), milliseconds(1300));
}

TEST_F(LateAnswersTest, are_not_expected_after_a_wrong_answer) {
  node.answer_with({{"60 00 20 01 00 00 00 00"}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(client->late_answers_end(), SdoClient::Time::min());
}

}  // namespace
}  // namespace velmora_can_bridge
