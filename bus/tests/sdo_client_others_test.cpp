// What comes from a node and is not, or not quite, the answer that the standard has: answers to
// other clients, aborts that name no object, frames of fewer than 8 bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "talkative_node.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const Bytes one_byte = {0x11};
const Bytes five_bytes = {1, 2, 3, 4, 5};

/// Node 5, its object 0x2000/1, and a client that waits 500 ms for each answer.
class SdoOthersTest : public testing::Test {
 protected:
  /// An upload when there are no bytes.
  SdoClient::Failure transfer(const std::optional<Bytes>& bytes = {}) {
    data.clear();
    return bytes ? client.download(0x2000, 1, *bytes) : client.upload(0x2000, 1, data);
  }

  std::vector<CanFrame> aborts() {
    std::vector<CanFrame> aborts;
    for (const CanFrame& frame : node.take_requests()) {
      if (frame.data[0] == 0x80) {
        aborts.push_back(frame);
      }
    }
    return aborts;
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }

  InProcessBus bus{BusTime::simulated};
  TalkativeNode node{bus};
  std::unique_ptr<CanEndpoint> bystander = bus.open({});
  std::vector<BusError> told;
  SdoClient client{bus, 5, {}, [this](const BusError& error) { told.push_back(error); }};
  Bytes data;
};

// --- answers to other clients ---

struct OthersRow {
  const char* name;
  /// No value: an upload of 0x11, or of five bytes in segments.
  std::optional<Bytes> download;
  /// The answers to the requests before the last one.
  std::vector<std::vector<SpokenFrame>> before;
  /// What comes before the answer to the last one, and what that is.
  const char* others;
  const char* own;
  /// What the failure says of the former, when the latter does not come.
  const char* told;
};

void PrintTo(const OthersRow& row, std::ostream* out) { *out << row.name; }

class SdoOthersAnswerTest : public SdoOthersTest, public testing::WithParamInterface<OthersRow> {
 protected:
  static std::vector<std::vector<SpokenFrame>> script(std::vector<SpokenFrame> last) {
    std::vector<std::vector<SpokenFrame>> script = GetParam().before;
    script.push_back(std::move(last));
    return script;
  }

  const OthersRow& row = GetParam();
};

TEST_P(SdoOthersAnswerTest, is_passed_over) {
  node.answer_with(script({row.others, row.own}));
  EXPECT_EQ(transfer(row.download), std::nullopt);
  EXPECT_EQ(time(), milliseconds(0));
  EXPECT_THAT(aborts(), IsEmpty());
  EXPECT_THAT(told, IsEmpty());
}

TEST_P(SdoOthersAnswerTest, is_passed_over_when_both_are_waited_for) {
  node.answer_with(script({{row.others, milliseconds(200)}, {row.own, milliseconds(499)}}));
  EXPECT_EQ(transfer(row.download), std::nullopt);
  EXPECT_EQ(time(), milliseconds(499));
}

TEST_P(SdoOthersAnswerTest, gives_no_more_time_and_no_abort_is_sent) {
  node.answer_with(script({{row.others, milliseconds(200)}, {row.own, milliseconds(501)}}));
  const SdoClient::Failure failure = transfer(row.download);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(failure->abort_code, 0U);
  EXPECT_THAT(failure->text,
              HasSubstr("no answer within 500 ms; meanwhile came " + std::string(row.told) +
                        ", that of another SDO client or a late one"));
  EXPECT_EQ(time(), milliseconds(500));
  EXPECT_THAT(aborts(), IsEmpty());
}

const std::vector<std::vector<SpokenFrame>> segmented_upload = {{"41 00 20 01 05 00 00 00"}};
const std::vector<std::vector<SpokenFrame>> segmented_download = {{"60 00 20 01 00 00 00 00"}};
const char* const value = "4F 00 20 01 11 00 00 00";
const char* const download_begun = "60 00 20 01 00 00 00 00";
const char* const segment = "05 01 02 03 04 05 00 00";
const char* const taken = "20 00 00 00 00 00 00 00";

