#include "velmora_can_bridge/simulator/simulated_node.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Frame = std::array<std::uint8_t, 8>;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Frame counting = {1, 2, 3, 4, 5, 6, 7, 8};

/// A claw with RPDO 1 (controlword, mode) and RPDO 2 (nibble, 12 bits, dummy byte, read-only).
BoardConfig io_board() {
  return {{{1, "RPDO", 0, {{0x6040, 0, 16, "controlword"}, {0x6060, 0, 8, "mode"}}},
           {2,
            "RPDO",
            0,
            {{0x2000, 1, 4, "low"},
             {0x2000, 2, 12, "wide"},
             {0x0005, 0, 8, ""},
             {0x6041, 0, 16, "statusword"}}},
           {3, "TPDO", 0, {{0x2001, 0, 8, "input"}}}},
          {{"claw", {"claw", 0x6040, 0x2300}}}};
}

class SimulatedNodeTest : public testing::Test {
 protected:
  /// A board with the one RPDO that `mappings` make, number 1.
  static BoardConfig one_rpdo(std::vector<PdoMapping> mappings) {
    return {{{1, "RPDO", 0, std::move(mappings)}}, {}};
  }

  SimulatedNode node{5, io_board()};
};

TEST_F(SimulatedNodeTest, read_replaces_what_the_buffer_held) {
  Bytes data = {9, 9, 9, 9};

  EXPECT_TRUE(node.sdo_read(5, 0x1018, 3, data));

  EXPECT_THAT(data, ElementsAre(1, 0, 0, 0));
  EXPECT_EQ(node.last_sdo_abort(), std::nullopt);
}

TEST_F(SimulatedNodeTest, write_is_read_back) {
  Bytes data;

  EXPECT_TRUE(node.sdo_write(5, 0x607A, 0, {1, 2, 3, 4}));
  EXPECT_TRUE(node.sdo_read(5, 0x607A, 0, data));

  EXPECT_THAT(data, ElementsAre(1, 2, 3, 4));
}

struct RefusalCase {
  std::string name;
  std::uint8_t node_id;
  ObjectAddress at;
  Bytes data;
  std::optional<SdoAbort> read;
  std::optional<SdoAbort> write;
};

void PrintTo(const RefusalCase& row, std::ostream* out) { *out << row.name; }

class RefusalTest : public testing::TestWithParam<RefusalCase> {
 protected:
  SimulatedNode node{5, io_board()};
};

TEST_P(RefusalTest, read_says_why) {
  const RefusalCase& row = GetParam();
  Bytes data = {9};

  EXPECT_EQ(node.sdo_read(row.node_id, row.at.index, row.at.sub_index, data), !row.read);

  EXPECT_EQ(node.last_sdo_abort(), row.read);
  EXPECT_EQ(data == Bytes{9}, row.read.has_value()) << "a refused read leaves the buffer alone";
}

TEST_P(RefusalTest, write_says_why) {
  const RefusalCase& row = GetParam();

  EXPECT_EQ(node.sdo_write(row.node_id, row.at.index, row.at.sub_index, row.data), !row.write);

  EXPECT_EQ(node.last_sdo_abort(), row.write);
}

INSTANTIATE_TEST_SUITE_P(
    all, RefusalTest,
    testing::Values(
        RefusalCase{"accepted", 5, {0x6040, 0}, {6, 0}, {}, {}},
        RefusalCase{"other_node", 6, {0x6040, 0}, {6, 0}, SdoAbort::timed_out, SdoAbort::timed_out},
        RefusalCase{"node_0", 0, {0x6040, 0}, {6, 0}, SdoAbort::timed_out, SdoAbort::timed_out},
        RefusalCase{"absent_index",
                    5,
                    {0x5FFF, 0},
                    {6, 0},
                    SdoAbort::no_such_object,
                    SdoAbort::no_such_object},
        RefusalCase{"absent_sub_index",
                    5,
                    {0x6040, 1},
                    {6, 0},
                    SdoAbort::no_such_sub_index,
                    SdoAbort::no_such_sub_index},
        RefusalCase{"read_only", 5, {0x6041, 0}, {6, 0}, {}, SdoAbort::write_of_read_only},
        RefusalCase{"write_only", 5, {0x2300, 9}, {1}, SdoAbort::read_of_write_only, {}},
        RefusalCase{"too_long", 5, {0x6040, 0}, {6, 0, 0}, {}, SdoAbort::value_too_long},
        RefusalCase{"too_short", 5, {0x6040, 0}, {6}, {}, SdoAbort::value_too_short}),
    [](const testing::TestParamInfo<RefusalCase>& row) { return row.param.name; });

