#include "node_parameters.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ground/little_endian.hpp"
#include "object_numbers.hpp"

namespace velmora_can_bridge {
namespace {

struct ParameterWrite {
  ObjectAddress at;
  std::uint32_t value;
  std::optional<SdoAbort> answer;
};

constexpr ObjectAddress history{0x1003, 0};
constexpr ObjectAddress sync{0x1005, 0};
constexpr ObjectAddress emergency{0x1014, 0};
constexpr ObjectAddress behaviour{0x1029, 1};

constexpr ObjectAddress consumer(std::uint8_t sub_index) { return {0x1016, sub_index}; }

struct NodeParameterCase {
  std::string name;
  std::vector<ParameterWrite> writes;
};

void PrintTo(const NodeParameterCase& row, std::ostream* out) { *out << row.name; }

class NodeParameterWrites : public testing::TestWithParam<NodeParameterCase> {};

TEST_P(NodeParameterWrites, are_answered_as_the_profile_has_it) {
  ObjectDictionary objects;
  add_node_parameters(objects, 5);
  int step = 0;
  for (const ParameterWrite& each : GetParam().writes) {
    ++step;
    const std::size_t size = objects.find(each.at.index, each.at.sub_index)->value.size();
    const std::vector<std::uint8_t> value = little_endian_bytes(each.value, size);
    const auto refusal = node_parameter_refusal(objects, each.at, value);
    EXPECT_EQ(refusal, each.answer) << "write " << step;
    if (!refusal) {
      store_number(objects, each.at, each.value);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    of, NodeParameterWrites,
    testing::Values(NodeParameterCase{"error_history",
                                      {{history, 1, SdoAbort::invalid_value}, {history, 0, {}}}},
                    NodeParameterCase{"sync_cob_id",
                                      {{sync, 0x080, {}},
                                       {sync, 0x100, {}},
                                       {sync, 0x40000080, SdoAbort::invalid_value},
                                       {sync, 0x20000080, SdoAbort::invalid_value},
                                       {sync, 0x07F, SdoAbort::invalid_value},
                                       {sync, 0x800, SdoAbort::invalid_value}}},
                    NodeParameterCase{"signatures",
                                      {{{0x1010, 1}, 0x65766173, {}},
                                       {{0x1010, 1}, 0x64616F6C, SdoAbort::cannot_store},
                                       {{0x1010, 1}, 1, SdoAbort::cannot_store},
                                       {{0x1011, 1}, 0x64616F6C, {}},
                                       {{0x1011, 1}, 0x65766173, SdoAbort::cannot_store}}},
                    NodeParameterCase{"emergency_cob_id",
                                      {{emergency, 0x085, {}},
                                       {emergency, 0x086, SdoAbort::invalid_value},
                                       {emergency, 0x80000086, {}},
                                       {emergency, 0x101, SdoAbort::invalid_value},
                                       {emergency, 0x20000086, SdoAbort::invalid_value},
                                       {emergency, 0x086, {}}}},
                    NodeParameterCase{"consumer_heartbeats",
                                      {{consumer(1), 0x007F0064, {}},
                                       {consumer(2), 0x007F0065, SdoAbort::parameter_incompatible},
                                       {consumer(1), 0x007F0065, {}},
                                       {consumer(2), 0x007F0000, {}},
                                       {consumer(8), 0x007E0064, {}},
                                       {consumer(3), 0x017E0064, SdoAbort::invalid_value},
                                       {consumer(3), 0x00800064, {}}}},
                    NodeParameterCase{"error_behaviour",
                                      {{behaviour, 0, {}},
                                       {behaviour, 2, {}},
                                       {behaviour, 3, SdoAbort::invalid_value}}},
                    NodeParameterCase{"heartbeat_time", {{{0x1017, 0}, 0xFFFF, {}}}}),
    [](const testing::TestParamInfo<NodeParameterCase>& row) { return row.param.name; });

TEST(NodeParameters, have_no_emergency_cob_id_without_a_node_id) {
  for (const std::uint8_t node_id : std::vector<std::uint8_t>{0, 128}) {
    ObjectDictionary objects;
    add_node_parameters(objects, node_id);
    EXPECT_EQ(number_at(objects, emergency), 0x80000000U);
  }
}

TEST(NodeParameters, watch_the_heartbeats_that_have_a_node_and_a_time) {
  ObjectDictionary objects;
  add_node_parameters(objects, 5);
  store_number(objects, consumer(2), 0x007F01F4);
  store_number(objects, consumer(3), 0x007E0000);
  store_number(objects, consumer(4), 0x00800064);
  store_number(objects, consumer(8), 0x00010064);

  const std::vector<HeartbeatConsumer> consumers = consumers_of(objects);
  ASSERT_EQ(consumers.size(), 2U);
  EXPECT_EQ(consumers[0].node_id, 127);
  EXPECT_EQ(consumers[0].time.count(), 500);
  EXPECT_EQ(consumers[1].node_id, 1);
}

TEST(ErrorHistory, keeps_the_latest_before_the_older) {
  ObjectDictionary objects;
  add_node_parameters(objects, 5);
  EXPECT_TRUE(is_empty_error(objects, {0x1003, 1}));
  EXPECT_FALSE(is_empty_error(objects, {0x1003, 9})) << "there is no such object";
  for (std::uint32_t error = 1; error <= 10; ++error) {
    keep_error(objects, error);
    EXPECT_EQ(number_at(objects, history), error < 8 ? error : 8);
    EXPECT_FALSE(is_empty_error(objects, {0x1003, 1}));
    EXPECT_EQ(is_empty_error(objects, {0x1003, 8}), error < 8);
  }
  for (std::uint8_t sub_index = 1; sub_index <= 8; ++sub_index) {
    EXPECT_EQ(number_at(objects, {0x1003, sub_index}), 11U - sub_index);
  }
}

}  // namespace
}  // namespace velmora_can_bridge
