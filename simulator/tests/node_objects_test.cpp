#include "node_objects.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace velmora_can_bridge {
namespace {

constexpr auto read_only = ObjectAccess::read_only;
constexpr auto write_only = ObjectAccess::write_only;
constexpr auto read_write = ObjectAccess::read_write;

/// An object as tests compare it.
struct Shape {
  std::uint16_t index;
  std::uint8_t sub_index;
  std::size_t size;
  ObjectAccess access;
};

bool operator==(const Shape& left, const Shape& right) {
  return std::tie(left.index, left.sub_index, left.size, left.access) ==
         std::tie(right.index, right.sub_index, right.size, right.access);
}

void PrintTo(const Shape& shape, std::ostream* out) {
  *out << std::hex << "0x" << shape.index << std::dec << "/" << int{shape.sub_index} << " size "
       << shape.size << " access " << static_cast<int>(shape.access);
}

std::vector<Shape> shapes(const ObjectDictionary& dictionary) {
  std::vector<Shape> all;
  for (const ObjectAddress& at : dictionary.addresses()) {
    const ObjectEntry& entry = *dictionary.find(at.index, at.sub_index);
    all.push_back({at.index, at.sub_index, entry.value.size(), entry.access});
  }
  return all;
}

/// Every index with a sub-index 0, as a node has it.
ObjectDictionary with_highest_sub_indices(ObjectDictionary dictionary) {
  for (const ObjectAddress& at : dictionary.addresses()) {
    if (dictionary.find(at.index, 0) == nullptr) {
      dictionary.add(at.index, 0, {read_only, {0}});
    }
  }
  return dictionary;
}

/// What the board adds to the communication objects.
std::vector<Shape> added_by(const BoardConfig& board) {
  std::vector<Shape> added;
  const ObjectDictionary bare = with_highest_sub_indices(communication_objects(5, board));
  for (const Shape& shape : shapes(node_objects(5, board))) {
    if (bare.find(shape.index, shape.sub_index) == nullptr) {
      added.push_back(shape);
    }
  }
  return added;
}

TEST(BareNodeTest, offers_the_communication_objects) {
  std::vector<Shape> expected = {
      {0x1000, 0, 4, read_only}, {0x1001, 0, 1, read_only}, {0x1003, 0, 1, read_write}};
  for (std::uint8_t error = 1; error <= 8; ++error) {
    expected.push_back({0x1003, error, 4, read_only});
  }
  const std::vector<Shape> single = {{0x1005, 0, 4, read_write}, {0x1008, 0, 14, read_only},
                                     {0x1010, 0, 1, read_only},  {0x1010, 1, 4, read_write},
                                     {0x1011, 0, 1, read_only},  {0x1011, 1, 4, read_write},
                                     {0x1014, 0, 4, read_write}, {0x1016, 0, 1, read_only}};
  expected.insert(expected.end(), single.begin(), single.end());
  for (std::uint8_t consumer = 1; consumer <= 8; ++consumer) {
    expected.push_back({0x1016, consumer, 4, read_write});
  }
  expected.push_back({0x1017, 0, 2, read_write});
  expected.push_back({0x1018, 0, 1, read_only});
  for (std::uint8_t number = 1; number <= 4; ++number) {
    expected.push_back({0x1018, number, 4, read_only});
  }
  expected.push_back({0x1029, 0, 1, read_only});
  expected.push_back({0x1029, 1, 1, read_write});
  EXPECT_EQ(shapes(node_objects(5, {})), expected);
}

TEST(BareNodeTest, identity_has_four_sub_indices_with_the_node_id_as_serial_number) {
  const ObjectDictionary dictionary = node_objects(0x7F, {});

  EXPECT_THAT(dictionary.find(0x1018, 0)->value, testing::ElementsAre(4));
  EXPECT_THAT(dictionary.find(0x1018, 4)->value, testing::ElementsAre(0x7F, 0, 0, 0));
}

// PDO parameters

/// An object with what it holds.
struct Content {
  std::uint16_t index;
  std::uint8_t sub_index;
  std::vector<std::uint8_t> value;
};

bool operator==(const Content& left, const Content& right) {
  return std::tie(left.index, left.sub_index, left.value) ==
         std::tie(right.index, right.sub_index, right.value);
}

void PrintTo(const Content& content, std::ostream* out) {
  *out << std::hex << "0x" << content.index << std::dec << "/" << int{content.sub_index} << " "
       << testing::PrintToString(content.value);
}

/// The objects 0x1400 to 0x1BFF without the entries that map nothing. All can be written but the
/// highest sub-indices of the communication parameters.
std::vector<Content> pdo_parameters(std::uint8_t node_id, const BoardConfig& board) {
  std::vector<Content> found;
  const ObjectDictionary dictionary = node_objects(node_id, board);
  for (const ObjectAddress& at : dictionary.addresses()) {
    if (at.index >= 0x1400 && at.index <= 0x1BFF) {
      const ObjectEntry& entry = *dictionary.find(at.index, at.sub_index);
      const bool is_mapping = (at.index & 0x0200U) != 0;
      EXPECT_EQ(entry.access, at.sub_index == 0 && !is_mapping ? read_only : read_write);
      if (!is_mapping || at.sub_index == 0 || entry.value != std::vector<std::uint8_t>(4)) {
        found.push_back({at.index, at.sub_index, entry.value});
      }
    }
  }
  return found;
}

struct ParameterCase {
  std::string name;
  std::vector<PdoConfig> pdos;
  std::vector<Content> expected;
};

void PrintTo(const ParameterCase& row, std::ostream* out) { *out << row.name; }

class PdoParameterTest : public testing::TestWithParam<ParameterCase> {};

TEST_P(PdoParameterTest, tell_cob_ids_with_mappings) {
  EXPECT_EQ(pdo_parameters(5, {GetParam().pdos, {}}), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, PdoParameterTest,
    testing::Values(
        ParameterCase{"no_pdos", {}, {}},
        ParameterCase{"rpdo",
                      {{1, "RPDO", 0, {{0x6040, 0, 16, "a"}, {0x2200, 0x12, 8, "b"}}}},
                      {{0x1400, 0, {2}},
                       {0x1400, 1, {0x05, 0x02, 0, 0}},
                       {0x1400, 2, {255}},
                       {0x1600, 0, {2}},
                       {0x1600, 1, {16, 0x00, 0x40, 0x60}},
                       {0x1600, 2, {8, 0x12, 0x00, 0x22}}}},
        ParameterCase{"tpdo",
                      {{4, "TPDO", 0, {{0x6041, 0, 16, ""}}}},
                      {{0x1803, 0, {5}},
                       {0x1803, 1, {0x85, 0x04, 0, 0}},
                       {0x1803, 2, {255}},
                       {0x1803, 3, {0, 0}},
                       {0x1803, 5, {0, 0}},
                       {0x1A03, 0, {1}},
                       {0x1A03, 1, {16, 0x00, 0x41, 0x60}}}},
        ParameterCase{"transmission_type_of_the_board",
                      {{1, "RPDO", 0, {}, std::uint8_t{1}}, {1, "TPDO", 0, {}, std::uint8_t{0}}},
                      {{0x1400, 0, {2}},
                       {0x1400, 1, {0x05, 0x02, 0, 0}},
                       {0x1400, 2, {1}},
                       {0x1600, 0, {0}},
                       {0x1800, 0, {5}},
                       {0x1800, 1, {0x85, 0x01, 0, 0}},
                       {0x1800, 2, {0}},
                       {0x1800, 3, {0, 0}},
                       {0x1800, 5, {0, 0}},
                       {0x1A00, 0, {0}}}},
        ParameterCase{"dummies_are_mappings",
                      {{1, "RPDO", 0x321, {{0x0005, 0, 8, ""}, {0x2000, 0, 0, ""}}}},
                      {{0x1400, 0, {2}},
                       {0x1400, 1, {0x21, 0x03, 0, 0}},
                       {0x1400, 2, {255}},
                       {0x1600, 0, {2}},
                       {0x1600, 1, {8, 0x00, 0x05, 0x00}},
                       {0x1600, 2, {0, 0x00, 0x00, 0x20}}}},
        ParameterCase{"highest_number_without_cob_id",
                      {{255, "RPDO", 0, {}}, {255, "TPDO", 0x800, {}}},
                      {{0x14FE, 0, {2}},
                       {0x14FE, 1, {0, 0, 0, 0x80}},
                       {0x14FE, 2, {255}},
                       {0x16FE, 0, {0}},
                       {0x18FE, 0, {5}},
                       {0x18FE, 1, {0, 0, 0, 0x80}},
                       {0x18FE, 2, {255}},
                       {0x18FE, 3, {0, 0}},
                       {0x18FE, 5, {0, 0}},
                       {0x1AFE, 0, {0}}}},
        ParameterCase{"first_of_a_number",
                      {{1, "RPDO", 0x321, {}}, {1, "RPDO", 0x322, {{0x2000, 0, 8, ""}}}},
                      {{0x1400, 0, {2}},
                       {0x1400, 1, {0x21, 0x03, 0, 0}},
                       {0x1400, 2, {255}},
                       {0x1600, 0, {0}}}},
        ParameterCase{"no_pdo", {{0, "RPDO", 0x321, {}}, {1, "rpdo", 0, {}}}, {}}),
    [](const testing::TestParamInfo<ParameterCase>& row) { return row.param.name; });

TEST(PdoParameterTest, show_as_many_mappings_as_a_frame_has_bits) {
  for (const std::size_t count : {64U, 65U, 255U, 256U, 1000U}) {
    const ObjectDictionary dictionary =
        node_objects(5, {{{1, "RPDO", 0, std::vector<PdoMapping>(count, {0x2000, 1, 0, ""})}}, {}});

    EXPECT_THAT(dictionary.find(0x1600, 0)->value, testing::ElementsAre(64));
    EXPECT_THAT(dictionary.find(0x1600, 64)->value, testing::ElementsAre(0, 1, 0x00, 0x20));
    EXPECT_EQ(dictionary.find(0x1600, 65), nullptr);
  }
}

TEST(PdoParameterTest, have_no_predefined_cob_id_for_other_node_ids) {
  EXPECT_EQ(pdo_parameters(128, {{{1, "RPDO", 0, {}}}, {}})[1],
            (Content{0x1400, 1, {0, 0, 0, 0x80}}));
}

TEST(PdoParameterTest, belong_to_no_drive_or_mapping) {
  const ObjectDictionary dictionary =
      node_objects(5, {{{1, "RPDO", 0, {{0x1400, 1, 8, ""}}}}, {{"low", {"ci402", 0x1400, 0}}}});

  EXPECT_EQ(dictionary.find(0x1400, 0)->value.size(), 1U);
  EXPECT_EQ(dictionary.find(0x1400, 1)->value.size(), 4U);
}

// Devices

struct DeviceTypeCase {
  std::string name;
  std::string profile;
  std::vector<std::uint8_t> device_type;
};

void PrintTo(const DeviceTypeCase& row, std::ostream* out) { *out << row.name; }

class DeviceTypeTest : public testing::TestWithParam<DeviceTypeCase> {};

TEST_P(DeviceTypeTest, tells_the_profile) {
  const ObjectDictionary dictionary =
      node_objects(5, {{}, {{"a", {"io", 0x2200, 0}}, {"b", {GetParam().profile, 0x6040, 0}}}});

  EXPECT_EQ(dictionary.find(0x1000, 0)->value, GetParam().device_type);
}

INSTANTIATE_TEST_SUITE_P(all, DeviceTypeTest,
                         testing::Values(DeviceTypeCase{"drive", "ci402", {0x92, 0x01, 0x02, 0x00}},
                                         DeviceTypeCase{"claw", "claw", {0x92, 0x01, 0x02, 0x00}},
                                         DeviceTypeCase{"no_drive", "io", {0, 0, 0, 0}}),
                         [](const testing::TestParamInfo<DeviceTypeCase>& row) {
                           return row.param.name;
                         });

struct BoardCase {
  std::string name;
  BoardConfig board;
  std::vector<Shape> expected;
};

void PrintTo(const BoardCase& row, std::ostream* out) { *out << row.name; }

class BoardObjectsTest : public testing::TestWithParam<BoardCase> {};

TEST_P(BoardObjectsTest, are_all_there_with_size_and_access) {
  EXPECT_EQ(added_by(GetParam().board), GetParam().expected);
}

std::string name_of(const testing::TestParamInfo<BoardCase>& row) { return row.param.name; }

BoardConfig one_device(const DeviceOdEntry& device) { return {{}, {{"device", device}}}; }

const std::vector<Shape>& drive_at_6040() {
  static const std::vector<Shape> objects = {
      {0x603F, 0, 2, read_only},  {0x6040, 0, 2, read_write}, {0x6041, 0, 2, read_only},
      {0x605A, 0, 2, read_write}, {0x6060, 0, 1, read_write}, {0x6061, 0, 1, read_only},
      {0x6064, 0, 4, read_only},  {0x606C, 0, 4, read_only},  {0x6071, 0, 2, read_write},
      {0x6077, 0, 2, read_only},  {0x607A, 0, 4, read_write}, {0x607C, 0, 4, read_write},
      {0x6081, 0, 4, read_write}, {0x6083, 0, 4, read_write}, {0x6084, 0, 4, read_write},
      {0x6085, 0, 4, read_write}, {0x6098, 0, 1, read_write}, {0x60FF, 0, 4, read_write},
      {0x6502, 0, 4, read_only},
  };
  return objects;
}

/// The drive's objects with others before them, as a claw's record has them.
std::vector<Shape> drive_after(std::vector<Shape> objects) {
  objects.insert(objects.end(), drive_at_6040().begin(), drive_at_6040().end());
  return objects;
}

INSTANTIATE_TEST_SUITE_P(
    profiles, BoardObjectsTest,
    testing::Values(BoardCase{"empty_board", {}, {}},
                    BoardCase{"drive", one_device({"ci402", 0x6040, 0}), drive_at_6040()},
                    BoardCase{"drive_has_no_homing_record", one_device({"ci402", 0x6040, 0x2300}),
                              drive_at_6040()},
                    BoardCase{"claw", one_device({"claw", 0x6040, 0x2300}),
                              drive_after({{0x2300, 0, 1, read_only},
                                           {0x2300, 1, 1, read_only},
                                           {0x2300, 2, 1, read_only},
                                           {0x2300, 9, 1, write_only}})},
                    BoardCase{"claw_without_record", one_device({"claw", 0x6040, 0}),
                              drive_at_6040()},
                    BoardCase{"drive_around_the_highest_index",
                              one_device({"ci402", 0xFFDF, 0}),
                              {{0x0000, 0, 1, read_only},
                               {0x0003, 0, 4, read_only},
                               {0x000B, 0, 4, read_only},
                               {0x0010, 0, 2, read_write},
                               {0x0016, 0, 2, read_only},
                               {0x0019, 0, 4, read_write},
                               {0x001B, 0, 4, read_write},
                               {0x0020, 0, 4, read_write},
                               {0x0022, 0, 4, read_write},
                               {0x0023, 0, 4, read_write},
                               {0x0024, 0, 4, read_write},
                               {0x0037, 0, 1, read_write},
                               {0x009E, 0, 4, read_write},
                               {0x04A1, 0, 4, read_only},
                               {0xFFDE, 0, 2, read_only},
                               {0xFFDF, 0, 2, read_write},
                               {0xFFE0, 0, 2, read_only},
                               {0xFFF9, 0, 2, read_write},
                               {0xFFFF, 0, 1, read_write}}},
                    BoardCase{"io_with_nothing_mapped",
                              one_device({"io", 0x2200, 0}),
                              {{0x2200, 0, 1, read_only},
                               {0x2200, 1, 1, read_write},
                               {0x2200, 2, 1, read_write},
                               {0x2200, 3, 1, read_write},
                               {0x2200, 4, 1, read_write},
                               {0x2200, 5, 1, read_write},
                               {0x2200, 6, 1, read_write},
                               {0x2200, 7, 1, read_write},
                               {0x2200, 8, 1, read_write}}},
                    BoardCase{"any_other_profile_is_io",
                              {{{1, "RPDO", 0, {{0x2100, 0, 8, "led"}}}},
                               {{"leds", {"CI402", 0x2100, 0x2300}}}},
                              {{0x2100, 0, 1, read_write}}}),
    name_of);

INSTANTIATE_TEST_SUITE_P(
    mappings, BoardObjectsTest,
    testing::Values(
        BoardCase{"pump_channels_beside_mapped_ones",
                  {{{1, "RPDO", 0, {{0x2200, 1, 16, "a"}, {0x2200, 2, 16, "b"}}}},
                   {{"pumps", {"io", 0x2200, 0}}}},
                  {{0x2200, 0, 1, read_only},
                   {0x2200, 1, 2, read_write},
                   {0x2200, 2, 2, read_write},
                   {0x2200, 3, 2, read_write},
                   {0x2200, 4, 2, read_write},
                   {0x2200, 5, 2, read_write},
                   {0x2200, 6, 2, read_write},
                   {0x2200, 7, 2, read_write},
                   {0x2200, 8, 2, read_write}}},
        BoardCase{
            "io_record_beyond_its_channels_keeps_each_mapped_size",
            {{{1, "TPDO", 0, {{0x2200, 2, 8, ""}, {0x2200, 12, 24, ""}, {0x2201, 1, 64, ""}}}},
             {{"inputs", {"", 0x2200, 0}}}},
            {{0x2200, 0, 1, read_only},
             {0x2200, 1, 3, read_write},
             {0x2200, 2, 1, read_only},
             {0x2200, 3, 3, read_write},
             {0x2200, 4, 3, read_write},
             {0x2200, 5, 3, read_write},
             {0x2200, 6, 3, read_write},
             {0x2200, 7, 3, read_write},
             {0x2200, 8, 3, read_write},
             {0x2200, 12, 3, read_only},
             {0x2201, 0, 1, read_only},
             {0x2201, 1, 8, read_only}}},
        BoardCase{"io_record_keeps_a_mapped_sub_index_0",
                  {{{1, "RPDO", 0, {{0x2200, 0, 32, ""}, {0x2200, 1, 8, ""}}}},
                   {{"outputs", {"io", 0x2200, 0}}}},
                  {{0x2200, 0, 4, read_write},
                   {0x2200, 1, 1, read_write},
                   {0x2200, 2, 1, read_write},
                   {0x2200, 3, 1, read_write},
                   {0x2200, 4, 1, read_write},
                   {0x2200, 5, 1, read_write},
                   {0x2200, 6, 1, read_write},
                   {0x2200, 7, 1, read_write},
                   {0x2200, 8, 1, read_write}}},
        BoardCase{
            "sizes_are_rounded_up_to_bytes",
            {{{1, "RPDO", 0, {{0x2000, 0, 1, ""}, {0x2001, 0, 9, ""}, {0x2002, 0, 32, ""}}}}, {}},
            {{0x2000, 0, 1, read_write}, {0x2001, 0, 2, read_write}, {0x2002, 0, 4, read_write}}},
        BoardCase{"the_longest_mapping_gives_the_size",
                  {{{1, "TPDO", 0, {{0x2000, 0, 8, ""}}},
                    {2, "TPDO", 0, {{0x2000, 0, 24, ""}}},
                    {3, "TPDO", 0, {{0x2000, 0, 16, ""}}}},
                   {}},
                  {{0x2000, 0, 3, read_only}}},
        BoardCase{"one_rpdo_makes_it_writable",
                  {{{1, "RPDO", 0, {{0x2000, 0, 8, ""}}},
                    {1, "TPDO", 0, {{0x2000, 0, 8, ""}, {0x2001, 0, 8, ""}}}},
                   {}},
                  {{0x2000, 0, 1, read_write}, {0x2001, 0, 1, read_only}}},
        BoardCase{"other_directions_are_sent_by_the_node",
                  {{{1, "rpdo", 0, {{0x2000, 0, 8, ""}}}}, {}},
                  {{0x2000, 0, 1, read_only}}},
        BoardCase{"dummies_are_no_objects",
                  {{{1, "RPDO", 0, {{0x0005, 0, 8, ""}, {0x2000, 0, 0, ""}}}}, {}},
                  {}},
        BoardCase{"drive_objects_keep_size_and_access",
                  {{{1, "RPDO", 0, {{0x6040, 0, 8, ""}, {0x6041, 0, 16, ""}, {0x6060, 0, 16, ""}}}},
                   {{"drive", {"ci402", 0x6040, 0}}}},
                  drive_at_6040()},
        BoardCase{"communication_objects_keep_size_and_access",
                  {{{1, "RPDO", 0, {{0x1001, 0, 16, ""}, {0x1018, 1, 8, ""}}}}, {}},
                  {}},
        BoardCase{"drive_objects_are_mapped_under_a_sub_index",
                  {{{1, "RPDO", 0, {{0x6040, 1, 8, ""}}}}, {{"drive", {"ci402", 0x6040, 0}}}},
                  [] {
                    std::vector<Shape> objects = drive_at_6040();
                    objects.insert(objects.begin() + 2, {0x6040, 1, 1, read_write});
                    return objects;
                  }()}),
    name_of);

TEST(BoardObjectsTest, sub_index_0_holds_the_highest_sub_index) {
  const ObjectDictionary dictionary =
      node_objects(5, {{{1, "RPDO", 0, {{0x2200, 12, 8, ""}, {0x3000, 3, 8, ""}}}},
                       {{"claw", {"claw", 0x6040, 0x2300}},
                        {"io", {"io", 0x2200, 0}},
                        {"more_io", {"io", 0x2400, 0}}}});

  EXPECT_THAT(dictionary.find(0x2200, 0)->value, testing::ElementsAre(12));
  EXPECT_THAT(dictionary.find(0x2300, 0)->value, testing::ElementsAre(9));
  EXPECT_THAT(dictionary.find(0x2400, 0)->value, testing::ElementsAre(8));
  EXPECT_THAT(dictionary.find(0x3000, 0)->value, testing::ElementsAre(3));
}

TEST(BoardObjectsTest, first_device_by_name_wins_a_shared_object) {
  // The second drive's modes of operation lie on the first one's position actual value.
  const ObjectDictionary dictionary =
      node_objects(5, {{}, {{"b", {"ci402", 0x6044, 0}}, {"a", {"ci402", 0x6040, 0}}}});

  EXPECT_EQ(dictionary.find(0x6064, 0)->value.size(), 4U);
  EXPECT_EQ(dictionary.find(0x6064, 0)->access, read_only);
}

}  // namespace
}  // namespace velmora_can_bridge