TEST_F(SimulatedNodeTest, success_clears_the_last_abort) {
  node.sdo_write(5, 0x6041, 0, {0, 0});
  ASSERT_EQ(node.last_sdo_abort(), SdoAbort::write_of_read_only);

  node.sdo_write(5, 0x6040, 0, {0, 0});

  EXPECT_EQ(node.last_sdo_abort(), std::nullopt);
}

TEST_F(SimulatedNodeTest, bench_access_leaves_the_last_abort) {
  node.sdo_write(6, 0x6040, 0, {0, 0});

  node.object_value(0x6040, 0);
  node.set_object_value(0x6040, 0, {1, 2});

  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::timed_out);
}

TEST_F(SimulatedNodeTest, device_answers_without_the_bus_face) {
  EXPECT_EQ(node.sdo_download(0x2300, 9, {1}), std::nullopt);
  EXPECT_EQ(node.sdo_upload(0x2300, 9), UploadResult(Unexpected{SdoAbort::read_of_write_only}));
  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::read_of_write_only);
  EXPECT_EQ(node.sdo_upload(0x6040, 0), UploadResult(Bytes{0, 0}));
  EXPECT_EQ(node.last_sdo_abort(), std::nullopt);
}

TEST_F(SimulatedNodeTest, bench_sees_and_sets_whatever_the_access) {
  EXPECT_TRUE(node.set_object_value(0x6041, 0, {0x37, 0x02}));
  EXPECT_TRUE(node.set_object_value(0x2300, 9, {0x07}));

  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{0x37, 0x02}));
  EXPECT_EQ(node.object_value(0x2300, 9), Bytes{0x07});
}

TEST_F(SimulatedNodeTest, bench_is_bound_to_addresses_and_lengths) {
  EXPECT_EQ(node.object_value(0x5FFF, 0), std::nullopt);
  EXPECT_FALSE(node.set_object_value(0x5FFF, 0, {1}));
  EXPECT_FALSE(node.set_object_value(0x6041, 0, {1}));
  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{0x50, 0x02}));
}

TEST_F(SimulatedNodeTest, added_object_replaces_the_one_there) {
  node.add_object(0x6040, 0, {ObjectAccess::read_only, {1, 2, 3}});

  EXPECT_EQ(node.sdo_upload(0x6040, 0), UploadResult(Bytes{1, 2, 3}));
  EXPECT_EQ(node.sdo_download(0x6040, 0, {1, 2, 3}), SdoAbort::write_of_read_only);
}

TEST_F(SimulatedNodeTest, rpdo_writes_its_mapped_objects) {
  EXPECT_TRUE(node.send_rpdo(5, 1, counting, 3));

  EXPECT_EQ(node.object_value(0x6040, 0), (Bytes{1, 2}));
  EXPECT_EQ(node.object_value(0x6060, 0), Bytes{3});
  EXPECT_THAT(node.emergencies(), IsEmpty());
}

TEST_F(SimulatedNodeTest, rpdo_respects_bit_positions_dummies_and_access) {
  node.set_object_value(0x6041, 0, {0xAA, 0xBB});

  EXPECT_TRUE(node.send_rpdo(5, 2, {0x21, 0x43, 0xFF, 0x11, 0x22}, 5));

  EXPECT_EQ(node.object_value(0x2000, 1), Bytes{0x01});
  EXPECT_EQ(node.object_value(0x2000, 2), (Bytes{0x32, 0x04}));
  EXPECT_EQ(node.object_value(0x0005, 0), std::nullopt);
  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{0xAA, 0xBB}));
}

