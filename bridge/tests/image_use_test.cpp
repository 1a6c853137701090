#include "image_use.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

using testing::ElementsAreArray;
using Bytes = std::vector<std::uint8_t>;
using Marks = std::vector<bool>;

constexpr std::uint8_t torque_mode = 4;

NodeConfig node() {
  NodeConfig config;
  config.node_id = 0x10;
  config.board.pdos = {
      {1,
       "RPDO",
       0,
       {{0x2000, 1, 8, "a"}, {0x2000, 2, 16, "b"}, {0x0005, 0, 8, ""}, {0x2000, 3, 4, "nibble"}}},
      {1, "TPDO", 0, {{0x2000, 9, 8, "other way"}}},
      {2, "RPDO", 0, {{0x2001, 1, 32, "c"}, {0x2001, 2, 32, "d"}, {0x2001, 3, 16, "beyond"}}},
      {1, "RPDO", 0, {{0x2002, 1, 8, "over a"}}},
      {3, "RPDO", 0, {{0x60FF, 0, 32, "velocity"}, {0x6060, 0, 8, "mode"}}},
      {4, "RPDO", 0, {{0x6071, 0, 16, "torque"}, {0x607A, 0, 32, "position"}}},
      {5, "RPDO", 0, {{0x2003, 1, 32, "channel 1"}, {0x2003, 2, 16, "channel 2"}}}};
  config.board.device_od_map = {{"io", {"io", 0x2000, 0}}, {"wheel", {"ci402", 0x6040, 0}}};
  return config;
}

OperationConfig op(const std::string& kind, std::uint8_t rpdo = 0,
                   const std::vector<std::string>& fields = {}) {
  OperationConfig config;
  config.kind = kind;
  config.pdo_number = rpdo;
  config.fields = fields;
  return config;
}

template <typename Change>
OperationConfig with(OperationConfig config, const Change& change) {
  change(config);
  return config;
}

TEST(ImageFields, are_those_that_a_load_reads) {
  const NodeConfig config = node();
  const auto first = image_fields(config.board, 1);
  ASSERT_EQ(first.size(), 3U);
  EXPECT_EQ(first[1].mapping->field, "b");
  EXPECT_EQ(first[1].offset, 1U);
  EXPECT_EQ(first[1].length, 2U);
  EXPECT_EQ(first[2].mapping->field, "over a");
  EXPECT_EQ(first[2].offset, 0U);
  EXPECT_EQ(image_fields(config.board, 2).size(), 2U) << "one lies beyond the frame";
  EXPECT_TRUE(image_fields(config.board, 9).empty());
}

struct UseCase {
  std::string name;
  OperationConfig op;
  std::string device;
  Bytes payload;
  /// The frame that it sends, from an image of zeros.
  std::uint8_t rpdo;
  Bytes frame;
  /// Of its fields in order.
  Marks written;
  std::uint8_t mode = 0;
};

void PrintTo(const UseCase& row, std::ostream* out) { *out << row.name; }

class ImageUse : public testing::TestWithParam<UseCase> {};

TEST_P(ImageUse, is_known_from_the_call) {
  const UseCase& row = GetParam();
  const NodeConfig config = node();
  const CalledOperation call{config, row.device, row.name, row.op, row.payload};
  const auto load = image_load(call, row.mode);
  ASSERT_TRUE(load);
  EXPECT_EQ(load->rpdo, row.rpdo);
  const Transfer frame{TransferKind::rpdo, 0x10, 0, 0, row.rpdo, row.frame, {}};
  EXPECT_THAT(written_whole(call, row.mode, frame), ElementsAreArray(row.written));
}

