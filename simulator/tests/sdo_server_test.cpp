#include "velmora_can_bridge/simulator/sdo_server.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "hand_made_frames.hpp"
#include "support/allocations.hpp"
#include "support/chosen_seed.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t node_id = 0x05;
constexpr std::uint16_t request_id = 0x605;
constexpr std::uint16_t answer_id = 0x585;
constexpr ObjectAddress place{0x2001, 0x42};
constexpr ObjectAddress nowhere{0, 0};

CanFrame request(unsigned command, ObjectAddress at = nowhere, std::uint32_t number = 0) {
  return sdo_frame(request_id, command, at, number);
}

CanFrame answer(unsigned command, ObjectAddress at = nowhere, std::uint32_t number = 0) {
  return sdo_frame(answer_id, command, at, number);
}

CanFrame refusal(ObjectAddress at, SdoAbort abort) { return abort_frame(answer_id, at, abort); }

/// A server of one object, which notes what is written to it.
class ServedObject {
 public:
  std::optional<CanFrame> send(const CanFrame& frame) { return server.answer(frame); }

  /// Sends the frames and returns the last answer.
  std::optional<CanFrame> send_all(const std::vector<CanFrame>& frames) {
    std::optional<CanFrame> last;
    for (const CanFrame& frame : frames) {
      last = send(frame);
    }
    return last;
  }

  UploadResult uploaded = Bytes{};
  /// Bytes that uploads found in their output.
  std::size_t left_over = 0;
  /// By the number of bytes; a length that is not in here is taken.
  std::map<std::size_t, SdoAbort> refused;
  std::vector<Bytes> written;
  std::vector<std::size_t> offered;
  std::vector<ObjectAddress> asked;

  SdoServer server{node_id,
                   [this](std::uint16_t index, std::uint8_t sub_index, Bytes& data) {
                     asked.push_back({index, sub_index});
                     return give(data);
                   },
                   [this](std::uint16_t index, std::uint8_t sub_index, const Bytes& data) {
                     asked.push_back({index, sub_index});
                     return take(data);
                   }};

 private:
  std::optional<SdoAbort> give(Bytes& data) {
    left_over += data.size();
    if (!uploaded) {
      return uploaded.error();
    }
    data = *uploaded;
    return std::nullopt;
  }

  std::optional<SdoAbort> take(const Bytes& data) {
    offered.push_back(data.size());
    const auto found = refused.find(data.size());
    if (found != refused.end()) {
      return found->second;
    }
    written.push_back(data);
    return std::nullopt;
  }
};

class SdoServerTest : public testing::Test {
 protected:
  ServedObject object;
};

// Uploads

TEST_F(SdoServerTest, upload_asks_for_the_object_of_the_multiplexer) {
  object.uploaded = Bytes{0xAA};

  object.send(request(0x40, {0x1234, 0x56}));

  ASSERT_EQ(object.asked.size(), 1U);
  EXPECT_EQ(object.asked.front().index, 0x1234);
  EXPECT_EQ(object.asked.front().sub_index, 0x56);
}

TEST_F(SdoServerTest, uploads_of_1_to_4_bytes_are_expedited) {
  const std::vector<std::pair<Bytes, CanFrame>> rows = {
      {{0x11}, answer(0x4F, place, 0x11)},
      {{0x11, 0x22}, answer(0x4B, place, 0x2211)},
      {{0x11, 0x22, 0x33}, answer(0x47, place, 0x332211)},
      {{0x11, 0x22, 0x33, 0x44}, answer(0x43, place, 0x44332211)},
  };
  for (const auto& [bytes, expected] : rows) {
    object.uploaded = bytes;
    EXPECT_EQ(object.send(request(0x40, place)), expected);
    EXPECT_EQ(object.send(request(0x60)), refusal(nowhere, SdoAbort::unknown_command))
        << "no segments follow";
  }
}