TEST_F(SimulatedNodeTest, rpdo_that_maps_nothing_is_ignored) {
  SimulatedNode deaf(5, one_rpdo({}));
  EXPECT_TRUE(deaf.send_rpdo(5, 1, counting, 3));
  EXPECT_THAT(deaf.emergencies(), IsEmpty());
}

TEST_F(SimulatedNodeTest, rpdo_writes_parameters_as_sdo_does) {
  SimulatedNode odd(5, one_rpdo({{0x1014, 0, 32, ""}, {0x1010, 1, 32, ""}}));
  EXPECT_TRUE(odd.send_rpdo(5, 1, {0, 0, 0, 0, 1, 2, 3, 4}, 8));
  EXPECT_EQ(odd.object_value(0x1014, 0), (Bytes{0x85, 0, 0, 0}));
  EXPECT_EQ(odd.object_value(0x1010, 1), (Bytes{1, 0, 0, 0}));
}

TEST_F(SimulatedNodeTest, rpdo_leaves_the_last_abort) {
  node.sdo_write(6, 0x6040, 0, {0, 0});

  node.send_rpdo(5, 1, counting, 3);

  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::timed_out);
}

TEST_F(SimulatedNodeTest, object_takes_as_much_of_its_field_as_it_holds) {
  SimulatedNode fitted(5, one_rpdo({{0x2000, 0, 8, ""}, {0x2001, 0, 16, ""}}));
  fitted.add_object(0x2000, 0, {ObjectAccess::read_write, {9, 9, 9}});
  fitted.add_object(0x2001, 0, {ObjectAccess::write_only, {9}});

  fitted.send_rpdo(5, 1, counting, 3);

  EXPECT_EQ(fitted.object_value(0x2000, 0), (Bytes{1, 0, 0}));
  EXPECT_EQ(fitted.object_value(0x2001, 0), Bytes{2});
}

TEST_F(SimulatedNodeTest, held_object_takes_what_comes_without_a_change) {
  node.set_object_value(0x2000, 1, {7});
  node.hold_object(0x2000, 1);

  EXPECT_TRUE(node.sdo_write(5, 0x2000, 1, {9}));
  node.receive_rpdo(2, {0x4F, 0x23, 0x01}, 5);
  EXPECT_TRUE(node.set_object_value(0x2000, 1, {9}));

  EXPECT_THAT(node.object_value(0x2000, 1), testing::Optional(ElementsAre(7)));
  EXPECT_FALSE(node.sdo_write(5, 0x2000, 1, {9, 9})) << "refused as ever";
  EXPECT_EQ(node.last_sdo_abort(), SdoAbort::value_too_long);
}

TEST_F(SimulatedNodeTest, object_is_held_over_a_reset) {
  node.set_object_value(0x2000, 1, {7});
  node.set_object_value(0x1017, 0, {7, 0});
  node.hold_object(0x2000, 1);
  node.hold_object(0x1017, 0);

  node.reset();
  node.reset_communication();

  EXPECT_THAT(node.object_value(0x2000, 1), testing::Optional(ElementsAre(7)));
  EXPECT_THAT(node.object_value(0x1017, 0), testing::Optional(ElementsAre(7, 0)));
}

TEST_F(SimulatedNodeTest, released_object_takes_the_next_value) {
  node.hold_object(0x2000, 1);
  EXPECT_TRUE(node.sdo_write(5, 0x2000, 1, {8}));

  node.release_object(0x2000, 1);
  EXPECT_THAT(node.object_value(0x2000, 1), testing::Optional(ElementsAre(0)));
  EXPECT_TRUE(node.sdo_write(5, 0x2000, 1, {9}));

  EXPECT_THAT(node.object_value(0x2000, 1), testing::Optional(ElementsAre(9)));
}

TEST_F(SimulatedNodeTest, object_that_is_not_there_is_not_held) {
  node.hold_object(0x5FFF, 0);
  node.add_object(0x5FFF, 0, {ObjectAccess::read_write, {1}});

  EXPECT_TRUE(node.sdo_write(5, 0x5FFF, 0, {2}));

  EXPECT_THAT(node.object_value(0x5FFF, 0), testing::Optional(ElementsAre(2)));
}

