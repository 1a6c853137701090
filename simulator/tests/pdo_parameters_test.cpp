#include "pdo_parameters.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ground/little_endian.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

/// One access of a master to a parameter, and what it is answered.
struct Write {
  ObjectAddress at;
  std::uint32_t value;
  std::optional<SdoAbort> answer;
};

/// A node with RPDO 1, which maps a word, and TPDO 1, which maps a byte.
ObjectDictionary sample_objects() {
  ObjectDictionary objects;
  const auto add = [&](std::uint16_t index, ObjectAccess access, std::size_t size) {
    objects.add(index, 0, {access, std::vector<std::uint8_t>(size)});
  };
  add(0x1000, ObjectAccess::read_only, 4);
  add(0x1001, ObjectAccess::read_only, 1);
  add(0x2000, ObjectAccess::read_write, 2);
  add(0x2001, ObjectAccess::read_only, 1);
  add(0x2002, ObjectAccess::write_only, 4);
  add(0x2003, ObjectAccess::read_write, 8);
  objects.add(0x2004, 0, {ObjectAccess::read_write, {'a'}, true});
  add_pdo_parameters(
      objects, 5,
      {{{1, "RPDO", 0, {{0x2000, 0, 16, ""}}}, {1, "TPDO", 0, {{0x2001, 0, 8, ""}}}}, {}});
  return objects;
}

std::optional<SdoAbort> write(ObjectDictionary& objects, const Write& access) {
  const ObjectEntry& entry = *objects.find(access.at.index, access.at.sub_index);
  const std::vector<std::uint8_t> value = little_endian_bytes(access.value, entry.value.size());
  const auto refusal = pdo_parameter_refusal(objects, access.at, value);
  if (!refusal) {
    objects.store(access.at.index, access.at.sub_index, value);
  }
  return refusal;
}

constexpr ObjectAddress rpdo_cob_id{0x1400, 1};
constexpr ObjectAddress rpdo_type{0x1400, 2};
constexpr ObjectAddress rpdo_count{0x1600, 0};
constexpr ObjectAddress rpdo_entry_1{0x1600, 1};
constexpr ObjectAddress rpdo_entry_2{0x1600, 2};
constexpr ObjectAddress tpdo_cob_id{0x1800, 1};
constexpr ObjectAddress tpdo_type{0x1800, 2};
constexpr ObjectAddress tpdo_inhibit{0x1800, 3};
constexpr ObjectAddress tpdo_event{0x1800, 5};
constexpr ObjectAddress tpdo_count{0x1A00, 0};
constexpr ObjectAddress tpdo_entry_1{0x1A00, 1};

constexpr std::nullopt_t taken = std::nullopt;
constexpr Write disable_rpdo{rpdo_cob_id, 0x80000205, taken};
constexpr Write unmap_rpdo{rpdo_count, 0, taken};
constexpr Write disable_tpdo{tpdo_cob_id, 0x80000185, taken};
constexpr Write unmap_tpdo{tpdo_count, 0, taken};

struct SequenceCase {
  std::string name;
  std::vector<Write> writes;
};

void PrintTo(const SequenceCase& row, std::ostream* out) { *out << row.name; }

class PdoParameterWrites : public testing::TestWithParam<SequenceCase> {};

TEST_P(PdoParameterWrites, are_answered_as_the_profile_has_it) {
  ObjectDictionary objects = sample_objects();
  int step = 0;
  for (const Write& each : GetParam().writes) {
    EXPECT_EQ(write(objects, each), each.answer) << "write " << ++step;
  }
}