INSTANTIATE_TEST_SUITE_P(
    about_another_object, SdoOthersAnswerTest,
    testing::Values(
        OthersRow{"index_low",
                  {},
                  {},
                  "4F 01 20 01 22 00 00 00",
                  value,
                  "an answer about object 0x2001/1"},
        OthersRow{"index_high",
                  {},
                  {},
                  "4F 00 21 01 22 00 00 00",
                  value,
                  "an answer about object 0x2100/1"},
        OthersRow{"sub_index",
                  {},
                  {},
                  "4F 00 20 00 22 00 00 00",
                  value,
                  "an answer about object 0x2000/0"},
        OthersRow{"begin_of_segments",
                  {},
                  {},
                  "41 00 20 02 05 00 00 00",
                  value,
                  "an answer about object 0x2000/2"},
        OthersRow{
            "abort", {}, {}, "80 00 20 02 00 00 02 06", value, "an abort about object 0x2000/2"},
        OthersRow{"confirmation",
                  one_byte,
                  {},
                  "60 00 20 02 00 00 00 00",
                  download_begun,
                  "an answer about object 0x2000/2"},
        OthersRow{"value_instead_of_confirmation",
                  one_byte,
                  {},
                  "4F 00 30 00 22 00 00 00",
                  download_begun,
                  "an answer about object 0x3000/0"},
        OthersRow{"block_upload",
                  {},
                  {},
                  "C2 00 30 00 22 00 00 00",
                  value,
                  "an answer about object 0x3000/0"},
        OthersRow{"abort_between_segments", five_bytes, segmented_download,
                  "80 01 20 01 00 00 02 06", taken, "an abort about object 0x2001/1"},
        OthersRow{"short_one", {}, {}, "60 00 30 00", value, "an answer about object 0x3000/0"}),
    [](const auto& param) { return std::string(param.param.name); });

INSTANTIATE_TEST_SUITE_P(
    to_a_first_request_between_segments, SdoOthersAnswerTest,
    testing::Values(OthersRow{"value",
                              {},
                              segmented_upload,
                              "4F 00 30 00 22 00 00 00",
                              segment,
                              "an answer about object 0x3000/0"},
                    OthersRow{"begin_of_segments",
                              {},
                              segmented_upload,
                              "41 00 30 00 79 03 00 00",
                              segment,
                              "an answer about object 0x3000/0"},
                    OthersRow{"of_the_same_object",
                              {},
                              segmented_upload,
                              "41 00 20 01 05 00 00 00",
                              segment,
                              "an answer about object 0x2000/1"},
                    OthersRow{"confirmation", five_bytes, segmented_download,
                              "60 00 30 00 00 00 00 00", taken, "an answer about object 0x3000/0"},
                    OthersRow{"value_in_a_download", five_bytes, segmented_download,
                              "43 00 20 01 00 00 00 00", taken, "an answer about object 0x2000/1"}),
    [](const auto& param) { return std::string(param.param.name); });

