#include "velmora_can_bridge/bus/sdo_client.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "failing_channel.hpp"
#include "scripted_node.hpp"
#include "support/passing_endpoint.hpp"
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

/// Every transfer of these tests is with node 5 and its object 0x2000/1.
constexpr std::uint8_t node_id = 5;
constexpr std::uint16_t index = 0x2000;
constexpr std::uint8_t sub_index = 1;

/// What the caller's vector holds before an upload.
constexpr std::uint8_t held_before = 0xEE;

/// "1, 2, 3 ..."
Bytes counting_bytes(std::size_t count) {
  Bytes bytes;
  for (std::size_t position = 1; position <= count; ++position) {
    bytes.push_back(static_cast<std::uint8_t>(position));
  }
  return bytes;
}

Frames requests_of(const std::vector<std::string>& texts) {
  Frames frames;
  frames.reserve(texts.size());
  for (const std::string& text : texts) {
    frames.push_back(frame_of(0x600 + node_id, text));
  }
  return frames;
}

/// A client, a scripted node and between them a bus that has a clock of its own.
class SdoClientTest : public testing::Test {
 protected:
  SdoClient::Failure upload() {
    data.assign(1, held_before);
    return client->upload(index, sub_index, data);
  }

  SdoClient::Failure download(const Bytes& bytes) {
    return client->download(index, sub_index, bytes);
  }

  /// An upload when there are no bytes.
  SdoClient::Failure transfer(const std::optional<Bytes>& bytes) {
    return bytes ? download(*bytes) : upload();
  }

  void use_times(const SdoTimes& times) {
    client = std::make_unique<SdoClient>(channel, node_id, times, note);
  }

  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(bystander->now().time_since_epoch());
  }

  InProcessBus bus{BusTime::simulated};
  FailingChannel channel{bus};
  ScriptedNode node{bus, node_id};
  std::unique_ptr<CanEndpoint> bystander = bus.open({});
  std::vector<CanStatus> statuses;
  // Of the node, not of the bus.
  std::vector<BusError> told;
  BusObserver note = [this](const BusError& error) {
    if (error.node_id == 0) {
      statuses.push_back(error.status);
    } else {
      told.push_back(error);
    }
  };
  std::unique_ptr<SdoClient> client =
      std::make_unique<SdoClient>(channel, node_id, SdoTimes(), note);
  Bytes data;
};

/// A transfer that succeeds.
struct TransferCase {
  std::string name;
  /// No value: an upload.
  std::optional<Bytes> download;
  std::vector<ScriptedAnswer> answers;
  std::vector<std::string> requests;
  /// Of an upload.
  Bytes uploaded;
};

void PrintTo(const TransferCase& row, std::ostream* out) { *out << row.name; }

class SdoTransferTest : public SdoClientTest, public testing::WithParamInterface<TransferCase> {};

TEST_P(SdoTransferTest, moves_the_bytes_with_exactly_these_requests) {
  node.answer_with(GetParam().answers);

  const SdoClient::Failure failure = transfer(GetParam().download);

  EXPECT_FALSE(failure) << failure->text;
  EXPECT_EQ(node.take_requests(), requests_of(GetParam().requests));
  if (!GetParam().download) {
    Bytes expected = GetParam().uploaded;
    expected.insert(expected.begin(), held_before);
    EXPECT_EQ(data, expected);
  }
  EXPECT_THAT(statuses, IsEmpty());
  EXPECT_EQ(time(), milliseconds(0));
}

const std::string upload_request = "40 00 20 01 00 00 00 00";

INSTANTIATE_TEST_SUITE_P(
    expedited_uploads, SdoTransferTest,
    testing::Values(
        TransferCase{"size_1", {}, {"4F 00 20 01 11 22 33 44"}, {upload_request}, {0x11}},
        TransferCase{"size_2", {}, {"4B 00 20 01 11 22 33 44"}, {upload_request}, {0x11, 0x22}},
        TransferCase{
            "size_3", {}, {"47 00 20 01 11 22 33 44"}, {upload_request}, {0x11, 0x22, 0x33}},
        TransferCase{
            "size_4", {}, {"43 00 20 01 11 22 33 44"}, {upload_request}, {0x11, 0x22, 0x33, 0x44}},
        TransferCase{
            "no_size", {}, {"42 00 20 01 11 22 33 44"}, {upload_request}, {0x11, 0x22, 0x33, 0x44}},
        TransferCase{"no_size_and_bits_where_it_would_stand",
                     {},
                     {"4E 00 20 01 11 22 33 44"},
                     {upload_request},
                     {0x11, 0x22, 0x33, 0x44}},
        TransferCase{
            "reserved_bit_set", {}, {"5F 00 20 01 11 22 33 44"}, {upload_request}, {0x11}}),
    [](const testing::TestParamInfo<TransferCase>& row) { return row.param.name; });

const std::string first_segment = "60 00 00 00 00 00 00 00";
const std::string second_segment = "70 00 00 00 00 00 00 00";