TEST_F(SimulatedNodeTest, last_mapping_of_an_object_wins) {
  SimulatedNode twice(5, one_rpdo({{0x2000, 0, 8, ""}, {0x2000, 0, 8, ""}}));

  twice.send_rpdo(5, 1, counting, 2);

  EXPECT_EQ(twice.object_value(0x2000, 0), Bytes{2});
}

TEST_F(SimulatedNodeTest, first_rpdo_of_a_number_counts) {
  SimulatedNode doubled(5, {{{1, "TPDO", 0, {{0x2000, 0, 8, ""}}},
                             {1, "RPDO", 0, {{0x2001, 0, 8, ""}}},
                             {1, "RPDO", 0, {{0x2002, 0, 8, ""}}}},
                            {}});

  doubled.send_rpdo(5, 1, counting, 1);

  EXPECT_EQ(doubled.object_value(0x2000, 0), Bytes{0});
  EXPECT_EQ(doubled.object_value(0x2001, 0), Bytes{1});
  EXPECT_EQ(doubled.object_value(0x2002, 0), Bytes{0});
}

TEST_F(SimulatedNodeTest, board_may_go_after_construction) {
  auto board = std::make_unique<BoardConfig>(io_board());
  SimulatedNode survivor(5, *board);
  board.reset();

  EXPECT_TRUE(survivor.send_rpdo(5, 1, counting, 3));

  EXPECT_EQ(survivor.object_value(0x6060, 0), Bytes{3});
}

struct UnheardCase {
  std::string name;
  std::uint8_t node_id;
  std::uint8_t rpdo;
  std::uint8_t length;
  bool sent;
};

void PrintTo(const UnheardCase& row, std::ostream* out) { *out << row.name; }

class UnheardFrameTest : public testing::TestWithParam<UnheardCase> {};