INSTANTIATE_TEST_SUITE_P(of, ImageUse,
                         testing::Values(
                             UseCase{"pdo_write_of_one",
                                     op("pdo_write", 1, {"b"}),
                                     "io",
                                     {5, 6},
                                     1,
                                     {0, 5, 6, 0, 0},
                                     Marks{false, true, false}},
                             UseCase{"pdo_write_that_is_short",
                                     with(op("pdo_write", 1), [](auto& op) { op.field = "b"; }),
                                     "io",
                                     {5},
                                     1,
                                     {0, 5, 0, 0, 0},
                                     Marks{false, false, false}},
                             UseCase{"pdo_write_over_another_entry",
                                     op("pdo_write", 1, {"a", "b"}),
                                     "io",
                                     {4, 5, 6},
                                     1,
                                     {4, 5, 6, 0, 0},
                                     Marks{true, true, true}},
                             UseCase{"pdo_patch_that_is_short",
                                     op("pdo_patch", 2, {"c", "d"}),
                                     "io",
                                     {1, 2, 3, 4, 5},
                                     2,
                                     {1, 2, 3, 4, 0, 0, 0, 0},
                                     Marks{true, false}},
                             UseCase{"auto_write",
                                     with(op("auto_write"),
                                          [](auto& op) {
                                            op.index = 0x2001;
                                            op.sub_index = 2;
                                            op.data_type = "u32";
                                          }),
                                     "io",
                                     {1, 2, 3, 4},
                                     2,
                                     {0, 0, 0, 0, 1, 2, 3, 4},
                                     Marks{false, true}},
                             UseCase{"another_frame_than_it_sends",
                                     op("pdo_write", 1, {"b"}),
                                     "io",
                                     {5, 6},
                                     1,
                                     {0, 7, 6, 0, 0},
                                     Marks{false, false, false}},
                             UseCase{"bit_patch_of_all_bits",
                                     with(op("bit_patch", 1), [](auto& op) { op.field = "a"; }),
                                     "io",
                                     {0xFF, 1},
                                     1,
                                     {1, 0, 0, 0, 0},
                                     Marks{false, false, false}},
                             UseCase{"pdo_bit_patch",
                                     op("pdo_bit_patch", 1, {"a"}),
                                     "io",
                                     {1, 0, 1},
                                     1,
                                     {1, 0, 0, 0, 0},
                                     Marks{false, false, false}},
                             UseCase{"target_in_velocity_mode",
                                     op("ci402_set_target"),
                                     "wheel",
                                     {1, 2},
                                     3,
                                     {1, 2, 0, 0, 0},
                                     Marks{true, false},
                                     3},
                             UseCase{"mode_0_writes_no_mode_of_its_image",
                                     op("pdo_write", 3, {"velocity"}),
                                     "wheel",
                                     {1, 2, 3, 4},
                                     3,
                                     {1, 2, 3, 4, 0},
                                     Marks{true, false},
                                     0},
                             UseCase{"target_in_torque_mode",
                                     op("ci402_set_target"),
                                     "wheel",
                                     {1, 2},
                                     4,
                                     {1, 2, 0, 0, 0, 0},
                                     Marks{true, false},
                                     torque_mode},
                             UseCase{"target_in_position_mode",
                                     op("ci402_set_target"),
                                     "wheel",
                                     {1, 2},
                                     4,
                                     {0, 0, 1, 2, 0, 0},
                                     Marks{false, true},
                                     1},
                             UseCase{"od_io_write",
                                     op("od_io_write"),
                                     "io",
                                     {1, 0, 2, 1, 2, 3, 4},
                                     2,
                                     {0, 0, 0, 0, 1, 2, 3, 4},
                                     Marks{false, true}},
                             UseCase{"od_io_write_that_is_short",
                                     op("od_io_write"),
                                     "io",
                                     {1, 0, 2, 1},
                                     2,
                                     {0, 0, 0, 0, 1, 0, 0, 0},
                                     Marks{false, false}},
                             UseCase{"pump_of_two_bytes",
                                     with(op("pump_duty"),
                                          [](auto& op) {
                                            op.index = 0x2003;
                                            op.pump_pdo_number = 5;
                                            op.rpdo_channels = {1, 2};
                                          }),
                                     "io",
                                     {2, 7, 8},
                                     5,
                                     {0, 0, 0, 0, 7, 8},
                                     Marks{false, true}},
                             UseCase{"pump_of_four_bytes",
                                     with(op("pump_duty"),
                                          [](auto& op) {
                                            op.index = 0x2003;
                                            op.pump_pdo_number = 5;
                                            op.rpdo_channels = {1, 2};
                                          }),
                                     "io",
                                     {1, 7, 8},
                                     5,
                                     {7, 8, 0, 0, 0, 0},
                                     Marks{false, false}}),
                         [](const testing::TestParamInfo<UseCase>& row) { return row.param.name; });

struct LoadCase {
  std::string name;
  OperationConfig op;
  std::string device;
  Bytes payload;
  /// "none", "load 1" or "refresh 1".
  std::string load;
};

void PrintTo(const LoadCase& row, std::ostream* out) { *out << row.name; }

class ImageLoads : public testing::TestWithParam<LoadCase> {};