INSTANTIATE_TEST_SUITE_P(
    segmented_uploads, SdoTransferTest,
    testing::Values(TransferCase{"nothing",
                                 {},
                                 {"41 00 20 01 00 00 00 00", "0F 00 00 00 00 00 00 00"},
                                 {upload_request, first_segment},
                                 {}},
                    TransferCase{"size_5",
                                 {},
                                 {"41 00 20 01 05 00 00 00", "05 01 02 03 04 05 00 00"},
                                 {upload_request, first_segment},
                                 counting_bytes(5)},
                    TransferCase{"padding_of_the_last_segment_is_no_data",
                                 {},
                                 {"41 00 20 01 05 00 00 00", "05 01 02 03 04 05 AA BB"},
                                 {upload_request, first_segment},
                                 counting_bytes(5)},
                    TransferCase{"full_last_segment",
                                 {},
                                 {"41 00 20 01 07 00 00 00", "01 01 02 03 04 05 06 07"},
                                 {upload_request, first_segment},
                                 counting_bytes(7)},
                    TransferCase{"toggle_alternates",
                                 {},
                                 {"41 00 20 01 0F 00 00 00", "00 01 02 03 04 05 06 07",
                                  "10 08 09 0A 0B 0C 0D 0E", "0D 0F 00 00 00 00 00 00"},
                                 {upload_request, first_segment, second_segment, first_segment},
                                 counting_bytes(15)},
                    TransferCase{"empty_last_segment",
                                 {},
                                 {"41 00 20 01 07 00 00 00", "00 01 02 03 04 05 06 07",
                                  "1F 00 00 00 00 00 00 00"},
                                 {upload_request, first_segment, second_segment},
                                 counting_bytes(7)},
                    TransferCase{"short_segment_before_the_last",
                                 {},
                                 {"41 00 20 01 05 00 00 00", "08 01 02 03 00 00 00 00",
                                  "1B 04 05 00 00 00 00 00"},
                                 {upload_request, first_segment, second_segment},
                                 counting_bytes(5)},
                    TransferCase{"no_size",
                                 {},
                                 {"40 00 20 01 00 00 00 00", "00 01 02 03 04 05 06 07",
                                  "1D 08 00 00 00 00 00 00"},
                                 {upload_request, first_segment, second_segment},
                                 counting_bytes(8)},
                    TransferCase{"number_where_no_size_is_announced_means_nothing",
                                 {},
                                 {"40 00 20 01 01 00 00 00", "01 01 02 03 04 05 06 07"},
                                 {upload_request, first_segment},
                                 counting_bytes(7)}),
    [](const testing::TestParamInfo<TransferCase>& row) { return row.param.name; });

const char* const confirmed = "60 00 20 01 00 00 00 00";
const char* const first_taken = "20 00 00 00 00 00 00 00";
const char* const second_taken = "30 00 00 00 00 00 00 00";

INSTANTIATE_TEST_SUITE_P(
    downloads, SdoTransferTest,
    testing::Values(
        TransferCase{"size_0",
                     Bytes(),
                     {confirmed, first_taken},
                     {"21 00 20 01 00 00 00 00", "0F 00 00 00 00 00 00 00"},
                     {}},
        TransferCase{"size_1", counting_bytes(1), {confirmed}, {"2F 00 20 01 01 00 00 00"}, {}},
        TransferCase{"size_2", counting_bytes(2), {confirmed}, {"2B 00 20 01 01 02 00 00"}, {}},
        TransferCase{"size_3", counting_bytes(3), {confirmed}, {"27 00 20 01 01 02 03 00"}, {}},
        TransferCase{"size_4", counting_bytes(4), {confirmed}, {"23 00 20 01 01 02 03 04"}, {}},
        TransferCase{
            "high_bytes", bytes_of("FF FE FD FC"), {confirmed}, {"23 00 20 01 FF FE FD FC"}, {}},
        TransferCase{"size_5",
                     counting_bytes(5),
                     {confirmed, first_taken},
                     {"21 00 20 01 05 00 00 00", "05 01 02 03 04 05 00 00"},
                     {}},
        TransferCase{"size_7",
                     counting_bytes(7),
                     {confirmed, first_taken},
                     {"21 00 20 01 07 00 00 00", "01 01 02 03 04 05 06 07"},
                     {}},
        TransferCase{
            "size_8",
            counting_bytes(8),
            {confirmed, first_taken, second_taken},
            {"21 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07", "1D 08 00 00 00 00 00 00"},
            {}},
        TransferCase{
            "size_14",
            counting_bytes(14),
            {confirmed, first_taken, second_taken},
            {"21 00 20 01 0E 00 00 00", "00 01 02 03 04 05 06 07", "11 08 09 0A 0B 0C 0D 0E"},
            {}},
        TransferCase{"size_15",
                     counting_bytes(15),
                     {confirmed, first_taken, second_taken, first_taken},
                     {"21 00 20 01 0F 00 00 00", "00 01 02 03 04 05 06 07",
                      "10 08 09 0A 0B 0C 0D 0E", "0D 0F 00 00 00 00 00 00"},
                     {}}),
    [](const testing::TestParamInfo<TransferCase>& row) { return row.param.name; });

/// 1000 bytes are 142 full segments and one of 6 bytes.
constexpr std::size_t many = 1000;

TEST_F(SdoClientTest, long_download_sends_every_byte_once) {
  std::vector<ScriptedAnswer> answers = {confirmed};
  for (int segment = 0; segment < 143; ++segment) {
    answers.emplace_back(segment % 2 == 0 ? first_taken : second_taken);
  }
  node.answer_with(answers);

  ASSERT_FALSE(download(counting_bytes(many)));

  const Frames requests = node.take_requests();
  ASSERT_EQ(requests.size(), 144U);
  EXPECT_EQ(requests[0], frame_of(0x605, "21 00 20 01 E8 03 00 00"));
  Bytes sent;
  for (std::size_t segment = 0; segment < 143; ++segment) {
    const CanFrame& frame = requests[segment + 1];
    const bool last = segment == 142;
    EXPECT_EQ(frame.data[0], last ? 0x03 : 0x10 * static_cast<int>(segment % 2)) << segment;
    sent.insert(sent.end(), frame.data.begin() + 1, frame.data.begin() + (last ? 7 : 8));
  }
  EXPECT_EQ(sent, counting_bytes(many));
}

