// Urgent transfers in the quarantine of one that was given up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "scripted_node.hpp"
#include "test_frames.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Node 5, whose answers are waited for 500 ms and distrusted for 500 ms more.
class UrgentTransferTest : public testing::Test {
 protected:
  SdoClient::Failure upload(std::uint16_t index) {
    data.clear();
    return client.upload(index, 1, data);
  }
  SdoClient::Failure download(std::uint16_t index, const Bytes& bytes = {2, 0}) {
    return client.download(index, 1, bytes);
  }
  SdoClient::Failure download_urgently(std::uint16_t index, const Bytes& bytes = {2, 0}) {
    const UrgentScope scope;
    return download(index, bytes);
  }
  SdoClient::Failure upload_urgently(std::uint16_t index) {
    const UrgentScope scope;
    return upload(index);
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }

  InProcessBus bus{BusTime::simulated};
  ScriptedNode node{bus};
  std::unique_ptr<CanEndpoint> bystander = bus.open({});
  SdoClient client{bus, 5, {}, {}};
  Bytes data;
};

TEST_F(UrgentTransferTest, is_sent_at_once_in_a_quarantine) {
  node.answer_with({"", "60 40 60 01 00 00 00 00"});
  EXPECT_TRUE(upload(0x2000));
  node.take_requests();
  EXPECT_EQ(download_urgently(0x6040), std::nullopt);
  EXPECT_THAT(node.take_requests(), ElementsAre(frame_of(0x605, "2B 40 60 01 02 00 00 00")));
  EXPECT_EQ(time(), milliseconds(500));
}

TEST_F(UrgentTransferTest, leaves_the_quarantine_to_those_that_are_not_urgent) {
  node.answer_with({"", "60 40 60 01 00 00 00 00", "4F 00 20 01 11 00 00 00"});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(download_urgently(0x6040), std::nullopt);
  EXPECT_EQ(upload(0x2000), std::nullopt);
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(UrgentTransferTest, does_not_take_what_came_before_its_request_for_its_answer) {
  node.answer_with({"", "4F 00 20 01 22 00 00 00"});
  EXPECT_TRUE(upload(0x3000));
  node.send(frame_of(0x585, "4F 00 20 01 11 00 00 00"));
  EXPECT_EQ(upload_urgently(0x2000), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x22));
}

// --- late answers that cannot be its own ---

/// A late answer to an upload of 0x2000/1, which comes before that to an urgent download to
/// 0x6040/1.
struct LateRow {
  const char* name;
  const char* late;
};

void PrintTo(const LateRow& row, std::ostream* out) { *out << row.name; }

class LateAnswerTest : public UrgentTransferTest, public testing::WithParamInterface<LateRow> {};