INSTANTIATE_TEST_SUITE_P(
    to_a_segment, SdoOthersAnswerTest,
    testing::Values(
        OthersRow{"upload",
                  {},
                  {},
                  "00 01 02 03 04 05 06 07",
                  value,
                  "an answer to a segment that was not asked for"},
        OthersRow{"download",
                  one_byte,
                  {},
                  "30 00 00 00 00 00 00 00",
                  download_begun,
                  "an answer to a segment that was not asked for"},
        OthersRow{
            "short_one", {}, {}, "20", value, "an answer to a segment that was not asked for"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_P(SdoOthersAnswerTest, that_is_there_at_once_keeps_the_abort_back_too) {
  node.answer_with(script({row.others}));
  const SdoClient::Failure failure = transfer(row.download);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(failure->abort_code, 0U);
  EXPECT_THAT(failure->text, HasSubstr("; meanwhile came " + std::string(row.told)));
  EXPECT_THAT(aborts(), IsEmpty());
}

TEST_F(SdoOthersTest, own_answer_that_stands_behind_one_of_others_is_taken_when_the_time_is_over) {
  // Both come in the moment in which the time is over.
  node.answer_with({{{"4F 00 30 00 22 00 00 00", milliseconds(500)}, {value, milliseconds(500)}}});
  EXPECT_EQ(transfer(), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x11));
}

TEST_F(SdoOthersTest, abort_is_kept_back_until_the_end_of_the_transfer) {
  node.answer_with({{"41 00 20 01 1C 00 00 00"},
                    {"4F 00 30 00 22 00 00 00", "00 01 02 03 04 05 06 07"},
                    {"10 08 09 0A 0B 0C 0D 0E"}});
  const SdoClient::Failure failure = transfer();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(failure->abort_code, 0U);
  EXPECT_THAT(aborts(), IsEmpty());
}

TEST_F(SdoOthersTest, frame_of_no_bytes_is_nobodys_answer) {
  node.answer_with({{""}});
  const SdoClient::Failure failure = transfer();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_THAT(failure->text, HasSubstr("answered with 0 bytes"));
}

TEST_F(SdoOthersTest, no_abort_ends_the_transfer_of_another_client_when_ours_fails_otherwise) {
  node.answer_with(
      {{"41 00 20 01 0F 00 00 00"}, {"41 00 30 00 0F 00 00 00", "10 01 02 03 04 05 06 07"}});
  const SdoClient::Failure failure = transfer();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_EQ(failure->abort_code, 0U);
  EXPECT_THAT(failure->text, HasSubstr("out of turn; meanwhile"));
  EXPECT_THAT(failure->text, HasSubstr("about object 0x3000/0, that of another SDO client"));
  EXPECT_THAT(aborts(), IsEmpty());
}

TEST_F(SdoOthersTest, abort_is_sent_again_by_the_transfer_after_that) {
  node.answer_with({{"4F 00 30 00 22 00 00 00", value}, {}});
  EXPECT_EQ(transfer(), std::nullopt);
  EXPECT_TRUE(transfer());
  EXPECT_THAT(aborts(), ElementsAre(frame_of(0x605, "80 00 20 01 00 00 04 05")));
}

TEST_F(SdoOthersTest, endless_answers_of_others_do_not_put_the_time_out_off) {
  std::vector<SpokenFrame> stream;
  for (int count = 1; count < 100; ++count) {
    stream.emplace_back("4F 00 30 00 22 00 00 00", milliseconds(10 * count));
  }
  node.answer_with({stream});
  const SdoClient::Failure failure = transfer();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(time(), milliseconds(500));
}

// --- texts that hint at a second client ---

struct HintRow {
  const char* name;
  std::vector<std::vector<SpokenFrame>> script;
  bool hints;
};

void PrintTo(const HintRow& row, std::ostream* out) { *out << row.name; }

class SdoHintTest : public SdoOthersTest, public testing::WithParamInterface<HintRow> {};

TEST_P(SdoHintTest, text_hints_at_another_client_in_the_common_cases) {
  node.answer_with(GetParam().script);
  const SdoClient::Failure failure = transfer();
  ASSERT_TRUE(failure);
  const std::string hint = "; perhaps another SDO client is talking to the node";
  EXPECT_EQ(failure->text.find(hint) != std::string::npos, GetParam().hints) << failure->text;
}

INSTANTIATE_TEST_SUITE_P(
    all, SdoHintTest,
    testing::Values(HintRow{"abort_05040001", {{"80 00 20 01 01 00 04 05"}}, true},
                    HintRow{"abort_05040001_between_segments",
                            {{"41 00 20 01 0F 00 00 00"}, {"80 00 00 00 01 00 04 05"}},
                            true},
                    HintRow{"abort_05030000_between_segments",
                            {{"41 00 20 01 0F 00 00 00"}, {"80 00 20 01 00 00 03 05"}},
                            true},
                    HintRow{"command_between_segments",
                            {{"41 00 20 01 0F 00 00 00"}, {"20 00 00 00 00 00 00 00"}},
                            true},
                    HintRow{"segment_out_of_turn",
                            {{"41 00 20 01 0F 00 00 00"}, {"10 01 02 03 04 05 06 07"}},
                            true},
                    HintRow{"no_such_object", {{"80 00 20 01 00 00 02 06"}}, false},
                    HintRow{"command_of_a_first_answer", {{"60 00 20 01 00 00 00 00"}}, true},
                    HintRow{"no_answer", {}, false}),
    [](const auto& param) { return std::string(param.param.name); });

// --- aborts about object 0x0000/0 ---

TEST_F(SdoOthersTest, abort_about_no_object_refuses_the_transfer_under_way) {
  node.answer_with({{"80 00 00 00 24 00 00 08"}, {value}});
  const SdoClient::Failure failure = transfer(one_byte);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::refused);
  EXPECT_EQ(failure->abort_code, 0x08000024U);
  EXPECT_EQ(failure->text, "abort 0x08000024, no data are available");
  EXPECT_FALSE(failure->outcome_unknown);
  EXPECT_THAT(aborts(), IsEmpty()) << "a counter-abort";
  EXPECT_EQ(transfer(), std::nullopt);
  EXPECT_EQ(time(), milliseconds(0)) << "no quarantine";
}

TEST_F(SdoOthersTest, abort_about_no_object_refuses_between_segments) {
  node.answer_with({{download_begun}, {"80 00 00 00 01 00 04 05"}});
  const SdoClient::Failure failure = transfer(five_bytes);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::refused);
  EXPECT_FALSE(failure->outcome_unknown);
  EXPECT_THAT(aborts(), IsEmpty());
}