INSTANTIATE_TEST_SUITE_P(
    of, PdoParameterWrites,
    testing::Values(
        SequenceCase{"a_new_mapping",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0x20030040, taken},
                      {rpdo_count, 1, taken},
                      {rpdo_cob_id, 0x333, taken}}},
        SequenceCase{"the_same_again",
                     {{rpdo_cob_id, 0x205, taken}, {tpdo_cob_id, 0x40000185, taken}}},
        SequenceCase{"cob_id_while_enabled", {{rpdo_cob_id, 0x333, SdoAbort::invalid_value}}},
        SequenceCase{"cob_id_by_way_of_bit_31",
                     {{rpdo_cob_id, 0x80000333, taken}, {rpdo_cob_id, 0x334, taken}}},
        SequenceCase{"cob_id_of_29_bits",
                     {disable_rpdo,
                      {rpdo_cob_id, 0x20000333, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x80000800, SdoAbort::invalid_value}}},
        SequenceCase{"reserved_cob_ids",
                     {disable_rpdo,
                      {rpdo_cob_id, 0x000, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x07F, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x101, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x180, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x581, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x67F, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x6E0, SdoAbort::invalid_value},
                      {rpdo_cob_id, 0x7FF, SdoAbort::invalid_value}}},
        SequenceCase{"lowest_cob_id_of_a_pdo", {disable_rpdo, {rpdo_cob_id, 0x181, taken}}},
        SequenceCase{"highest_cob_id_of_the_predefined_set",
                     {disable_rpdo, {rpdo_cob_id, 0x57F, taken}}},
        SequenceCase{"enabling_what_maps_nothing",
                     {disable_rpdo, unmap_rpdo, {rpdo_cob_id, 0x205, SdoAbort::invalid_value}}},
        SequenceCase{"transmission_types",
                     {{tpdo_type, 0, taken},
                      {tpdo_type, 240, taken},
                      {tpdo_type, 241, SdoAbort::invalid_value},
                      {tpdo_type, 252, SdoAbort::invalid_value},
                      {tpdo_type, 253, SdoAbort::invalid_value},
                      {tpdo_type, 254, taken},
                      {tpdo_type, 255, taken},
                      {rpdo_type, 252, SdoAbort::invalid_value},
                      {rpdo_type, 1, taken}}},
        SequenceCase{"times",
                     {{tpdo_event, 100, taken},
                      {tpdo_inhibit, 0, taken},
                      {tpdo_inhibit, 10, SdoAbort::invalid_value},
                      disable_tpdo,
                      {tpdo_inhibit, 10, taken}}},
        SequenceCase{"mapping_while_enabled",
                     {{rpdo_count, 0, SdoAbort::unsupported_access},
                      {rpdo_count, 1, SdoAbort::unsupported_access},
                      {rpdo_entry_1, 0x20000010, SdoAbort::unsupported_access}}},
        SequenceCase{"entries_while_they_count",
                     {disable_rpdo, {rpdo_entry_1, 0x20000010, SdoAbort::unsupported_access}}},
        SequenceCase{"objects_that_are_not_there",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0x2FFF0008, SdoAbort::no_such_object},
                      {rpdo_entry_1, 0x20000108, SdoAbort::no_such_sub_index}}},
        SequenceCase{"objects_that_no_rpdo_carries",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0x20010008, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x10010008, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x14000220, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x20040008, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x20020020, taken}}},
        SequenceCase{"objects_that_no_tpdo_carries",
                     {disable_tpdo,
                      unmap_tpdo,
                      {tpdo_entry_1, 0x20020020, SdoAbort::not_mappable},
                      {tpdo_entry_1, 0x10000020, SdoAbort::not_mappable},
                      {tpdo_entry_1, 0x10010008, taken},
                      {tpdo_entry_1, 0x20000010, taken}}},
        SequenceCase{"lengths_of_an_object",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0x20000000, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x20000011, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x20000001, taken},
                      {rpdo_entry_1, 0x20000010, taken}}},
        SequenceCase{"dummies_and_empty_entries",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0x00050000, SdoAbort::not_mappable},
                      {rpdo_entry_1, 0x00050008, taken},
                      {rpdo_entry_2, 0, taken},
                      {rpdo_count, 1, taken},
                      disable_tpdo,
                      unmap_tpdo,
                      {tpdo_entry_1, 0x00050008, SdoAbort::not_mappable}}},
        SequenceCase{"an_empty_entry_that_counts",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0, taken},
                      {rpdo_count, 1, SdoAbort::no_such_object}}},
        SequenceCase{"more_than_a_frame",
                     {disable_rpdo,
                      unmap_rpdo,
                      {rpdo_entry_1, 0x20030040, taken},
                      {rpdo_entry_2, 0x20000001, taken},
                      {rpdo_count, 2, SdoAbort::pdo_too_long},
                      {rpdo_count, 65, SdoAbort::pdo_too_long},
                      {rpdo_count, 1, taken}}}),
    [](const testing::TestParamInfo<SequenceCase>& row) { return row.param.name; });