TEST_P(LateAnswerTest, is_thrown_away) {
  node.answer_with(
      {{GetParam().late, milliseconds(600)}, {"60 40 60 01 00 00 00 00", milliseconds(300)}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(download_urgently(0x6040), std::nullopt);
  EXPECT_EQ(time(), milliseconds(800));
}

TEST_P(LateAnswerTest, gives_the_transfer_no_more_time) {
  node.answer_with({{GetParam().late, milliseconds(600)}, ""});
  EXPECT_TRUE(upload(0x2000));
  const SdoClient::Failure failure = download_urgently(0x6040);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_TRUE(failure->outcome_unknown);
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_P(LateAnswerTest, that_comes_at_the_last_moment_ends_the_transfer) {
  node.answer_with({{GetParam().late, milliseconds(1000)}, ""});
  EXPECT_TRUE(upload(0x2000));
  const SdoClient::Failure failure = download_urgently(0x6040);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(UrgentTransferTest, says_what_came_although_it_was_too_short_to_name_an_object) {
  node.answer_with({{"60 40 60", milliseconds(600)}, ""});
  EXPECT_TRUE(upload(0x2000));
  const SdoClient::Failure failure = download_urgently(0x6040);
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->text, HasSubstr("; meanwhile came a frame of 3 bytes, that of another"));
}

INSTANTIATE_TEST_SUITE_P(of, LateAnswerTest,
                         testing::Values(LateRow{"another_command", "4F 40 60 01 11 00 00 00"},
                                         LateRow{"another_object", "60 00 20 01 00 00 00 00"},
                                         LateRow{"another_sub_index", "60 40 60 02 00 00 00 00"},
                                         LateRow{"an_upload_segment", "00 11 22 33 44 55 66 77"},
                                         LateRow{"a_download_segment", "30 00 00 00 00 00 00 00"},
                                         LateRow{"an_abort_of_another_object",
                                                 "80 00 20 01 00 00 02 06"},
                                         LateRow{"too_few_bytes", "60 40 60"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(UrgentTransferTest, ends_in_time_however_many_frames_of_others_come) {
  node.answer_with({""});
  EXPECT_TRUE(upload(0x2000));
  const milliseconds before = time();
  int sent = 0;
  const auto other = bus.open({{0x605}}, [&](const CanFrame& /*frame*/, auto& answers) {
    answers.assign(2000, frame_of(0x585, "4F 00 20 01 11 00 00 00"));
    sent = 2000;
  });
  EXPECT_TRUE(download_urgently(0x6040));
  EXPECT_EQ(sent, 2000);
  EXPECT_EQ(time() - before, milliseconds(500));
}

// --- answers that may be those to the transfer that was given up ---

TEST_F(UrgentTransferTest, confirmation_after_a_lost_one_of_the_same_object_is_uncertain) {
  node.answer_with({"", "60 40 60 01 00 00 00 00"});
  EXPECT_TRUE(download(0x6040, {15, 0}));
  node.take_requests();
  const SdoClient::Failure failure = download_urgently(0x6040);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_TRUE(failure->outcome_unknown);
  EXPECT_EQ(failure->abort_code, 0U);
  EXPECT_EQ(
      failure->text,
      "answered, perhaps to the request before that timed out; whether the node has taken the "
      "value is unknown");
  EXPECT_THAT(node.take_requests(), ElementsAre(frame_of(0x605, "2B 40 60 01 02 00 00 00")))
      << "the stop is on the bus, and no abort follows it";
}

TEST_F(UrgentTransferTest, abort_is_uncertain_whatever_was_given_up) {
  node.answer_with({"", "80 40 60 01 22 00 00 08"});
  EXPECT_TRUE(upload(0x2000));
  const SdoClient::Failure failure = download_urgently(0x6040);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_TRUE(failure->outcome_unknown);
  EXPECT_THAT(failure->text, StartsWith("abort 0x08000022, "));
  EXPECT_THAT(failure->text, HasSubstr("perhaps to the request before"));
}

TEST_F(UrgentTransferTest, upload_after_a_lost_one_of_the_same_object_gives_no_data) {
  node.answer_with({"", "4F 00 20 01 11 00 00 00"});
  EXPECT_TRUE(upload(0x2000));
  const SdoClient::Failure failure = upload_urgently(0x2000);
  ASSERT_TRUE(failure);
  EXPECT_TRUE(failure->outcome_unknown);
  EXPECT_EQ(failure->text, "answered, perhaps to the request before that timed out");
  EXPECT_THAT(data, IsEmpty());
}

TEST_F(UrgentTransferTest, other_direction_on_the_same_object_is_certain) {
  node.answer_with({"", "60 40 60 01 00 00 00 00"});
  EXPECT_TRUE(upload(0x6040));
  EXPECT_EQ(download_urgently(0x6040), std::nullopt);
}

TEST_F(UrgentTransferTest, is_uncertain_again_as_long_as_an_answer_may_be_late) {
  node.answer_with({"", "60 40 60 01 00 00 00 00", "60 40 60 01 00 00 00 00"});
  EXPECT_TRUE(download(0x6040, {15, 0}));
  EXPECT_TRUE(download_urgently(0x6040));
  EXPECT_TRUE(download_urgently(0x6040));
  EXPECT_EQ(time(), milliseconds(500));
}

TEST_F(UrgentTransferTest, is_certain_again_when_the_quarantine_is_over) {
  node.answer_with({"", "60 40 60 01 00 00 00 00"});
  EXPECT_TRUE(download(0x6040, {15, 0}));
  CanFrame none;
  bystander->receive(none, milliseconds(500));
  EXPECT_EQ(download_urgently(0x6040), std::nullopt);
}

TEST_F(UrgentTransferTest, that_timed_out_itself_makes_the_next_one_uncertain) {
  node.answer_with({"", "", "60 40 60 01 00 00 00 00", "60 40 68 01 00 00 00 00"});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_TRUE(download_urgently(0x6040));
  EXPECT_TRUE(download_urgently(0x6040));
  EXPECT_EQ(download_urgently(0x6840), std::nullopt) << "of another drive";
}

/// Two transfers are given up, of which the second differs from the first in one thing.
struct PairRow {
  const char* name;
  std::uint8_t sub_index;
  bool reads;
};

void PrintTo(const PairRow& row, std::ostream* out) { *out << row.name; }

class PairGivenUpTest : public UrgentTransferTest, public testing::WithParamInterface<PairRow> {};

TEST_P(PairGivenUpTest, leaves_an_answer_like_that_to_the_second_uncertain) {
  node.answer_with(
      {"", "", GetParam().reads ? "4F 40 60 01 00 00 00 00" : "60 40 60 02 00 00 00 00"});
  const UrgentScope scope;
  const auto second = [this] {
    return GetParam().reads ? client.upload(0x6040, 1, data)
                            : client.download(0x6040, GetParam().sub_index, {2, 0});
  };
  EXPECT_TRUE(download(0x6040));
  EXPECT_TRUE(second());
  const SdoClient::Failure failure = second();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
}

INSTANTIATE_TEST_SUITE_P(by, PairGivenUpTest,
                         testing::Values(PairRow{"sub_index", 2, false},
                                         PairRow{"direction", 1, true}),
                         [](const auto& row) { return std::string(row.param.name); });

// --- segments, whose answers name no object ---

TEST_F(UrgentTransferTest, both_stages_of_one_transfer_that_was_given_up_are_remembered) {
  node.answer_with(
      {"", "41 00 20 01 0A 00 00 00", "", "41 00 30 01 08 00 00 00", "00 11 22 33 44 55 66 77"});
  const UrgentScope scope;
  EXPECT_TRUE(upload(0x2000)) << "before its segments";
  EXPECT_TRUE(upload(0x2000)) << "uncertain";
  node.answer_with({"41 00 30 01 08 00 00 00", ""});
  EXPECT_TRUE(upload(0x3000)) << "in its segments";
  node.answer_with({"41 00 31 01 08 00 00 00", "00 11 22 33 44 55 66 77"});
  const SdoClient::Failure failure = upload(0x3100);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
}

TEST_F(UrgentTransferTest, abort_of_another_object_between_segments_is_thrown_away) {
  node.answer_with({{"80 00 20 01 00 00 02 06", milliseconds(600)},
                    {"41 00 30 01 07 00 00 00", milliseconds(0)},
                    {"01 11 22 33 44 55 66 77", milliseconds(200)}});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload_urgently(0x3000), std::nullopt);
  EXPECT_EQ(data.size(), 7U);
}

TEST_F(UrgentTransferTest, segments_after_lost_ones_of_the_same_direction_are_uncertain) {
  node.answer_with(
      {"41 00 20 01 0A 00 00 00", "", "41 00 30 01 08 00 00 00", "00 11 22 33 44 55 66 77"});
  EXPECT_TRUE(upload(0x2000));
  node.take_requests();
  const SdoClient::Failure failure = upload_urgently(0x3000);
  ASSERT_TRUE(failure);
  EXPECT_TRUE(failure->outcome_unknown);
  EXPECT_EQ(failure->abort_code, 0x08000000U);
  EXPECT_THAT(node.take_requests(), ElementsAre(frame_of(0x605, "40 00 30 01 00 00 00 00"),
                                                frame_of(0x605, "60 00 00 00 00 00 00 00"),
                                                frame_of(0x605, "80 00 30 01 00 00 00 08")));
}

TEST_F(UrgentTransferTest, segments_after_a_lost_answer_of_another_kind_are_taken) {
  node.answer_with(
      {"", "41 00 30 01 08 00 00 00", "00 11 22 33 44 55 66 77", "1D 88 00 00 00 00 00 00"});
  EXPECT_TRUE(upload(0x2000));
  EXPECT_EQ(upload_urgently(0x3000), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88));
}

// --- silence, as the backend asks for it ---

TEST_F(UrgentTransferTest, timeouts_are_counted_while_nothing_comes_from_the_node) {
  node.answer_with({"", "", "4F 00 20 01 11 00 00 00", ""});
  EXPECT_EQ(client.timeouts_in_row(), 0U);
  upload(0x2000);
  upload(0x2000);
  EXPECT_EQ(client.timeouts_in_row(), 2U);
  upload(0x2000);
  EXPECT_EQ(client.timeouts_in_row(), 0U);
  upload(0x2000);
  EXPECT_EQ(client.timeouts_in_row(), 1U);
}

TEST_F(UrgentTransferTest, late_answer_that_is_thrown_away_begins_the_count_anew) {
  node.answer_with({{"4F 00 20 01 11 00 00 00", milliseconds(600)}, ""});
  upload(0x2000);
  upload(0x2000);
  EXPECT_EQ(client.timeouts_in_row(), 1U);
}

TEST_F(UrgentTransferTest, answer_that_takes_its_time_begins_the_count_anew) {
  node.answer_with({"", {"4F 00 20 01 11 00 00 00", milliseconds(100)}, ""});
  upload(0x2000);
  upload(0x2000);
  upload(0x2000);
  EXPECT_EQ(client.timeouts_in_row(), 1U);
}

TEST_F(UrgentTransferTest, controller_that_has_left_the_bus_makes_no_node_silent) {
  upload(0x2000);
  bus.set_state(CanStatus::bus_off);
  upload(0x2000);
  upload(0x2000);
  EXPECT_EQ(client.timeouts_in_row(), 0U);
}

TEST_F(UrgentTransferTest, that_is_uncertain_begins_a_quarantine_for_its_own_answer) {
  node.answer_with({"", {"60 40 60 01 00 00 00 00", milliseconds(100)}});
  download(0x6040, {15, 0});
  EXPECT_TRUE(download_urgently(0x6040));
  EXPECT_EQ(client.quarantine_end().time_since_epoch(), milliseconds(1100));
}

TEST_F(UrgentTransferTest, given_up_again_extends_the_quarantine_that_ends_last) {
  upload(0x2000);
  download_urgently(0x6040);
  download_urgently(0x6840);
  download_urgently(0x6040);
  EXPECT_EQ(time(), milliseconds(2000));
  EXPECT_EQ(client.quarantine_end().time_since_epoch(), milliseconds(2500));
}

TEST_F(UrgentTransferTest, quarantine_ends_with_that_of_the_last_transfer_given_up) {
  EXPECT_EQ(client.quarantine_end(), SdoClient::Time::min());
  upload(0x2000);
  download_urgently(0x6040);
  EXPECT_EQ(client.quarantine_end().time_since_epoch(), milliseconds(1500));
}

// --- stopping ---

class StoppedTransferTest : public testing::Test {
 protected:
  InProcessBus bus{BusTime::simulated};
  ScriptedNode node{bus};
  std::atomic<bool> stopped{false};
  SdoClient client{bus, 5, {}, {}, &stopped};
  Bytes data;
};

TEST_F(StoppedTransferTest, is_given_up_before_its_next_segment) {
  node.answer_with({"41 00 20 01 0A 00 00 00", "00 11 22 33 44 55 66 77"});
  const auto listener = bus.open({{0x605}}, [&](const CanFrame& request, auto& /*answers*/) {
    stopped = request.data[0] == 0x60;
  });
  const SdoClient::Failure failure = client.upload(0x2000, 1, data);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::stopped);
  EXPECT_EQ(failure->text, "stopped");
  EXPECT_FALSE(failure->outcome_unknown);
  EXPECT_THAT(node.take_requests(), ElementsAre(frame_of(0x605, "40 00 20 01 00 00 00 00"),
                                                frame_of(0x605, "60 00 00 00 00 00 00 00"),
                                                frame_of(0x605, "80 00 20 01 00 00 00 08")));
}

TEST_F(StoppedTransferTest, goes_on_to_its_end_when_it_is_urgent) {
  stopped = true;
  node.answer_with({"41 00 20 01 01 00 00 00", "0D 11 00 00 00 00 00 00"});
  const UrgentScope scope;
  EXPECT_EQ(client.upload(0x2000, 1, data), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x11));
}

}  // namespace
}  // namespace velmora_can_bridge