TEST_F(SdoOthersTest, abort_about_a_sub_index_of_object_0_is_about_another_object) {
  node.answer_with({{"80 00 00 01 24 00 00 08", value}});
  EXPECT_EQ(transfer(), std::nullopt);
}

// --- answers of fewer than 8 bytes ---

struct ShortRow {
  const char* name;
  /// No value: an upload.
  std::optional<Bytes> download;
  std::vector<std::vector<SpokenFrame>> script;
  Bytes uploaded;
  /// The length that the observer is told.
  const char* told;
};

void PrintTo(const ShortRow& row, std::ostream* out) { *out << row.name; }

class ShortAnswerTest : public SdoOthersTest, public testing::WithParamInterface<ShortRow> {};

TEST_P(ShortAnswerTest, is_taken_and_told_once) {
  node.answer_with(GetParam().script);
  EXPECT_EQ(transfer(GetParam().download), std::nullopt);
  EXPECT_EQ(data, GetParam().uploaded);
  EXPECT_THAT(aborts(), IsEmpty());

  node.answer_with(GetParam().script);
  EXPECT_EQ(transfer(GetParam().download), std::nullopt);

  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].kind, BusErrorKind::short_answer);
  EXPECT_EQ(told[0].node_id, 5);
  EXPECT_EQ(told[0].text, "answers with " + std::string(GetParam().told) +
                              " instead of 8: against the standard, but they hold all that is "
                              "needed");
}