TEST_F(SdoServerTest, upload_in_segments_as_it_stands_on_the_bus) {
  object.uploaded = counting_bytes(16);

  EXPECT_EQ(object.send(request(0x40, place)), answer(0x41, place, 16));
  EXPECT_EQ(object.send(request(0x60)), segment(answer_id, 0x00, {1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(object.send(request(0x70)), segment(answer_id, 0x10, {8, 9, 10, 11, 12, 13, 14}));
  EXPECT_EQ(object.send(request(0x60)), segment(answer_id, 0x0B, {15, 16}));
  EXPECT_EQ(object.send(request(0x70)), refusal(nowhere, SdoAbort::unknown_command));
}

TEST_F(SdoServerTest, upload_of_no_bytes_is_one_empty_segment) {
  EXPECT_EQ(object.send(request(0x40, place)), answer(0x41, place, 0));
  EXPECT_EQ(object.send(request(0x60)), segment(answer_id, 0x0F));
  EXPECT_EQ(object.send(request(0x70)), refusal(nowhere, SdoAbort::unknown_command));
}

TEST_F(SdoServerTest, whole_last_segment_is_marked) {
  object.uploaded = counting_bytes(7);

  EXPECT_EQ(object.send(request(0x40, place)), answer(0x41, place, 7));
  EXPECT_EQ(object.send(request(0x60)), segment(answer_id, 0x01, {1, 2, 3, 4, 5, 6, 7}));
}

/// Collects the segments of an upload whose begin has been answered.
Bytes upload_segments(ServedObject& object) {
  Bytes bytes;
  for (bool toggle = false;; toggle = !toggle) {
    const CanFrame sent = object.send(request(toggle ? 0x70 : 0x60)).value();
    const unsigned command = sent.data[0];
    EXPECT_EQ(command & 0xF0U, toggle ? 0x10U : 0U);
    const auto* const begin = sent.data.data() + 1;
    bytes.insert(bytes.end(), begin, begin + (7 - (command >> 1U & 0x07U)));
    if ((command & 0xE1U) != 0) {
      return bytes;
    }
  }
}

TEST_F(SdoServerTest, uploads_of_every_length_arrive) {
  for (std::size_t length = 5; length <= 300; ++length) {
    object.uploaded = counting_bytes(length, static_cast<std::uint8_t>(length));

    ASSERT_EQ(object.send(request(0x40, place)),
              answer(0x41, place, static_cast<std::uint32_t>(length)));
    ASSERT_EQ(upload_segments(object), *object.uploaded) << length;
  }
}

TEST_F(SdoServerTest, refused_upload_is_aborted) {
  object.uploaded = Unexpected{SdoAbort::no_such_sub_index};

  EXPECT_EQ(object.send(request(0x40, place)), refusal(place, SdoAbort::no_such_sub_index));
}

// Downloads

TEST_F(SdoServerTest, sized_expedited_downloads_write_their_bytes) {
  const std::vector<std::pair<unsigned, Bytes>> rows = {{0x2F, {0x11}},
                                                        {0x2B, {0x11, 0x22}},
                                                        {0x27, {0x11, 0x22, 0x33}},
                                                        {0x23, {0x11, 0x22, 0x33, 0x44}}};
  for (const auto& [command, expected] : rows) {
    EXPECT_EQ(object.send(request(command, place, 0x44332211)), answer(0x60, place));
    EXPECT_EQ(object.written.back(), expected);
    EXPECT_EQ(object.asked.back().index, place.index);
    EXPECT_EQ(object.asked.back().sub_index, place.sub_index);
  }
  EXPECT_EQ(object.written.size(), rows.size());
}

struct UnsizedCase {
  std::string name;
  std::map<std::size_t, SdoAbort> refused;
  std::vector<std::size_t> offered;
  CanFrame answered;
};

void PrintTo(const UnsizedCase& row, std::ostream* out) { *out << row.name; }

class UnsizedExpeditedTest : public testing::TestWithParam<UnsizedCase> {};

TEST_P(UnsizedExpeditedTest, brings_as_much_as_the_object_takes) {
  for (const unsigned command : {0x22U, 0x26U, 0x2EU}) {  // bits 2 and 3 mean nothing here
    ServedObject object;
    object.refused = GetParam().refused;

    EXPECT_EQ(object.send(request(command, place, 0x44332211)), GetParam().answered);
    EXPECT_EQ(object.offered, GetParam().offered);
    if (!object.written.empty()) {
      const Bytes all = {0x11, 0x22, 0x33, 0x44};
      EXPECT_TRUE(std::equal(object.written[0].begin(), object.written[0].end(), all.begin()));
    }
  }
}

constexpr auto too_long = SdoAbort::value_too_long;

INSTANTIATE_TEST_SUITE_P(
    all, UnsizedExpeditedTest,
    testing::Values(UnsizedCase{"four_bytes", {}, {4}, answer(0x60, place)},
                    UnsizedCase{"three_bytes", {{4, too_long}}, {4, 3}, answer(0x60, place)},
                    UnsizedCase{"one_byte",
                                {{4, too_long}, {3, too_long}, {2, too_long}},
                                {4, 3, 2, 1},
                                answer(0x60, place)},
                    UnsizedCase{"none",
                                {{4, too_long}, {3, too_long}, {2, too_long}, {1, too_long}},
                                {4, 3, 2, 1},
                                refusal(place, too_long)},
                    UnsizedCase{"more_than_four",
                                {{4, SdoAbort::value_too_short}},
                                {4},
                                refusal(place, SdoAbort::value_too_short)},
                    UnsizedCase{"refused_for_another_reason",
                                {{4, too_long}, {3, SdoAbort::invalid_value}},
                                {4, 3},
                                refusal(place, SdoAbort::invalid_value)}),
    [](const testing::TestParamInfo<UnsizedCase>& row) { return row.param.name; });

TEST_F(SdoServerTest, sized_download_is_offered_once) {
  object.refused = {{2, too_long}};

  EXPECT_EQ(object.send(request(0x2B, place)), refusal(place, too_long));
  EXPECT_EQ(object.offered, (std::vector<std::size_t>{2}));
}

TEST_F(SdoServerTest, download_in_segments_as_it_stands_on_the_bus) {
  EXPECT_EQ(object.send(request(0x21, place, 16)), answer(0x60, place));
  EXPECT_EQ(object.send(segment(request_id, 0x00, {1, 2, 3, 4, 5, 6, 7})), answer(0x20));
  EXPECT_EQ(object.send(segment(request_id, 0x10, {8, 9, 10, 11, 12, 13, 14})), answer(0x30));
  EXPECT_TRUE(object.offered.empty()) << "written before it is complete";
  EXPECT_EQ(object.send(segment(request_id, 0x0B, {15, 16})), answer(0x20));

  EXPECT_THAT(object.written, testing::ElementsAre(counting_bytes(16)));
  EXPECT_EQ(object.send(segment(request_id, 0x11)), refusal(nowhere, SdoAbort::unknown_command));
}

TEST_F(SdoServerTest, downloads_of_every_length_arrive) {
  for (const bool is_sized : {true, false}) {
    for (std::size_t length = 0; length <= 300; ++length) {
      const Bytes bytes = counting_bytes(length, static_cast<std::uint8_t>(length));
      object.written.clear();

      ASSERT_EQ(object.send(request(is_sized ? 0x21 : 0x20, place,
                                    is_sized ? static_cast<std::uint32_t>(length) : 0xFFFFFFFF)),
                answer(0x60, place));
      for (const CanFrame& each : download_segments(request_id, bytes)) {
        ASSERT_EQ(object.send(each), answer(0x20U | (each.data[0] & 0x10U)));
      }
      ASSERT_THAT(object.written, testing::ElementsAre(bytes)) << length;
    }
  }
}

TEST_F(SdoServerTest, segments_need_not_be_full) {
  object.send(request(0x21, place, 4));

  EXPECT_EQ(object.send(segment(request_id, 0x0C, {1})), answer(0x20));
  EXPECT_EQ(object.send(segment(request_id, 0x1E)), answer(0x30));
  EXPECT_EQ(object.send(segment(request_id, 0x09, {2, 3, 4})), answer(0x20));

  EXPECT_THAT(object.written, testing::ElementsAre(Bytes{1, 2, 3, 4}));
}

TEST_F(SdoServerTest, refused_download_is_aborted_at_its_end) {
  object.refused = {{5, SdoAbort::value_too_high}};
  object.send(request(0x20, place));

  EXPECT_EQ(object.send(segment(request_id, 0x05, counting_bytes(5))),
            refusal(place, SdoAbort::value_too_high));
  EXPECT_EQ(object.send(segment(request_id, 0x11)), refusal(nowhere, SdoAbort::unknown_command));
}

struct SizeCase {
  std::string name;
  std::uint32_t indicated;
  std::size_t sent;
};

void PrintTo(const SizeCase& row, std::ostream* out) { *out << row.name; }

class WrongSizeTest : public testing::TestWithParam<SizeCase> {};

TEST_P(WrongSizeTest, is_aborted_without_a_write) {
  ServedObject object;
  object.send(request(0x21, place, GetParam().indicated));

  const auto last = object.send_all(download_segments(request_id, counting_bytes(GetParam().sent)));

  EXPECT_EQ(last, refusal(place, SdoAbort::wrong_length));
  EXPECT_TRUE(object.offered.empty());
  EXPECT_EQ(object.send(request(0x00)), refusal(nowhere, SdoAbort::unknown_command));
}

INSTANTIATE_TEST_SUITE_P(
    all, WrongSizeTest,
    testing::Values(SizeCase{"nothing_promised", 0, 1}, SizeCase{"nothing_brought", 1, 0},
                    SizeCase{"one_byte_more", 8, 9}, SizeCase{"one_byte_less", 8, 7},
                    SizeCase{"one_byte_less_in_two_segments", 10, 9},
                    SizeCase{"one_segment_more", 7, 8},
                    SizeCase{"the_largest_size", SdoServer::download_limit, 7}),
    [](const testing::TestParamInfo<SizeCase>& row) { return row.param.name; });

TEST_F(SdoServerTest, too_many_bytes_are_aborted_before_the_last_segment) {
  object.send(request(0x21, place, 6));

  EXPECT_EQ(object.send(segment(request_id, 0x00, counting_bytes(7))),
            refusal(place, SdoAbort::wrong_length));
}

TEST_F(SdoServerTest, absurd_sizes_are_refused_without_memory) {
  object.send(request(0x2F, place));
  for (const std::uint32_t size : {0xFFFFFFFFU, 0x80000000U, 0x00100001U}) {
    const std::size_t before = allocations();
    const auto answered = object.send(request(0x21, place, size));
    const std::size_t taken = allocations() - before;

    EXPECT_EQ(answered, refusal(place, SdoAbort::out_of_memory));
    EXPECT_EQ(taken, 0U);
    EXPECT_EQ(object.send(request(0x00)), refusal(nowhere, SdoAbort::unknown_command));
  }
}

TEST_F(SdoServerTest, indicated_size_takes_no_memory_in_advance) {
  const std::size_t before = allocations();
  const auto answered = object.send(request(0x21, place, SdoServer::download_limit));
  const std::size_t taken = allocations() - before;

  EXPECT_EQ(answered, answer(0x60, place));
  EXPECT_EQ(taken, 0U);
}

TEST_F(SdoServerTest, download_without_size_ends_at_the_limit) {
  const Bytes most(SdoServer::download_limit, 0xAA);
  object.send(request(0x20, place));
  object.send_all(download_segments(request_id, most));
  EXPECT_THAT(object.offered, testing::ElementsAre(SdoServer::download_limit));

  object.send(request(0x20, place));
  std::vector<CanFrame> segments = download_segments(request_id, Bytes(most.size() + 1, 0xAA));
  EXPECT_EQ(object.send_all(segments), refusal(place, SdoAbort::out_of_memory));
  EXPECT_EQ(object.offered.size(), 1U);
}

// Every command in every state

enum class ServerState : std::uint8_t {
  idle,
  uploading,
  uploading_toggled,
  downloading,
  downloading_toggled
};

struct WrongCommandCase {
  ServerState state;
  unsigned first;
  unsigned last;
  std::optional<CanFrame> expected;
  std::string name;
};

void PrintTo(const WrongCommandCase& row, std::ostream* out) { *out << row.name; }

class EveryCommandTest : public testing::TestWithParam<WrongCommandCase> {
 protected:
  /// Brings a fresh object, 40 bytes long when read, into the state of the row.
  static void enter(ServedObject& object, ServerState state) {
    object.uploaded = counting_bytes(40);
    const bool uploads = state == ServerState::uploading || state == ServerState::uploading_toggled;
    const bool is_toggled =
        state == ServerState::uploading_toggled || state == ServerState::downloading_toggled;
    if (state != ServerState::idle) {
      object.send(request(uploads ? 0x40 : 0x20, place));
    }
    if (is_toggled) {
      object.send(segment(request_id, uploads ? 0x60 : 0x00));
    }
    object.uploaded = Bytes{0x0A, 0x0B};
  }
};

TEST_P(EveryCommandTest, is_answered_by_the_table) {
  const WrongCommandCase& row = GetParam();
  for (unsigned command = row.first; command <= row.last; ++command) {
    ServedObject object;
    enter(object, row.state);

    const std::optional<CanFrame> answered = object.send(request(command, {0x2002, 3}, 2));

    EXPECT_EQ(answered, row.expected) << std::hex << "command 0x" << command;
  }
}

const CanFrame no_transfer = refusal(nowhere, SdoAbort::unknown_command);
const CanFrame not_this_transfer = refusal(place, SdoAbort::unknown_command);
const CanFrame out_of_turn = refusal(place, SdoAbort::toggle_not_alternated);
constexpr ObjectAddress other{0x2002, 3};
const CanFrame other_unknown = refusal(other, SdoAbort::unknown_command);
const CanFrame other_written = answer(0x60, other);
const CanFrame other_read = answer(0x4B, other, 0x0B0A);

/// The commands that are answered alike in every state.
std::vector<WrongCommandCase> stateless_commands() {
  std::vector<WrongCommandCase> rows;
  const std::map<ServerState, std::string> states = {
      {ServerState::idle, "idle"},
      {ServerState::uploading, "uploading"},
      {ServerState::uploading_toggled, "uploading_toggled"},
      {ServerState::downloading, "downloading"},
      {ServerState::downloading_toggled, "downloading_toggled"}};
  for (const auto& [state, name] : states) {
    const CanFrame unknown = state == ServerState::idle ? other_unknown : not_this_transfer;
    rows.push_back({state, 0x20, 0x3F, other_written, name + "_initiate_download"});
    rows.push_back({state, 0x40, 0x5F, other_read, name + "_initiate_upload"});
    rows.push_back({state, 0x80, 0x9F, std::nullopt, name + "_abort"});
    rows.push_back({state, 0xA0, 0xBF, unknown, name + "_block_upload"});
    rows.push_back({state, 0xC0, 0xDF, unknown, name + "_block_download"});
    rows.push_back({state, 0xE0, 0xFF, unknown, name + "_no_command"});
  }
  return rows;
}

std::string name_of(const testing::TestParamInfo<WrongCommandCase>& row) { return row.param.name; }

INSTANTIATE_TEST_SUITE_P(any_state, EveryCommandTest, testing::ValuesIn(stateless_commands()),
                         name_of);

std::vector<WrongCommandCase> segment_commands() {
  return {
      {ServerState::idle, 0x00, 0x1F, no_transfer, "idle_download_segment"},
      {ServerState::idle, 0x60, 0x7F, no_transfer, "idle_upload_segment"},
      {ServerState::uploading, 0x00, 0x1F, not_this_transfer, "uploading_download_segment"},
      {ServerState::uploading, 0x60, 0x6F, segment(answer_id, 0x00, counting_bytes(7)),
       "uploading_upload_segment"},
      {ServerState::uploading, 0x70, 0x7F, out_of_turn, "uploading_out_of_turn"},
      {ServerState::uploading_toggled, 0x00, 0x1F, not_this_transfer,
       "uploading_toggled_download_segment"},
      {ServerState::uploading_toggled, 0x60, 0x6F, out_of_turn, "uploading_toggled_out_of_turn"},
      {ServerState::uploading_toggled, 0x70, 0x7F, segment(answer_id, 0x10, counting_bytes(7, 8)),
       "uploading_toggled_upload_segment"},
      {ServerState::downloading, 0x00, 0x0F, answer(0x20), "downloading_download_segment"},
      {ServerState::downloading, 0x10, 0x1F, out_of_turn, "downloading_out_of_turn"},
      {ServerState::downloading, 0x60, 0x7F, not_this_transfer, "downloading_upload_segment"},
      {ServerState::downloading_toggled, 0x00, 0x0F, out_of_turn,
       "downloading_toggled_out_of_turn"},
      {ServerState::downloading_toggled, 0x10, 0x1F, answer(0x30),
       "downloading_toggled_download_segment"},
      {ServerState::downloading_toggled, 0x60, 0x7F, not_this_transfer,
       "downloading_toggled_upload_segment"}};
}

INSTANTIATE_TEST_SUITE_P(segments, EveryCommandTest, testing::ValuesIn(segment_commands()),
                         name_of);

TEST(CommandTableTest, has_every_command_in_every_state_once) {
  std::map<std::pair<ServerState, unsigned>, int> rows;
  for (const std::vector<WrongCommandCase>& part : {stateless_commands(), segment_commands()}) {
    for (const WrongCommandCase& row : part) {
      for (unsigned command = row.first; command <= row.last; ++command) {
        ++rows[{row.state, command}];
      }
    }
  }
  EXPECT_EQ(rows.size(), 5U * 256U);
  EXPECT_TRUE(
      std::all_of(rows.begin(), rows.end(), [](const auto& row) { return row.second == 1; }));
}

// What ends a transfer

struct EndCase {
  std::string name;
  CanFrame frame;
};

void PrintTo(const EndCase& row, std::ostream* out) { *out << row.name; }

class TransferEndTest : public testing::TestWithParam<EndCase> {};

TEST_P(TransferEndTest, leaves_no_upload) {
  ServedObject object;
  object.uploaded = counting_bytes(40);
  object.send(request(0x40, place));
  object.uploaded = Bytes{1};

  object.send(GetParam().frame);

  EXPECT_EQ(object.send(request(0x60)), no_transfer);
}

TEST_P(TransferEndTest, leaves_no_download) {
  ServedObject object;
  object.send(request(0x20, place));
  object.uploaded = Bytes{1};

  object.send(GetParam().frame);

  EXPECT_EQ(object.send(request(0x01)), no_transfer);
}

INSTANTIATE_TEST_SUITE_P(all, TransferEndTest,
                         testing::Values(EndCase{"client_abort", request(0x80, place)},
                                         EndCase{"unknown_command", request(0xE0)},
                                         EndCase{"block_upload", request(0xA0, place)},
                                         EndCase{"toggled_upload_segment", request(0x70)},
                                         EndCase{"toggled_download_segment", request(0x10)},
                                         EndCase{"expedited_upload", request(0x40, other)},
                                         EndCase{"expedited_download", request(0x2F, other)}),
                         [](const testing::TestParamInfo<EndCase>& row) { return row.param.name; });

TEST_F(SdoServerTest, refused_upload_ends_the_transfer_before) {
  object.uploaded = counting_bytes(40);
  object.send(request(0x40, place));
  object.uploaded = Unexpected{SdoAbort::no_such_object};
  object.send(request(0x40, other));

  EXPECT_EQ(object.send(request(0x60)), no_transfer);
}

TEST_F(SdoServerTest, reset_ends_the_transfer) {
  object.send(request(0x20, place));

  object.server.reset();

  EXPECT_EQ(object.send(request(0x01)), no_transfer);
}

TEST_F(SdoServerTest, new_download_replaces_the_one_under_way) {
  object.send(request(0x21, place, 40));
  object.send(segment(request_id, 0x00, counting_bytes(7, 100)));

  EXPECT_EQ(object.send(request(0x21, other, 2)), answer(0x60, other));
  EXPECT_EQ(object.send(segment(request_id, 0x0B, {1, 2})), answer(0x20));

  EXPECT_THAT(object.written, testing::ElementsAre(Bytes{1, 2}));
  EXPECT_EQ(object.asked.back().index, other.index);
}

// Frames that are no requests

TEST_F(SdoServerTest, aborts_of_other_lengths_are_ignored) {
  object.send(request(0x20, place));
  for (unsigned length = 0; length <= 255; ++length) {
    if (length == 8) {
      continue;
    }
    CanFrame frame = request(0x80, place);
    frame.length = static_cast<std::uint8_t>(length);
    EXPECT_EQ(object.send(frame), std::nullopt) << length;
  }
  EXPECT_EQ(object.send(segment(request_id, 0x0D, {1})), answer(0x20)) << "the transfer goes on";
}

TEST_F(SdoServerTest, frames_longer_than_8_bytes_are_ignored) {
  for (const unsigned command : {0x00U, 0x20U, 0x22U, 0x40U, 0x60U, 0xE0U}) {
    CanFrame frame = request(command, place);
    frame.length = 9;
    EXPECT_EQ(object.send(frame), std::nullopt) << command;
  }
}

/// A request of fewer than 8 bytes, as some clients send them.
struct ShortRequestCase {
  std::string name;
  unsigned command;
  /// The fewest bytes that hold it, and bytes after the multiplexer.
  std::uint8_t length;
  std::uint32_t number;
  /// Written by it.
  std::vector<Bytes> written;
  unsigned answer;
};

void PrintTo(const ShortRequestCase& row, std::ostream* out) { *out << row.name; }

class ShortRequestTest : public SdoServerTest,
                         public testing::WithParamInterface<ShortRequestCase> {
 protected:
  CanFrame cut(std::uint8_t length) const {
    CanFrame frame = request(row.command, place, row.number);
    frame.length = length;
    std::fill(frame.data.begin() + length, frame.data.end(), std::uint8_t{0});
    return frame;
  }

  const ShortRequestCase& row = GetParam();
};

TEST_P(ShortRequestTest, is_taken_when_it_holds_all_that_it_tells) {
  object.uploaded = Bytes{0xAA};
  const std::optional<CanFrame> sent = object.send(cut(row.length));
  ASSERT_TRUE(sent);
  EXPECT_EQ(sent->data[0], row.answer);
  EXPECT_EQ(sent->length, 8) << "answers have 8 all the same";
  EXPECT_EQ(object.written, row.written);
}

TEST_P(ShortRequestTest, is_ignored_with_a_byte_less) {
  EXPECT_EQ(object.send(cut(static_cast<std::uint8_t>(row.length - 1))), std::nullopt);
  EXPECT_THAT(object.asked, testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    all, ShortRequestTest,
    testing::Values(ShortRequestCase{"upload", 0x40, 4, 0, {}, 0x4F},
                    ShortRequestCase{"expedited_1", 0x2F, 5, 0x11, {{0x11}}, 0x60},
                    ShortRequestCase{"expedited_3", 0x27, 7, 0x332211, {{0x11, 0x22, 0x33}}, 0x60},
                    ShortRequestCase{"begin_of_segments_without_size", 0x20, 4, 0, {}, 0x60},
                    ShortRequestCase{"begin_of_segments_with_size", 0x21, 8, 7, {}, 0x60}),
    [](const auto& param) { return param.param.name; });

TEST_F(SdoServerTest, short_expedited_download_without_size_brings_the_bytes_that_came) {
  CanFrame frame = request(0x22, place, 0x2211);
  frame.length = 6;
  EXPECT_EQ(object.send(frame), answer(0x60, place));
  EXPECT_THAT(object.written, testing::ElementsAre(Bytes{0x11, 0x22}));
}

TEST_F(SdoServerTest, short_segments_are_taken) {
  object.send(request(0x21, place, 3));
  CanFrame frame = segment(request_id, 0x09, {1, 2, 3});
  frame.length = 3;
  EXPECT_EQ(object.send(frame), std::nullopt) << "a byte less than it tells";
  frame.length = 4;
  EXPECT_EQ(object.send(frame), answer(0x20));
  EXPECT_THAT(object.written, testing::ElementsAre(Bytes{1, 2, 3}));
}

TEST_F(SdoServerTest, short_requests_for_segments_are_answered) {
  object.uploaded = counting_bytes(5);
  object.send(request(0x40, place));
  CanFrame frame = segment(request_id, 0x60, {});
  frame.length = 1;
  EXPECT_EQ(object.send(frame), segment(answer_id, 0x05, counting_bytes(5)));
}

TEST_F(SdoServerTest, any_frames_get_a_sound_answer) {
  const std::uint32_t seed = chosen_seed();
  SCOPED_TRACE("repeat with: --gtest_filter=SdoServerTest.any* --gtest_random_seed=" +
               std::to_string(seed));
  std::mt19937 random(seed);
  std::size_t answered = 0;
  for (int round = 0; round < 20000; ++round) {
    object.uploaded = counting_bytes(random() % 30);
    CanFrame frame{request_id, 8, {}};
    for (std::uint8_t& byte : frame.data) {
      byte = static_cast<std::uint8_t>(random() & 0xFFU);
    }
    frame.data[0] = static_cast<std::uint8_t>(frame.data[0] & (random() % 2 == 0 ? 0xFFU : 0x7FU));

    const std::optional<CanFrame> sent = object.send(frame);

    const bool is_abort = frame.data[0] >> 5U == 4;
    ASSERT_EQ(sent.has_value(), !is_abort);
    if (sent) {
      ++answered;
      ASSERT_EQ(sent->id, answer_id);
      ASSERT_EQ(sent->length, 8);
    }
  }
  EXPECT_GT(answered, 1000U);
  EXPECT_GT(object.written.size(), 100U);
}

// What it costs

TEST_F(SdoServerTest, each_upload_begins_with_no_bytes) {
  object.uploaded = Bytes{1, 2, 3, 4};
  object.send(request(0x40, place));
  object.uploaded = Unexpected{SdoAbort::no_such_object};
  object.send(request(0x40, place));
  object.send(request(0x23, place, 1));
  object.uploaded = Bytes{5};
  EXPECT_EQ(object.send(request(0x40, place)), answer(0x4F, place, 5));
  EXPECT_EQ(object.left_over, 0U);
}

TEST(SdoServerCostTest, repeated_expedited_transfer_takes_nothing_from_the_heap) {
  SdoServer server(
      node_id,
      [](std::uint16_t, std::uint8_t, Bytes& data) {
        data.insert(data.end(), {1, 2, 3, 4});
        return std::optional<SdoAbort>();
      },
      [](std::uint16_t, std::uint8_t, const Bytes&) { return std::optional<SdoAbort>(); });
  server.answer(request(0x40, place));
  const std::size_t before = allocations();
  const auto read = server.answer(request(0x40, place));
  const auto wrote = server.answer(request(0x23, place, 1));
  const std::size_t taken = allocations() - before;

  EXPECT_EQ(read, answer(0x43, place, 0x04030201));
  EXPECT_EQ(wrote, answer(0x60, place));
  EXPECT_EQ(taken, 0U);
}

}  // namespace
}  // namespace velmora_can_bridge