TEST_F(SdoClientTest, long_upload_brings_every_byte_once) {
  const Bytes bytes = counting_bytes(many);
  const char digits[] = "0123456789ABCDEF";
  std::vector<std::string> texts;
  for (std::size_t begin = 0; begin < many; begin += 7) {
    const bool last = begin + 7 >= many;
    texts.emplace_back(last ? "03" : begin / 7 % 2 == 0 ? "00" : "10");
    for (std::size_t position = begin; position < begin + 7; ++position) {
      const unsigned byte = position < many ? bytes[position] : 0U;
      texts.back() += std::string(" ") + digits[byte >> 4U] + digits[byte & 0xFU];
    }
  }
  std::vector<ScriptedAnswer> answers = {"41 00 20 01 E8 03 00 00"};
  for (const std::string& text : texts) {
    answers.emplace_back(text.c_str());
  }
  node.answer_with(answers);

  ASSERT_FALSE(upload());

  EXPECT_EQ(Bytes(data.begin() + 1, data.end()), bytes);
  EXPECT_EQ(node.take_requests().size(), 144U);
}

/// A transfer that fails by what the node answers, or does not.
struct FailureCase {
  std::string name;
  /// No value: an upload.
  std::optional<Bytes> download;
  std::vector<ScriptedAnswer> answers;
  /// With the abort that is sent to the node, if any.
  std::vector<std::string> requests;
  BusErrorKind kind;
  std::uint32_t abort_code;
  bool outcome_unknown;
  std::string text;
  /// When the next transfer may begin.
  milliseconds next{500};
};

void PrintTo(const FailureCase& row, std::ostream* out) { *out << row.name; }

class SdoFailureTest : public SdoClientTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(SdoFailureTest, tells_what_happened_and_sends_nothing_more) {
  node.answer_with(GetParam().answers);

  const SdoClient::Failure failure = transfer(GetParam().download);

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, GetParam().kind);
  EXPECT_EQ(failure->node_id, node_id);
  EXPECT_EQ(failure->index, index);
  EXPECT_EQ(failure->sub_index, sub_index);
  EXPECT_EQ(failure->abort_code, GetParam().abort_code);
  EXPECT_EQ(failure->outcome_unknown, GetParam().outcome_unknown);
  EXPECT_EQ(failure->text, GetParam().text);
  EXPECT_EQ(node.take_requests(), requests_of(GetParam().requests));
}

TEST_P(SdoFailureTest, next_transfer_succeeds_after_the_quarantine) {
  node.answer_with(GetParam().answers);
  ASSERT_TRUE(transfer(GetParam().download));
  node.take_requests();
  node.answer_with({"4F 00 20 01 77 00 00 00"});

  const SdoClient::Failure failure = upload();

  EXPECT_FALSE(failure) << failure->text;
  EXPECT_THAT(data, ElementsAre(held_before, 0x77));
  EXPECT_EQ(node.take_requests(), requests_of({upload_request}));
  EXPECT_EQ(time(), GetParam().next);
}

const std::string another_client = "; perhaps another SDO client is talking to the node";
const std::string unknown = "; whether the node has taken the value is unknown";