TEST_P(ImageLoads, are_known_from_the_call) {
  const LoadCase& row = GetParam();
  const NodeConfig config = node();
  const auto load = image_load({config, row.device, row.name, row.op, row.payload}, 0);
  EXPECT_EQ(load ? (load->is_refresh ? "refresh " : "load ") + std::to_string(load->rpdo) : "none",
            row.load);
}

const auto refresh = [](OperationConfig& config) { config.refresh_shadow = 1; };
const auto by_sdo = [](OperationConfig& config) { config.transport = "sdo"; };
const auto set_color = [](OperationConfig& config) { config.led_operation = "set_color"; };
const auto set_led = [](OperationConfig& config) { config.led_operation = "set_led"; };

INSTANTIATE_TEST_SUITE_P(
    of, ImageLoads,
    testing::Values(
        LoadCase{"sdo_read", with(op("sdo_read", 1), refresh), "io", {}, "none"},
        LoadCase{"refreshed_write", with(op("pdo_write", 1), refresh), "io", {}, "refresh 1"},
        LoadCase{"write_by_sdo", with(op("pdo_write", 1), by_sdo), "io", {}, "none"},
        LoadCase{"bits_by_sdo", with(op("bit_patch", 1), by_sdo), "io", {}, "none"},
        LoadCase{
            "bits_that_know_no_refresh", with(op("bit_patch", 1), refresh), "io", {}, "load 1"},
        LoadCase{"bit_by_sdo", with(op("pdo_bit_patch", 1), by_sdo), "io", {}, "load 1"},
        LoadCase{"colour", with(op("led_write", 1), set_color), "io", {}, "refresh 1"},
        LoadCase{"whole_led", with(op("led_write", 1), set_led), "io", {}, "load 1"},
        LoadCase{"target_by_sdo", with(op("ci402_set_target"), by_sdo), "wheel", {1, 2}, "none"},
        LoadCase{"target_of_nobody", op("ci402_set_target"), "nobody", {1, 2}, "none"},
        LoadCase{"object_that_nothing_maps", op("od_io_write"), "io", {9, 0, 1, 1}, "none"},
        LoadCase{"object_with_too_little", op("od_io_write"), "io", {9, 0}, "none"},
        LoadCase{"object_by_sdo", with(op("od_io_write"), by_sdo), "io", {1, 0, 2, 1}, "none"},
        LoadCase{"pump_by_sdo", with(op("pump_duty"), by_sdo), "io", {1, 2, 3}, "none"}),
    [](const testing::TestParamInfo<LoadCase>& row) { return row.param.name; });

TEST(MirroredWrites, are_the_last_controlword_and_the_mode) {
  const NodeConfig config = node();
  const std::string wheel = "wheel";
  const auto is_repeated = [&](const std::string& kind, const std::string& action,
                               std::uint16_t index, const Bytes& data) {
    OperationConfig drive = op(kind);
    drive.action = action;
    const Bytes none;
    return is_mirrored({config, wheel, kind, drive, none},
                       {TransferKind::sdo_write, 0x10, index, 0, 0, data, {}});
  };
  EXPECT_FALSE(is_repeated("ci402_enable", "", 0x6060, {3}));
  EXPECT_FALSE(is_repeated("ci402_enable", "", 0x6040, {6, 0}));
  EXPECT_TRUE(is_repeated("ci402_enable", "", 0x6040, {15, 0}));
  EXPECT_TRUE(is_repeated("ci402_disable", "", 0x6040, {6, 0}));
  EXPECT_FALSE(is_repeated("ci402_quick_stop", "", 0x6040, {2, 0}));
  EXPECT_TRUE(is_repeated("ci402_set_mode", "", 0x6060, {1}));
  EXPECT_FALSE(is_repeated("ci402_ramp", "", 0x6083, {1, 0, 0, 0}));
  EXPECT_TRUE(is_repeated("claw_action", "home", 0x6060, {6}));
  EXPECT_FALSE(is_repeated("claw_action", "home", 0x6040, {15, 0}));
  EXPECT_TRUE(is_repeated("claw_action", "home", 0x6040, {31, 0}));
  EXPECT_TRUE(is_repeated("claw_action", "extend", 0x6040, {15, 0}));
  EXPECT_FALSE(is_repeated("sdo_write", "", 0x6040, {15, 0}));
}

}  // namespace
}  // namespace velmora_can_bridge