TEST_P(UnheardFrameTest, changes_nothing) {
  const UnheardCase& row = GetParam();
  SimulatedNode node(5, io_board());
  node.set_object_value(0x6040, 0, {0xAA, 0xBB});
  node.set_object_value(0x6060, 0, {0xCC});

  EXPECT_EQ(node.send_rpdo(row.node_id, row.rpdo, counting, row.length), row.sent);

  EXPECT_EQ(node.object_value(0x6040, 0), (Bytes{0xAA, 0xBB}));
  EXPECT_EQ(node.object_value(0x6060, 0), Bytes{0xCC});
  EXPECT_EQ(node.object_value(0x2001, 0), Bytes{0});
  EXPECT_THAT(node.emergencies(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(all, UnheardFrameTest,
                         testing::Values(UnheardCase{"other_node", 6, 1, 3, true},
                                         UnheardCase{"other_node_wrong_length", 6, 1, 2, true},
                                         UnheardCase{"absent_rpdo", 5, 9, 3, true},
                                         UnheardCase{"number_of_a_tpdo", 5, 3, 1, true},
                                         UnheardCase{"no_frame_is_that_long", 5, 1, 9, false},
                                         UnheardCase{"longest_number", 5, 1, 255, false},
                                         UnheardCase{"too_long_to_other_node", 6, 1, 9, false}),
                         [](const testing::TestParamInfo<UnheardCase>& row) {
                           return row.param.name;
                         });

TEST_F(SimulatedNodeTest, device_ignores_a_length_that_no_frame_has) {
  SimulatedNode overfull(5, one_rpdo({{0x2000, 0, 64, ""}, {0x2001, 0, 8, ""}}));

  overfull.receive_rpdo(1, counting, 9);

  EXPECT_EQ(overfull.object_value(0x2000, 0), Bytes(8, 0));
  EXPECT_THAT(overfull.emergencies(), IsEmpty());
}

TEST(WrongLengthTest, fewer_bytes_than_mapped_are_ignored_and_of_more_the_first_count) {
  for (std::uint8_t length = 0; length <= 8; ++length) {
    if (length == 3) {
      continue;  // the mapped length
    }
    SCOPED_TRACE(int{length});
    const bool is_short = length < 3;
    SimulatedNode node(5, io_board());
    node.set_object_value(0x6040, 0, {0xAA, 0xBB});

    EXPECT_TRUE(node.send_rpdo(5, 1, counting, length));

    EXPECT_EQ(node.object_value(0x6040, 0),
              is_short ? (Bytes{0xAA, 0xBB}) : (Bytes{counting[0], counting[1]}));
    EXPECT_EQ(node.object_value(0x1001, 0), Bytes{0x11});
    ASSERT_EQ(node.emergencies().size(), 1U);
    const Emergency emergency = node.emergencies().front();
    EXPECT_EQ(emergency.error_code, is_short ? 0x8210 : 0x8220);
    EXPECT_EQ(emergency.error_register, 0x11);
    EXPECT_THAT(emergency.device_data, ElementsAre(1, 0, 0, 0, 0));
  }
}

TEST_F(SimulatedNodeTest, mapping_beyond_a_frame_is_never_met) {
  SimulatedNode overfull(5, one_rpdo({{0x2000, 0, 64, ""}, {0x2001, 0, 8, ""}}));

  EXPECT_TRUE(overfull.send_rpdo(5, 1, counting, 8));

  EXPECT_EQ(overfull.object_value(0x2000, 0), Bytes(8, 0));
  ASSERT_EQ(overfull.emergencies().size(), 1U);
  EXPECT_EQ(overfull.emergencies().front().error_code, emergency_rpdo_too_short);
}

TEST_F(SimulatedNodeTest, empty_mapping_takes_the_empty_frame) {
  SimulatedNode unmapped(5, one_rpdo({}));

  EXPECT_TRUE(unmapped.send_rpdo(5, 1, counting, 0));
  EXPECT_THAT(unmapped.emergencies(), IsEmpty());
}

TEST_F(SimulatedNodeTest, emergency_keeps_other_bits_of_the_error_register) {
  node.set_object_value(0x1001, 0, {0x20});

  node.send_rpdo(5, 1, counting, 1);

  EXPECT_EQ(node.object_value(0x1001, 0), Bytes{0x31});
  EXPECT_EQ(node.emergencies().front().error_register, 0x31);
}

TEST_F(SimulatedNodeTest, emergency_is_noted_over_an_error_register_without_bytes) {
  node.add_object(0x1001, 0, {ObjectAccess::read_only, {}});

  node.send_rpdo(5, 1, counting, 1);

  ASSERT_EQ(node.emergencies().size(), 1U);
  EXPECT_EQ(node.emergencies().front().error_register, 0x11);
}

TEST_F(SimulatedNodeTest, only_the_latest_emergencies_are_kept) {
  for (std::size_t sent = 0; sent < SimulatedNode::emergency_limit; ++sent) {
    node.send_rpdo(5, 1, counting, 1);
  }
  node.send_rpdo(5, 2, counting, 8);

  const std::vector<Emergency> kept = node.emergencies();
  ASSERT_EQ(kept.size(), SimulatedNode::emergency_limit);
  EXPECT_EQ(kept.front().device_data.front(), 1);
  EXPECT_EQ(kept.back().device_data.front(), 2);
  EXPECT_EQ(kept.back().error_code, emergency_rpdo_too_long);
}

TEST_F(SimulatedNodeTest, clearing_forgets_emergencies_with_their_register) {
  node.send_rpdo(5, 1, counting, 1);

  node.clear_emergencies();

  EXPECT_THAT(node.emergencies(), IsEmpty());
  EXPECT_EQ(node.object_value(0x1001, 0), Bytes{0});
}

// What is kept

TEST_F(SimulatedNodeTest, latest_errors_are_read_until_they_are_cleared) {
  EXPECT_EQ(node.sdo_upload(0x1003, 1), UploadResult(Unexpected{SdoAbort::no_data}));
  node.send_rpdo(5, 1, counting, 1);
  node.send_rpdo(5, 2, counting, 8);

  EXPECT_EQ(node.sdo_upload(0x1003, 0), UploadResult(Bytes{2}));
  EXPECT_EQ(node.sdo_upload(0x1003, 1), UploadResult(Bytes{0x20, 0x82, 2, 0}));
  EXPECT_EQ(node.sdo_upload(0x1003, 2), UploadResult(Bytes{0x10, 0x82, 1, 0}));

  EXPECT_EQ(node.sdo_download(0x1003, 0, {0}), std::nullopt);
  EXPECT_EQ(node.sdo_upload(0x1003, 1), UploadResult(Unexpected{SdoAbort::no_data}));
}

TEST_F(SimulatedNodeTest, stored_parameters_outlast_a_reset_until_the_defaults_are_restored) {
  const Bytes save = {'s', 'a', 'v', 'e'};
  const Bytes load = {'l', 'o', 'a', 'd'};
  node.sdo_download(0x1017, 0, {100, 0});
  node.reset();
  EXPECT_EQ(node.object_value(0x1017, 0), (Bytes{0, 0}));

  node.sdo_download(0x1017, 0, {100, 0});
  node.sdo_download(0x6081, 0, {1, 0, 0, 0});
  EXPECT_EQ(node.sdo_download(0x1010, 1, save), std::nullopt);
  EXPECT_EQ(node.sdo_upload(0x1010, 1), UploadResult(Bytes{1, 0, 0, 0}));
  node.sdo_download(0x1017, 0, {200, 0});
  node.reset();
  EXPECT_EQ(node.object_value(0x1017, 0), (Bytes{100, 0}));
  EXPECT_EQ(node.object_value(0x6081, 0), (Bytes{0, 0, 0, 0})) << "no communication object";

  EXPECT_EQ(node.sdo_download(0x1011, 1, load), std::nullopt);
  EXPECT_EQ(node.object_value(0x1017, 0), (Bytes{100, 0})) << "until the next reset";
  node.reset_communication();
  EXPECT_EQ(node.object_value(0x1017, 0), (Bytes{0, 0}));
}

TEST_F(SimulatedNodeTest, storing_again_is_the_later_word) {
  node.sdo_download(0x1011, 1, {'l', 'o', 'a', 'd'});
  node.sdo_download(0x1017, 0, {100, 0});
  node.sdo_download(0x1010, 1, {'s', 'a', 'v', 'e'});
  node.reset();

  EXPECT_EQ(node.object_value(0x1017, 0), (Bytes{100, 0}));
}

// TPDOs

struct TpdoCase {
  std::string name;
  std::vector<PdoMapping> mappings;
  std::optional<Bytes> expected;
};

void PrintTo(const TpdoCase& row, std::ostream* out) { *out << row.name; }

class TpdoFrameTest : public testing::TestWithParam<TpdoCase> {};

TEST_P(TpdoFrameTest, carries_the_mapped_objects) {
  SimulatedNode node(5, {{{1, "TPDO", 0, GetParam().mappings}}, {}});
  node.add_object(0x2000, 1, {ObjectAccess::read_write, {0x21, 0x43}});
  node.add_object(0x2000, 2, {ObjectAccess::read_only, {0x65}});
  node.add_object(0x2000, 3, {ObjectAccess::write_only, {0xFF}});

  const std::optional<PdoFrame> frame = node.tpdo_frame(1);

  ASSERT_EQ(frame.has_value(), GetParam().expected.has_value());
  if (frame) {
    EXPECT_EQ(Bytes(frame->data.begin(), frame->data.begin() + frame->length), GetParam().expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    all, TpdoFrameTest,
    testing::Values(
        TpdoCase{"in_order", {{0x2000, 2, 8, ""}, {0x2000, 1, 16, ""}}, Bytes{0x65, 0x21, 0x43}},
        TpdoCase{"bit_by_bit", {{0x2000, 2, 4, ""}, {0x2000, 1, 16, ""}}, Bytes{0x15, 0x32, 0x04}},
        TpdoCase{"filled_up", {{0x2000, 2, 16, ""}, {0x2000, 2, 8, ""}}, Bytes{0x65, 0, 0x65}},
        TpdoCase{"cut_off", {{0x2000, 1, 8, ""}, {0x2000, 2, 8, ""}}, Bytes{0x21, 0x65}},
        TpdoCase{"write_only", {{0x2000, 3, 8, ""}, {0x2000, 2, 8, ""}}, Bytes{0, 0x65}},
        TpdoCase{"dummy", {{0x0005, 0, 8, ""}, {0x2000, 2, 8, ""}}, Bytes{0, 0x65}},
        TpdoCase{"nothing_mapped", {}, {}}, TpdoCase{"no_bits", {{0x2000, 1, 0, ""}}, {}},
        TpdoCase{"full", {{0x2000, 1, 64, ""}}, Bytes{0x21, 0x43, 0, 0, 0, 0, 0, 0}},
        TpdoCase{"longer_than_a_frame", {{0x2000, 1, 64, ""}, {0x2000, 2, 1, ""}}, {}}),
    [](const testing::TestParamInfo<TpdoCase>& row) { return row.param.name; });

TEST_F(SimulatedNodeTest, only_numbers_of_tpdos_have_a_frame) {
  EXPECT_TRUE(node.tpdo_frame(3).has_value());
  for (const std::uint8_t number : Bytes{0, 1, 2, 4, 255}) {
    EXPECT_FALSE(node.tpdo_frame(number).has_value()) << int{number};
  }
}

TEST_F(SimulatedNodeTest, first_tpdo_of_a_number_counts) {
  SimulatedNode doubled(
      5, {{{1, "TPDO", 0, {{0x2000, 0, 8, ""}}}, {1, "TPDO", 0, {{0x2001, 0, 16, ""}}}}, {}});

  EXPECT_EQ(doubled.tpdo_frame(1)->length, 1);
}

// Resets

TEST_F(SimulatedNodeTest, reset_sets_all_objects_back) {
  node.add_object(0x3000, 0, {ObjectAccess::read_write, {7}});
  std::vector<std::pair<ObjectAddress, Bytes>> before;
  for (const ObjectAddress at : {ObjectAddress{0x1017, 0},
                                 {0x1001, 0},
                                 {0x6040, 0},
                                 {0x6041, 0},
                                 {0x2300, 1},
                                 {0x3000, 0}}) {
    before.emplace_back(at, node.object_value(at.index, at.sub_index).value());
  }
  node.sdo_write(5, 0x1017, 0, {1, 2});
  node.sdo_write(5, 0x6040, 0, {6, 0});
  node.sdo_write(5, 0x2300, 9, {1});
  node.sdo_write(5, 0x3000, 0, {9});
  node.set_object_value(0x1001, 0, {9});

  node.reset();

  for (const auto& [at, value] : before) {
    EXPECT_EQ(node.object_value(at.index, at.sub_index), value) << std::hex << at.index;
  }
}

TEST_F(SimulatedNodeTest, reset_starts_drives_anew) {
  node.sdo_write(5, 0x6040, 0, {0x06, 0});
  node.sdo_write(5, 0x2300, 9, {1});
  node.reset();

  node.tick(std::chrono::milliseconds(1));

  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{0x50, 0x02}));
  EXPECT_EQ(node.object_value(0x2300, 1), Bytes{0}) << "the claw has been asked for nothing";
}

TEST_F(SimulatedNodeTest, reset_forgets_faults_with_their_emergencies) {
  node.inject_fault("claw");
  node.reset();

  EXPECT_THAT(node.emergencies(), IsEmpty());
  EXPECT_THAT(node.take_unsent_emergencies(), IsEmpty());

  node.sdo_write(5, 0x6040, 0, {0x80, 0});
  EXPECT_THAT(node.emergencies(), IsEmpty()) << "there is no fault to reset";
}

TEST_F(SimulatedNodeTest, communication_reset_spares_all_others) {
  node.add_object(0x0FFF, 0, {ObjectAccess::read_write, {1}});
  node.add_object(0x1FFF, 0, {ObjectAccess::read_write, {1}});
  node.add_object(0x2000, 0, {ObjectAccess::read_write, {1}});
  for (const std::uint16_t index : std::array<std::uint16_t, 3>{0x0FFF, 0x1FFF, 0x2000}) {
    node.sdo_write(5, index, 0, {9});
  }
  node.sdo_write(5, 0x1017, 0, {1, 2});
  node.sdo_write(5, 0x6040, 0, {6, 0});
  node.set_object_value(0x1000, 0, {1, 2, 3, 4});

  node.reset_communication();

  EXPECT_EQ(node.object_value(0x1000, 0), (Bytes{0x92, 0x01, 0x02, 0x00}));
  EXPECT_EQ(node.object_value(0x1017, 0), (Bytes{0, 0}));
  EXPECT_EQ(node.object_value(0x1FFF, 0), Bytes{1});
  EXPECT_EQ(node.object_value(0x0FFF, 0), Bytes{9});
  EXPECT_EQ(node.object_value(0x2000, 0), Bytes{9});
  EXPECT_EQ(node.object_value(0x6041, 0), (Bytes{0x31, 0x02}));
}

TEST_F(SimulatedNodeTest, communication_reset_clears_communication_errors_only) {
  node.send_rpdo(5, 1, counting, 1);
  node.reset_communication();
  EXPECT_EQ(node.object_value(0x1001, 0), Bytes{0});

  node.send_rpdo(5, 1, counting, 1);
  node.inject_fault("claw");
  node.reset_communication();
  EXPECT_EQ(node.object_value(0x1001, 0), Bytes{0x01});
}

TEST(CommunicationResetTest, keeps_what_a_drive_shows_among_communication_objects) {
  SimulatedNode node(5, {{}, {{"low", {"ci402", 0x1F00, 0}}}});
  node.sdo_write(5, 0x1F00, 0, {0x06, 0});

  node.reset_communication();

  EXPECT_EQ(node.object_value(0x1F01, 0), (Bytes{0x31, 0x02}));
}

// Emergencies for who sends them

TEST_F(SimulatedNodeTest, emergencies_are_taken_once) {
  node.send_rpdo(5, 1, counting, 1);
  node.send_rpdo(5, 2, counting, 8);
  node.clear_emergencies();

  const std::vector<Emergency> unsent = node.take_unsent_emergencies();

  ASSERT_EQ(unsent.size(), 2U);
  EXPECT_EQ(unsent[0].error_code, emergency_rpdo_too_short);
  EXPECT_EQ(unsent[1].error_code, emergency_rpdo_too_long);
  EXPECT_THAT(node.take_unsent_emergencies(), IsEmpty());
}

TEST_F(SimulatedNodeTest, taking_leaves_the_list_of_the_bench) {
  node.send_rpdo(5, 1, counting, 1);

  node.take_unsent_emergencies();

  EXPECT_EQ(node.emergencies().size(), 1U);
}

TEST_F(SimulatedNodeTest, only_the_latest_unsent_emergencies_are_kept) {
  for (std::size_t sent = 0; sent < SimulatedNode::emergency_limit; ++sent) {
    node.send_rpdo(5, 1, counting, 1);
  }
  node.send_rpdo(5, 2, counting, 8);

  const std::vector<Emergency> unsent = node.take_unsent_emergencies();
  ASSERT_EQ(unsent.size(), SimulatedNode::emergency_limit);
  EXPECT_EQ(unsent.back().device_data.front(), 2);
}

TEST(BareSimulatedNodeTest, has_identity_but_no_rpdo) {
  SimulatedNode node(0x7F);

  EXPECT_EQ(node.sdo_upload(0x1018, 0), UploadResult(Bytes{4}));
  EXPECT_EQ(node.sdo_upload(0x6040, 0), UploadResult(Unexpected{SdoAbort::no_such_object}));
  EXPECT_TRUE(node.send_rpdo(0x7F, 1, counting, 8));
  EXPECT_THAT(node.emergencies(), IsEmpty());
}

TEST(BareSimulatedNodeTest, ids_outside_the_standard_range_answer_as_given) {
  for (const std::uint8_t node_id : Bytes{0, 128, 255}) {
    SimulatedNode node(node_id);
    Bytes data;

    EXPECT_TRUE(node.sdo_read(node_id, 0x1018, 4, data));
    EXPECT_THAT(data, ElementsAre(node_id, 0, 0, 0));
  }
}

}  // namespace
}  // namespace velmora_can_bridge