TEST(PdoParameters, of_no_pdo_are_none) {
  const ObjectDictionary objects = sample_objects();
  EXPECT_EQ(pdo_parameter_refusal(objects, {0x2000, 0}, {1, 2}), std::nullopt);
  EXPECT_EQ(pdo_parameter_refusal(objects, {0x14FF, 2}, {252}), std::nullopt);
}

TEST(PdoParameters, tell_which_pdo_they_belong_to) {
  const auto name = [](std::uint16_t index) {
    const std::optional<PdoName> pdo = pdo_with_parameters_at(index);
    return pdo ? pdo_text(pdo->direction, pdo->number) : "";
  };
  EXPECT_EQ(name(0x13FF), "");
  EXPECT_EQ(name(0x1400), "RPDO 1");
  EXPECT_EQ(name(0x14FE), "RPDO 255");
  EXPECT_EQ(name(0x14FF), "");
  EXPECT_EQ(name(0x1601), "RPDO 2");
  EXPECT_EQ(name(0x1800), "TPDO 1");
  EXPECT_EQ(name(0x1AFE), "TPDO 255");
  EXPECT_EQ(name(0x1AFF), "");
}

TEST(NodePdosTest, show_what_the_objects_hold) {
  ObjectDictionary objects = sample_objects();
  NodePdos pdos(objects);
  for (const Write& each :
       {disable_tpdo, Write{tpdo_inhibit, 11, taken}, Write{tpdo_event, 500, taken},
        Write{tpdo_type, 3, taken}, unmap_tpdo, Write{tpdo_entry_1, 0x20000008, taken},
        Write{tpdo_count, 1, taken}, Write{tpdo_cob_id, 0x40000333, taken}}) {
    ASSERT_EQ(write(objects, each), taken);
    pdos.refresh(objects, each.at.index);
  }

  const PdoParameters& tpdo = *pdos.find(PdoDirection::tpdo, 1);
  EXPECT_EQ(tpdo.cob_id, 0x333);
  EXPECT_EQ(tpdo.transmission, 3);
  EXPECT_EQ(tpdo.inhibit_time, milliseconds(2)) << "1.1 ms rounded up";
  EXPECT_EQ(tpdo.event_timer, milliseconds(500));
  ASSERT_EQ(tpdo.mappings.size(), 1U);
  EXPECT_EQ(tpdo.mappings[0].index, 0x2000);
  EXPECT_EQ(tpdo.mappings[0].bit_length, 8);

  const PdoParameters& rpdo = *pdos.find(PdoDirection::rpdo, 1);
  EXPECT_EQ(rpdo.cob_id, 0x205);
  EXPECT_EQ(rpdo.mappings[0].index, 0x2000);
}

TEST(NodePdosTest, has_no_cob_id_while_disabled) {
  ObjectDictionary objects = sample_objects();
  NodePdos pdos(objects);
  write(objects, disable_rpdo);
  EXPECT_NE(pdos.find(PdoDirection::rpdo, 1)->cob_id, std::nullopt);

  pdos.refresh(objects);

  EXPECT_EQ(pdos.find(PdoDirection::rpdo, 1)->cob_id, std::nullopt);
}

TEST(NodePdosTest, knows_those_of_the_start_alone) {
  ObjectDictionary objects = sample_objects();
  NodePdos pdos(objects);
  objects.add(0x1401, 1, {ObjectAccess::read_write, {0, 0, 0, 0}});
  pdos.refresh(objects, 0x1401);

  EXPECT_EQ(pdos.find(PdoDirection::rpdo, 2), nullptr);
  EXPECT_EQ(pdos.all(PdoDirection::rpdo).size(), 1U);
}

}  // namespace
}  // namespace velmora_can_bridge