INSTANTIATE_TEST_SUITE_P(
    refused_by_the_node, SdoFailureTest,
    testing::Values(FailureCase{"upload",
                                {},
                                {"80 00 20 01 00 00 02 06"},
                                {upload_request},
                                BusErrorKind::refused,
                                0x06020000,
                                false,
                                "abort 0x06020000, no object at this index",
                                milliseconds(0)},
                    FailureCase{"upload_segment",
                                {},
                                {"41 00 20 01 0F 00 00 00", "80 00 20 01 24 00 00 08"},
                                {upload_request, first_segment},
                                BusErrorKind::refused,
                                0x08000024,
                                false,
                                "abort 0x08000024, no data are available",
                                milliseconds(0)},
                    FailureCase{"expedited_download",
                                counting_bytes(1),
                                {"80 00 20 01 02 00 01 06"},
                                {"2F 00 20 01 01 00 00 00"},
                                BusErrorKind::refused,
                                0x06010002,
                                false,
                                "abort 0x06010002, the object can only be read",
                                milliseconds(0)},
                    FailureCase{"segmented_download",
                                counting_bytes(5),
                                {"80 00 20 01 12 00 07 06"},
                                {"21 00 20 01 05 00 00 00"},
                                BusErrorKind::refused,
                                0x06070012,
                                false,
                                "abort 0x06070012, too many bytes for the object",
                                milliseconds(0)},
                    FailureCase{"last_download_segment",
                                counting_bytes(5),
                                {confirmed, "80 00 20 01 30 00 09 06"},
                                {"21 00 20 01 05 00 00 00", "05 01 02 03 04 05 00 00"},
                                BusErrorKind::refused,
                                0x06090030,
                                false,
                                "abort 0x06090030, the value is invalid",
                                milliseconds(0)},
                    FailureCase{"unknown_code",
                                {},
                                {"80 00 20 01 EF BE AD DE"},
                                {upload_request},
                                BusErrorKind::refused,
                                0xDEADBEEF,
                                false,
                                "abort 0xDEADBEEF, unknown abort code",
                                milliseconds(0)}),
    [](const testing::TestParamInfo<FailureCase>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    wrong_toggle, SdoFailureTest,
    testing::Values(FailureCase{"first_upload_segment",
                                {},
                                {"41 00 20 01 0F 00 00 00", "10 01 02 03 04 05 06 07"},
                                {upload_request, first_segment, "80 00 20 01 00 00 03 05"},
                                BusErrorKind::bad_answer,
                                0x05030000,
                                false,
                                "answered a segment out of turn" + another_client},
                    FailureCase{
                        "second_upload_segment",
                        {},
                        {"41 00 20 01 0F 00 00 00", "00 01 02 03 04 05 06 07",
                         "00 01 02 03 04 05 06 07"},
                        {upload_request, first_segment, second_segment, "80 00 20 01 00 00 03 05"},
                        BusErrorKind::bad_answer,
                        0x05030000,
                        false,
                        "answered a segment out of turn" + another_client},
                    FailureCase{"first_download_segment",
                                counting_bytes(8),
                                {confirmed, second_taken},
                                {"21 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07",
                                 "80 00 20 01 00 00 03 05"},
                                BusErrorKind::bad_answer,
                                0x05030000,
                                false,
                                "answered a segment out of turn" + another_client},
                    FailureCase{"last_download_segment",
                                counting_bytes(8),
                                {confirmed, first_taken, first_taken},
                                {"21 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07",
                                 "1D 08 00 00 00 00 00 00", "80 00 20 01 00 00 03 05"},
                                BusErrorKind::bad_answer,
                                0x05030000,
                                true,
                                "answered a segment out of turn" + another_client + unknown}),
    [](const testing::TestParamInfo<FailureCase>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    unknown_command, SdoFailureTest,
    testing::Values(FailureCase{"upload",
                                {},
                                {"60 00 20 01 00 00 00 00"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with the command 0x60" + another_client},
                    FailureCase{"block_upload",
                                {},
                                {"C2 00 20 01 00 00 00 00"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with the command 0xC2" + another_client},
                    FailureCase{"upload_segment",
                                {},
                                {"41 00 20 01 0F 00 00 00", "20 00 00 00 00 00 00 00"},
                                {upload_request, first_segment, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with the command 0x20" + another_client},
                    FailureCase{"expedited_download",
                                counting_bytes(1),
                                {"43 00 20 01 00 00 00 00"},
                                {"2F 00 20 01 01 00 00 00", "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                true,
                                "answered with the command 0x43" + another_client + unknown},
                    FailureCase{"segmented_download",
                                counting_bytes(5),
                                {"41 00 20 01 00 00 00 00"},
                                {"21 00 20 01 05 00 00 00", "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with the command 0x41" + another_client},
                    FailureCase{"first_download_segment",
                                counting_bytes(8),
                                {confirmed, "A2 00 20 01 00 00 00 00"},
                                {"21 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07",
                                 "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with the command 0xA2" + another_client},
                    FailureCase{"last_download_segment",
                                counting_bytes(5),
                                {confirmed, "00 00 20 01 00 00 00 00"},
                                {"21 00 20 01 05 00 00 00", "05 01 02 03 04 05 00 00",
                                 "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                true,
                                "answered with the command 0x00" + another_client + unknown}),
    [](const testing::TestParamInfo<FailureCase>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    too_few_bytes, SdoFailureTest,
    testing::Values(FailureCase{"expedited_upload_of_4_bytes",
                                {},
                                {"43 00 20 01 11 22 33"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 7 bytes, too few for the command 0x43"},
                    FailureCase{"expedited_upload_of_1_byte",
                                {},
                                {"4F 00 20 01"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 4 bytes, too few for the command 0x4F"},
                    FailureCase{"upload_without_object",
                                {},
                                {"42 00 20"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 3 bytes, too few for the command 0x42"},
                    FailureCase{"announced_size",
                                {},
                                {"41 00 20 01 08 00 00"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 7 bytes, too few for the command 0x41"},
                    FailureCase{"abort_1",
                                {},
                                {"80"},
                                {upload_request, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 1 byte, too few for the command 0x80"},
                    FailureCase{"abort_7",
                                counting_bytes(1),
                                {"80 00 20 01 00 00 02"},
                                {"2F 00 20 01 01 00 00 00", "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                true,
                                "answered with 7 bytes, too few for the command 0x80" + unknown},
                    FailureCase{"confirmation_3",
                                counting_bytes(1),
                                {"60 00 20"},
                                {"2F 00 20 01 01 00 00 00", "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                true,
                                "answered with 3 bytes, too few for the command 0x60" + unknown},
                    FailureCase{"upload_segment_7",
                                {},
                                {"41 00 20 01 0F 00 00 00", "00 01 02 03 04 05 06"},
                                {upload_request, first_segment, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 7 bytes, too few for the command 0x00"},
                    FailureCase{"last_upload_segment_3",
                                {},
                                {"41 00 20 01 03 00 00 00", "09 01 02"},
                                {upload_request, first_segment, "80 00 20 01 01 00 04 05"},
                                BusErrorKind::bad_answer,
                                0x05040001,
                                false,
                                "answered with 3 bytes, too few for the command 0x09"}),
    [](const testing::TestParamInfo<FailureCase>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    other_size_than_announced, SdoFailureTest,
    testing::Values(FailureCase{"one_less",
                                {},
                                {"41 00 20 01 06 00 00 00", "05 01 02 03 04 05 00 00"},
                                {upload_request, first_segment, "80 00 20 01 10 00 07 06"},
                                BusErrorKind::bad_answer,
                                0x06070010,
                                false,
                                "sent 5 bytes where it had announced 6 bytes"},
                    FailureCase{"one_more",
                                {},
                                {"41 00 20 01 01 00 00 00", "0B 01 02 00 00 00 00 00"},
                                {upload_request, first_segment, "80 00 20 01 10 00 07 06"},
                                BusErrorKind::bad_answer,
                                0x06070010,
                                false,
                                "sent 2 bytes where it had announced 1 byte"},
                    FailureCase{"none_announced",
                                {},
                                {"41 00 20 01 00 00 00 00", "0D 01 00 00 00 00 00 00"},
                                {upload_request, first_segment, "80 00 20 01 10 00 07 06"},
                                BusErrorKind::bad_answer,
                                0x06070010,
                                false,
                                "sent 1 byte where it had announced 0 bytes"},
                    FailureCase{"more_before_the_last_segment_is_not_read_on",
                                {},
                                {"41 00 20 01 06 00 00 00", "00 01 02 03 04 05 06 07"},
                                {upload_request, first_segment, "80 00 20 01 10 00 07 06"},
                                BusErrorKind::bad_answer,
                                0x06070010,
                                false,
                                "sent 7 bytes where it had announced 6 bytes"},
                    FailureCase{"all_four_bytes_of_the_size_count",
                                {},
                                {"41 00 20 01 05 00 00 FF", "05 01 02 03 04 05 00 00"},
                                {upload_request, first_segment, "80 00 20 01 10 00 07 06"},
                                BusErrorKind::bad_answer,
                                0x06070010,
                                false,
                                "sent 5 bytes where it had announced 4278190085 bytes"}),
    [](const testing::TestParamInfo<FailureCase>& row) { return row.param.name; });

/// Silence of 500 ms, then the quarantine of 500 ms.
constexpr milliseconds after_silence{1000};

INSTANTIATE_TEST_SUITE_P(
    silence, SdoFailureTest,
    testing::Values(FailureCase{"upload",
                                {},
                                {},
                                {upload_request, "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                false,
                                "no answer within 500 ms",
                                after_silence},
                    FailureCase{"first_upload_segment",
                                {},
                                {"41 00 20 01 0F 00 00 00"},
                                {upload_request, first_segment, "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                false,
                                "no answer within 500 ms",
                                after_silence},
                    FailureCase{
                        "second_upload_segment",
                        {},
                        {"41 00 20 01 0F 00 00 00", "00 01 02 03 04 05 06 07"},
                        {upload_request, first_segment, second_segment, "80 00 20 01 00 00 04 05"},
                        BusErrorKind::no_answer,
                        0x05040000,
                        false,
                        "no answer within 500 ms",
                        after_silence},
                    FailureCase{"expedited_download",
                                counting_bytes(4),
                                {},
                                {"23 00 20 01 01 02 03 04", "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                true,
                                "no answer within 500 ms" + unknown,
                                after_silence},
                    FailureCase{"segmented_download",
                                counting_bytes(8),
                                {},
                                {"21 00 20 01 08 00 00 00", "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                false,
                                "no answer within 500 ms",
                                after_silence},
                    FailureCase{"first_download_segment",
                                counting_bytes(8),
                                {confirmed},
                                {"21 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07",
                                 "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                false,
                                "no answer within 500 ms",
                                after_silence},
                    FailureCase{"last_download_segment",
                                counting_bytes(8),
                                {confirmed, first_taken},
                                {"21 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07",
                                 "1D 08 00 00 00 00 00 00", "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                true,
                                "no answer within 500 ms" + unknown,
                                after_silence},
                    FailureCase{"empty_download",
                                Bytes(),
                                {confirmed},
                                {"21 00 20 01 00 00 00 00", "0F 00 00 00 00 00 00 00",
                                 "80 00 20 01 00 00 04 05"},
                                BusErrorKind::no_answer,
                                0x05040000,
                                true,
                                "no answer within 500 ms" + unknown,
                                after_silence}),
    [](const testing::TestParamInfo<FailureCase>& row) { return row.param.name; });

TEST_F(SdoClientTest, answer_just_in_time_counts) {
  node.answer_with({{"4F 00 20 01 11 00 00 00", milliseconds(499)}});

  EXPECT_FALSE(upload());

  EXPECT_THAT(data, ElementsAre(held_before, 0x11));
  EXPECT_EQ(time(), milliseconds(499));
}

TEST_F(SdoClientTest, each_answer_has_the_frame_timeout_for_itself) {
  const milliseconds delay(400);
  node.answer_with({{"41 00 20 01 0F 00 00 00", delay},
                    {"00 01 02 03 04 05 06 07", delay},
                    {"10 08 09 0A 0B 0C 0D 0E", delay},
                    {"0D 0F 00 00 00 00 00 00", delay}});

  EXPECT_FALSE(upload());

  EXPECT_EQ(time(), milliseconds(1600));
}

TEST_F(SdoClientTest, whole_transfer_has_its_own_timeout) {
  use_times({milliseconds(500), milliseconds(1000), milliseconds(100), milliseconds(0)});
  const milliseconds delay(400);
  node.answer_with({{confirmed, delay}, {first_taken, delay}, {second_taken, delay}});

  const SdoClient::Failure failure = download(counting_bytes(20));

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(failure->abort_code, 0x05040000U);
  EXPECT_EQ(failure->text, "not done within 1000 ms");
  EXPECT_FALSE(failure->outcome_unknown);
  EXPECT_EQ(time(), milliseconds(1000));
  EXPECT_EQ(node.take_requests(),
            requests_of({"21 00 20 01 14 00 00 00", "00 01 02 03 04 05 06 07",
                         "10 08 09 0A 0B 0C 0D 0E", "80 00 20 01 00 00 04 05"}));
}

TEST_F(SdoClientTest, whole_transfer_has_its_timeout_when_the_first_answer_came_at_once) {
  use_times({milliseconds(500), milliseconds(1000), milliseconds(100), milliseconds(0)});
  const milliseconds delay(400);
  node.answer_with({"41 00 20 01 1C 00 00 00",
                    {"00 01 02 03 04 05 06 07", delay},
                    {"10 08 09 0A 0B 0C 0D 0E", delay},
                    {"00 0F 10 11 12 13 14 15", delay}});

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->text, "not done within 1000 ms");
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(SdoClientTest, one_answer_that_took_all_the_time_of_the_transfer_is_no_answer) {
  use_times({milliseconds(5000), milliseconds(5000), milliseconds(100), milliseconds(0)});
  node.answer_with({"41 00 20 01 1C 00 00 00"});

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->text, "no answer within 5000 ms");
  EXPECT_EQ(time(), milliseconds(5000));
}

TEST_F(SdoClientTest, last_answer_that_was_given_less_than_its_time_is_not_done) {
  use_times({milliseconds(5000), milliseconds(5000), milliseconds(100), milliseconds(0)});
  node.answer_with({{"41 00 20 01 1C 00 00 00", milliseconds(1)}});

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->text, "not done within 5000 ms");
  EXPECT_EQ(time(), milliseconds(5000));
}

TEST_F(SdoClientTest, times_given_are_those_that_are_waited) {
  use_times({milliseconds(70), milliseconds(5000), milliseconds(300), milliseconds(0)});

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->text, "no answer within 70 ms");
  EXPECT_EQ(time(), milliseconds(70));
  node.answer_with({"4F 00 20 01 11 00 00 00"});
  EXPECT_FALSE(upload());
  EXPECT_EQ(time(), milliseconds(370));
}

TEST_F(SdoClientTest, time_of_the_quarantine_that_has_passed_is_not_waited_again) {
  EXPECT_TRUE(upload());  // until 500 ms, quarantine until 1000 ms
  CanFrame none;
  bus.open({{0}})->receive(none, milliseconds(400));
  node.answer_with({"4F 00 20 01 11 00 00 00"});

  EXPECT_FALSE(upload());

  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(SdoClientTest, longest_times_wait_long) {
  const milliseconds time_limit = milliseconds::max();
  use_times({time_limit, time_limit, time_limit, time_limit});

  EXPECT_TRUE(upload());

  EXPECT_GE(time(), std::chrono::hours(24 * 365));
}

TEST_F(SdoClientTest, negative_times_wait_not_at_all) {
  const milliseconds time_limit = milliseconds::min();
  use_times({time_limit, time_limit, time_limit, time_limit});

  EXPECT_TRUE(upload());
  EXPECT_TRUE(download(counting_bytes(5)));

  EXPECT_EQ(time(), milliseconds(0));
}

TEST_F(SdoClientTest, answer_that_comes_in_the_quarantine_is_thrown_away) {
  node.answer_with({{"4F 00 20 01 11 00 00 00", milliseconds(600)}});
  EXPECT_TRUE(upload());
  node.answer_with({"4F 00 20 01 22 00 00 00"});

  EXPECT_FALSE(upload());

  EXPECT_THAT(data, ElementsAre(held_before, 0x22));
  EXPECT_EQ(time(), after_silence);
}

TEST_F(SdoClientTest, every_answer_that_comes_in_the_quarantine_is_thrown_away) {
  node.answer_with({{"4F 00 20 01 11 00 00 00", milliseconds(999), 50}});
  EXPECT_TRUE(upload());
  node.answer_with({"4F 00 20 01 22 00 00 00"});

  EXPECT_FALSE(upload());

  EXPECT_THAT(data, ElementsAre(held_before, 0x22));
}

TEST_F(SdoClientTest, second_copy_of_an_answer_is_not_taken_for_the_next_one) {
  node.answer_with({{"4F 00 20 01 11 00 00 00", milliseconds(0), 2}, "4F 00 20 01 22 00 00 00"});
  EXPECT_FALSE(upload());

  EXPECT_FALSE(upload());

  EXPECT_THAT(data, ElementsAre(held_before, 0x22));
  EXPECT_EQ(time(), milliseconds(0)) << "nothing failed, so nothing is waited for";
}

TEST_F(SdoClientTest, frame_that_nobody_asked_for_is_not_an_answer) {
  node.send(frame_of(0x585, "4F 00 20 01 99 00 00 00"));
  node.answer_with({"4F 00 20 01 22 00 00 00"});

  EXPECT_FALSE(upload());

  EXPECT_THAT(data, ElementsAre(held_before, 0x22));
}

/// A step of a transfer at which the bus fails.
struct BusFaultCase {
  std::string name;
  std::optional<Bytes> download;
  std::vector<ScriptedAnswer> answers;
  /// Requests of the transfer until then, the one at which it fails included.
  int requests;
  bool is_complete;
};

// For GoogleTest's own TEST_P, which prints the tuples that hold such a row.
[[maybe_unused]] void PrintTo(const BusFaultCase& row, std::ostream* out) { *out << row.name; }

const auto bus_fault_cases = testing::Values(
    BusFaultCase{"upload", {}, {}, 1, false},
    BusFaultCase{
        "upload_segment", {}, {"41 00 20 01 0F 00 00 00", "00 01 02 03 04 05 06 07"}, 3, false},
    BusFaultCase{"expedited_download", counting_bytes(4), {}, 1, true},
    BusFaultCase{"segmented_download", counting_bytes(8), {}, 1, false},
    BusFaultCase{"first_download_segment", counting_bytes(8), {confirmed}, 2, false},
    BusFaultCase{"last_download_segment", counting_bytes(8), {confirmed, first_taken}, 3, true});

std::string fault_name(const testing::TestParamInfo<std::tuple<BusFaultCase, CanStatus>>& row) {
  static const char* const names[] = {"ok",      "timed_out", "queue_full",    "down",
                                      "missing", "bus_off",   "error_passive", "failed"};
  return std::get<0>(row.param).name + "_" +
         names[static_cast<std::size_t>(std::get<1>(row.param))];
}

class SdoBusFaultTest : public SdoClientTest,
                        public testing::WithParamInterface<std::tuple<BusFaultCase, CanStatus>> {
 protected:
  const BusFaultCase& row = std::get<0>(GetParam());
  const CanStatus status = std::get<1>(GetParam());

  void expect_bus_fault(const SdoClient::Failure& failure, bool outcome_unknown) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, BusErrorKind::bus_fault);
    EXPECT_EQ(failure->node_id, node_id);
    EXPECT_EQ(failure->index, index);
    EXPECT_EQ(failure->sub_index, sub_index);
    EXPECT_EQ(failure->abort_code, 0U);
    EXPECT_EQ(failure->outcome_unknown, outcome_unknown);
    EXPECT_EQ(failure->text, bystander->explain(status) + (outcome_unknown ? unknown : ""));
  }

  void expect_next_transfer_at(milliseconds expected) {
    node.answer_with({"4F 00 20 01 77 00 00 00"});
    EXPECT_FALSE(upload());
    EXPECT_THAT(data, ElementsAre(held_before, 0x77));
    EXPECT_EQ(time(), expected);
  }
};

class SdoSendFaultTest : public SdoBusFaultTest {};

TEST_P(SdoSendFaultTest, request_that_was_not_sent_changes_nothing) {
  node.answer_with(row.answers);
  channel.fail_send(row.requests, status);

  expect_bus_fault(transfer(row.download), false);

  EXPECT_EQ(node.take_requests().size(), static_cast<std::size_t>(row.requests - 1));
  expect_next_transfer_at(milliseconds(0));
}

INSTANTIATE_TEST_SUITE_P(
    all, SdoSendFaultTest,
    testing::Combine(bus_fault_cases,
                     testing::Values(CanStatus::queue_full, CanStatus::interface_down,
                                     CanStatus::interface_missing, CanStatus::failed)),
    fault_name);

class SdoReceiveFaultTest : public SdoBusFaultTest {};

TEST_P(SdoReceiveFaultTest, ends_the_transfer_and_begins_a_quarantine) {
  node.answer_with(row.answers);
  channel.fail_wait(row.requests, status);

  expect_bus_fault(transfer(row.download), row.is_complete);

  EXPECT_EQ(node.take_requests().size(), static_cast<std::size_t>(row.requests));
  expect_next_transfer_at(milliseconds(500));
}

INSTANTIATE_TEST_SUITE_P(
    all, SdoReceiveFaultTest,
    testing::Combine(bus_fault_cases,
                     testing::Values(CanStatus::bus_off, CanStatus::interface_down,
                                     CanStatus::interface_missing, CanStatus::failed)),
    fault_name);

TEST_F(SdoClientTest, full_queue_is_given_the_send_patience) {
  use_times({milliseconds(500), milliseconds(5000), milliseconds(500), milliseconds(35)});
  bus.set_state(CanStatus::queue_full);

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bus_fault);
  EXPECT_EQ(time(), milliseconds(35));
  EXPECT_THAT(node.take_requests(), IsEmpty());
}

TEST_F(SdoClientTest, request_lost_by_a_controller_that_is_bus_off_is_not_repeated) {
  bus.set_state(
      CanStatus::bus_off);  // told by the drain before the request, on which nothing comes

  const SdoClient::Failure failure = download(counting_bytes(1));

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_TRUE(failure->outcome_unknown) << "whether a frame got through nobody knows";
  EXPECT_THAT(node.take_requests(), IsEmpty());
}

TEST_F(SdoClientTest, state_that_shows_before_the_request_is_only_told) {
  node.answer_with({"4F 00 20 01 11 00 00 00"});
  bus.set_state(CanStatus::interface_down);
  bus.set_state(CanStatus::ok);

  EXPECT_FALSE(upload());

  EXPECT_THAT(statuses, ElementsAre(CanStatus::interface_down));
}

TEST_F(SdoClientTest, state_that_shows_in_the_quarantine_does_not_end_it) {
  node.answer_with({{"4F 00 20 01 11 00 00 00", milliseconds(900)}});
  EXPECT_TRUE(upload());
  bus.set_state(CanStatus::error_passive);
  node.answer_with({"4F 00 20 01 22 00 00 00"});

  EXPECT_FALSE(upload());

  EXPECT_THAT(statuses, ElementsAre(CanStatus::error_passive));
  EXPECT_THAT(data, ElementsAre(held_before, 0x22));
  EXPECT_EQ(time(), after_silence);
}

TEST_F(SdoClientTest, wait_for_the_end_of_a_quarantine_that_ends_early_is_gone_on_with) {
  node.answer_with({"", "60 00 20 01 00 00 00 00"});
  channel.fail_wait(2, CanStatus::timed_out);
  EXPECT_TRUE(upload());

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer) << "in a quarantine it would be passed over";
  EXPECT_EQ(time(), milliseconds(1000));
}

TEST_F(SdoClientTest, error_passive_while_waiting_is_told_and_the_answer_awaited) {
  node.answer_with({"4F 00 20 01 11 00 00 00"});
  channel.fail_wait(1, CanStatus::error_passive);

  EXPECT_FALSE(upload());

  EXPECT_THAT(statuses, ElementsAre(CanStatus::error_passive));
  EXPECT_THAT(data, ElementsAre(held_before, 0x11));
}

TEST_F(SdoClientTest, error_passive_gives_no_more_time) {
  channel.fail_wait(1, CanStatus::error_passive);

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(time(), milliseconds(500));
}

TEST_F(SdoClientTest, abort_that_cannot_be_sent_leaves_the_failure_as_it_is) {
  channel.fail_send(2, CanStatus::queue_full);

  const SdoClient::Failure failure = upload();

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(failure->abort_code, 0x05040000U);
  EXPECT_EQ(node.take_requests(), requests_of({upload_request}));
}

class SdoNodeIdTest : public testing::TestWithParam<int> {};

TEST_P(SdoNodeIdTest, speaks_by_the_cob_ids_of_its_node_alone) {
  const auto id = static_cast<std::uint8_t>(GetParam());
  InProcessBus bus(BusTime::simulated);
  Frames seen;
  const auto observer = bus.open({{0, 0}}, [&](const CanFrame& frame, Frames& answers) {
    seen.push_back(frame);
    if (frame.data[0] == 0x40) {
      // Those of the neighbours and the request's own identifier come first.
      for (const int answer_id : {0x580 + id - 1, 0x580 + id + 1, 0x600 + id, 0x580 + id}) {
        const char* const text =
            answer_id == 0x580 + id ? "4F 00 20 01 22 00 00 00" : "4F 00 20 01 11 00 00 00";
        answers.push_back(frame_of(static_cast<std::uint16_t>(answer_id), text));
      }
    }
  });
  SdoClient client(bus, id, {}, {});
  Bytes data;

  EXPECT_FALSE(client.upload(index, sub_index, data));

  EXPECT_EQ(data, Bytes{0x22});
  EXPECT_THAT(seen, ElementsAre(frame_of(static_cast<std::uint16_t>(0x600 + id), upload_request)));
}

INSTANTIATE_TEST_SUITE_P(all, SdoNodeIdTest, testing::Values(1, 5, 64, 127),
                         testing::PrintToStringParamName());

TEST_F(SdoClientTest, all_bits_of_the_multiplexer_are_sent) {
  node.answer_with({"4F FE CA FF 11 00 00 00"});

  EXPECT_FALSE(client->upload(0xCAFE, 255, data));

  EXPECT_EQ(node.take_requests(), requests_of({"40 FE CA FF 00 00 00 00"}));
}

/// A node that answers each request for a segment that leaves `unused` of 7 bytes out, and never
/// with the last.
struct EndlessNode {
  EndlessNode(InProcessBus& bus, std::uint8_t unused)
      : endpoint(bus.open(
            {{0x605, 0x7FF}}, [unused](const CanFrame& request, std::vector<CanFrame>& answers) {
              CanFrame answer{0x585, 8, {}};
              if (request.data[0] == 0x40) {
                answer.data = {0x40, request.data[1], request.data[2]};
              } else {
                answer.data[0] =
                    static_cast<std::uint8_t>((request.data[0] & 0x10U) | (unsigned{unused} << 1U));
              }
              answers.push_back(answer);
            })) {}

  std::unique_ptr<CanEndpoint> endpoint;
};

TEST(SdoClientOnEndlessUpload, gives_up_at_its_limit) {
  InProcessBus bus(BusTime::simulated);
  const EndlessNode node(bus, 0);
  SdoClient client(bus, 5, {}, {});
  std::vector<std::uint8_t> data;

  const SdoClient::Failure failure = client.upload(0x1000, 0, data);

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::bad_answer);
  EXPECT_EQ(failure->abort_code, 0x05040005U);
  EXPECT_EQ(failure->text, "sent more than 16777216 bytes");
}

TEST(SdoClientOnEndlessUpload, gives_up_on_segments_of_nothing) {
  InProcessBus bus(BusTime::simulated);
  const EndlessNode node(bus, 7);
  SdoClient client(bus, 5, {}, {});
  std::vector<std::uint8_t> data;

  const SdoClient::Failure failure = client.upload(0x1000, 0, data);

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->abort_code, 0x06070010U);
  EXPECT_EQ(failure->text, "sent a segment of no bytes");
}

TEST(SdoClientOnEndlessUpload, gives_up_when_the_time_of_the_transfer_is_over) {
  InProcessBus bus(BusTime::real);
  const EndlessNode node(bus, 0);
  SdoTimes times;
  times.transfer_timeout = std::chrono::milliseconds(1);
  SdoClient client(bus, 5, times, {});
  std::vector<std::uint8_t> data;

  const SdoClient::Failure failure = client.upload(0x1000, 0, data);

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
  EXPECT_EQ(failure->text, "not done within 1 ms");
}

/// Counts how often somebody asks for the time.
class ClockChannel : public CanChannel {
 public:
  explicit ClockChannel(CanChannel& channel) : channel_(&channel) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return std::make_unique<Endpoint>(channel_->open(filters), readings);
  }

  int readings = 0;

 private:
  class Endpoint : public PassingEndpoint {
   public:
    Endpoint(std::unique_ptr<CanEndpoint> endpoint, int& readings)
        : PassingEndpoint(std::move(endpoint)), readings_(&readings) {}

    std::chrono::steady_clock::time_point now() const override {
      ++*readings_;
      return PassingEndpoint::now();
    }

   private:
    int* const readings_;
  };

  CanChannel* const channel_;
};

/// How often one upload asks for the time.
int clock_readings(std::vector<ScriptedAnswer> answers) {
  InProcessBus bus(BusTime::simulated);
  ClockChannel channel(bus);
  ScriptedNode node(bus);
  node.answer_with(std::move(answers));
  SdoClient client(channel, node_id, {}, {});
  Bytes data;
  EXPECT_FALSE(client.upload(index, sub_index, data));
  return channel.readings;
}

TEST(SdoClientClock, is_read_for_an_answer_that_is_waited_for_alone) {
  EXPECT_EQ(clock_readings({"43 00 20 01 11 22 33 44"}), 0);
  EXPECT_EQ(clock_readings({{"43 00 20 01 11 22 33 44", milliseconds(1)}}), 1);
}

TEST(SdoClientClock, is_read_for_each_segment) {
  EXPECT_EQ(clock_readings(
                {"41 00 20 01 08 00 00 00", "00 01 02 03 04 05 06 07", "1D 08 00 00 00 00 00 00"}),
            2);
}

TEST(SdoClientOnDeadBus, tells_bus_off_however_often_it_is_tried) {
  InProcessBus bus(BusTime::simulated, "can0");
  SdoClient client(bus, 5, {}, {});
  bus.set_state(CanStatus::bus_off);
  std::vector<std::uint8_t> data;
  for (int attempt = 0; attempt < 3; ++attempt) {
    const SdoClient::Failure failure = client.upload(0x1000, 0, data);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, BusErrorKind::bus_fault);
    EXPECT_EQ(failure->text,
              "can0 is bus-off after too many errors: check wiring, termination and bit rate, then "
              "ip link set can0 type can restart");
  }
}

TEST(SdoClientWithoutObserver, goes_through_a_bad_bus) {
  InProcessBus bus(BusTime::simulated);
  bus.set_state(CanStatus::error_passive);
  SdoClient client(bus, 5, {}, {});
  std::vector<std::uint8_t> data;

  const SdoClient::Failure failure = client.upload(0x1000, 0, data);

  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->kind, BusErrorKind::no_answer);
}

}  // namespace
}  // namespace velmora_can_bridge