INSTANTIATE_TEST_SUITE_P(
    of, ShortAnswerTest,
    testing::Values(
        ShortRow{"expedited_1", {}, {{"4F 00 20 01 11"}}, {0x11}, "5 bytes"},
        ShortRow{"expedited_2", {}, {{"4B 00 20 01 11 22"}}, {0x11, 0x22}, "6 bytes"},
        ShortRow{"expedited_3", {}, {{"47 00 20 01 11 22 33"}}, {0x11, 0x22, 0x33}, "7 bytes"},
        ShortRow{
            "expedited_1_with_more_than_needed", {}, {{"4F 00 20 01 11 22"}}, {0x11}, "6 bytes"},
        ShortRow{"expedited_without_size", {}, {{"42 00 20 01 11 22"}}, {0x11, 0x22}, "6 bytes"},
        ShortRow{"expedited_without_size_or_data", {}, {{"42 00 20 01"}}, {}, "4 bytes"},
        ShortRow{"confirmation", one_byte, {{"60 00 20 01"}}, {}, "4 bytes"},
        ShortRow{"begin_of_segments_without_size",
                 {},
                 {{"40 00 20 01"}, {segment}},
                 five_bytes,
                 "4 bytes"},
        ShortRow{"last_segment",
                 {},
                 {{"41 00 20 01 05 00 00 00"}, {"05 01 02 03 04 05"}},
                 five_bytes,
                 "6 bytes"},
        ShortRow{"empty_last_segment", {}, {{"41 00 20 01 00 00 00 00"}, {"0F"}}, {}, "1 byte"},
        ShortRow{"taken_segment", five_bytes, {{download_begun}, {"20"}}, {}, "1 byte"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(SdoOthersTest, answer_without_bytes_has_no_command) {
  node.answer_with({{""}});
  const SdoClient::Failure failure = transfer();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_EQ(failure->text, "answered with 0 bytes");
}

// --- answers that another client has had before ---

TEST_F(SdoOthersTest, more_answers_to_another_client_than_any_socket_holds_are_all_thrown_away) {
  const auto other = bus.open({{0x700}}, [](const CanFrame& /*frame*/, auto& answers) {
    answers.assign(5000, frame_of(0x585, "4F 00 20 01 22 00 00 00"));
  });
  bystander->send(frame_of(0x700, "00"), milliseconds(0));
  node.answer_with({{value}});
  EXPECT_EQ(transfer(), std::nullopt);
  EXPECT_THAT(data, ElementsAre(0x11));
}

/// A bus on which frames about another object never end, from the start or from the first request
/// on. A millisecond passes with each.
class FloodedChannel : public CanChannel {
 public:
  explicit FloodedChannel(bool from_the_start) : is_flooded(from_the_start) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& /*filters*/) override {
    return std::make_unique<Endpoint>(*this);
  }

  bool is_flooded;
  int sent = 0;
  int received = 0;

 private:
  class Endpoint : public CanEndpoint {
   public:
    explicit Endpoint(FloodedChannel& channel) : channel_(&channel) {}
    CanStatus send(const CanFrame& /*frame*/, std::chrono::nanoseconds /*patience*/) override {
      channel_->is_flooded = true;
      ++channel_->sent;
      return CanStatus::ok;
    }
    CanStatus receive(CanFrame& frame, std::chrono::nanoseconds /*timeout*/) override {
      if (!channel_->is_flooded) {
        return CanStatus::timed_out;
      }
      ++channel_->received;
      frame = frame_of(0x585, "4F 00 30 00 22 00 00 00");
      return CanStatus::ok;
    }
    std::chrono::steady_clock::time_point now() const override {
      return std::chrono::steady_clock::time_point(milliseconds(channel_->received));
    }
    std::string explain(CanStatus /*status*/) const override { return "flooded"; }

   private:
    FloodedChannel* const channel_;
  };
};

TEST(SdoClientInAFlood, requests_nothing_rather_than_take_an_old_answer) {
  FloodedChannel channel(true);
  SdoClient client(channel, 5, {}, {});
  Bytes data;
  const SdoClient::Failure failure = client.upload(0x2000, 1, data);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_EQ(failure->text,
            "sends answers that nobody asked for faster than they can be thrown away; nothing was "
            "requested");
  EXPECT_EQ(channel.sent, 0);
  EXPECT_THAT(data, IsEmpty());
}

TEST(SdoClientInAFlood, ends_although_the_transfer_as_a_whole_has_all_the_time) {
  FloodedChannel channel(false);
  SdoTimes times;
  times.transfer_timeout = milliseconds::max();
  SdoClient client(channel, 5, times, {});
  Bytes data;
  const SdoClient::Failure failure = client.upload(0x2000, 1, data);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_THAT(failure->text, HasSubstr("no answer within 500 ms; meanwhile came"));
  EXPECT_LE(channel.received, 500 + (1 << 18));
}

}  // namespace
}  // namespace velmora_can_bridge
