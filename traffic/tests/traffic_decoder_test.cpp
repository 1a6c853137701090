#include "velmora_can_bridge/traffic/traffic_decoder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/traffic/traffic_text.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* board_text = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      led: {profile: io, base_index: 0x2000}
      inside: {profile: io, base_index: 0x6500}
      claw: {profile: claw, base_index: 0x7040, homing_record: 0x2100}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x60FF, bit_length: 32, field: velocity}
          - {index: 0x0005, bit_length: 8}
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: red}
      - {number: 5, direction: RPDO, cob_id: 0x690, mappings: [{index: 0x2300, bit_length: 64}]}
      - {number: 6, direction: RPDO, mappings: [{index: 0x2301, bit_length: 8}]}
      - {number: 7, direction: RPDO, cob_id: 0x691, mappings: [{index: 0x2200, sub_index: 1, bit_length: 16}]}
      - {number: 2, direction: TPDO, cob_id: 0x300, mappings: [
         {index: 0x2001, bit_length: 1}, {index: 0x2002, bit_length: 7}, {index: 0x6077, bit_length: 12}]}
      - {number: 1, direction: TPDO, shared_cob_id: true, mappings: [{index: 0x6041, bit_length: 16}]}
    operations:
      read_identity: {kind: read_multi, index: 0x1018, sub_indices: [1, 2]}
      read_vendor: {kind: sdo_read, index: 0x1018, sub_index: 1}
      set_offset: {kind: sdo_write, index: 0x2400, data_type: s16}
      set_any: {kind: sdo_write, index: 0x2500, subindex_in_payload: true}
      set_pump: {kind: pump_duty, index: 0x2200, pump_pdo_number: 7, rpdo_channels: [1], sdo_channels: [3]}
  - node_id: 0x11
    pdos:
      - {number: 2, direction: RPDO, cob_id: 0x190, shared_cob_id: true, mappings: [{index: 0x2000, bit_length: 8}]}
)";

class TrafficDecoderTest : public testing::Test {
 protected:
  /// The line without its time.
  std::string line(std::uint16_t id, const std::vector<std::uint8_t>& data) {
    CanFrame frame{id, static_cast<std::uint8_t>(data.size()), {}};
    std::copy(data.begin(), data.end(), frame.data.begin());
    return traffic_text(milliseconds(0), decoder.decode(frame)).substr(10);
  }

  nlohmann::ordered_json json(std::uint16_t id, const std::vector<std::uint8_t>& data) {
    CanFrame frame{id, static_cast<std::uint8_t>(data.size()), {}};
    std::copy(data.begin(), data.end(), frame.data.begin());
    return nlohmann::ordered_json::parse(traffic_json(milliseconds(1500), decoder.decode(frame)));
  }

  LoadedBoard board = parse_board(board_text);
  TrafficDecoder decoder{board.file.value()};
};

struct FrameCase {
  std::string name;
  std::uint16_t id;
  std::vector<std::uint8_t> data;
  std::string line;
};

void PrintTo(const FrameCase& row, std::ostream* out) { *out << row.name; }

std::string row_name(const testing::TestParamInfo<FrameCase>& row) { return row.param.name; }

class SingleFrame : public TrafficDecoderTest, public testing::WithParamInterface<FrameCase> {};

TEST_P(SingleFrame, is_told_in_words) {
  EXPECT_EQ(line(GetParam().id, GetParam().data), GetParam().line);
}

const std::vector<FrameCase> service_cases{
    {"nmt_start_all", 0, {1, 0}, "all nodes  NMT        start"},
    {"nmt_stop", 0, {2, 0x10}, "node 0x10  NMT        stop"},
    {"nmt_pre_operational", 0, {128, 0x10}, "node 0x10  NMT        enter pre-operational"},
    {"nmt_reset_node", 0, {129, 0x10}, "node 0x10  NMT        reset node"},
    {"nmt_reset_communication", 0, {130, 0x10}, "node 0x10  NMT        reset communication"},
    {"nmt_unknown", 0, {7, 0x10}, "node 0x10  NMT        unknown command 0x07"},
    {"nmt_to_a_strange_node", 0, {1, 0x33}, "node 0x33 (not in the board file)  NMT        start"},
    {"nmt_to_no_node", 0, {1, 200}, "           NMT        start (0xC8 is no node id)"},
    {"nmt_short", 0, {1}, "           NMT        01 (1 byte, an NMT command has 2)"},
    {"nmt_long", 0, {1, 0x10, 3}, "           NMT        01 10 03 (3 bytes, an NMT command has 2)"},
    {"boot_up", 0x710, {0}, "node 0x10  boot-up"},
    {"operational", 0x710, {5}, "node 0x10  heartbeat  operational"},
    {"stopped", 0x710, {4}, "node 0x10  heartbeat  stopped"},
    {"pre_operational", 0x710, {127}, "node 0x10  heartbeat  pre-operational"},
    {"guarding_toggle_bit_is_no_state", 0x710, {0x85}, "node 0x10  heartbeat  operational"},
    {"strange_state", 0x710, {9}, "node 0x10  heartbeat  unknown state 0x09"},
    {"heartbeat_empty", 0x710, {}, "node 0x10  heartbeat   (0 bytes, a heartbeat has 1)"},
    {"heartbeat_long", 0x710, {5, 0}, "node 0x10  heartbeat  05 00 (2 bytes, a heartbeat has 1)"},
    {"heartbeat_of_no_node", 0x700, {5}, "           0x0700     05"},
    {"emergency",
     0x090,
     {0x10, 0x82, 0x11, 3, 4, 5, 6, 7},
     "node 0x10  emergency  error 0x8210 (PDO not taken: its length is wrong), "
     "error register 0x11 (generic, communication), data 03 04 05 06 07"},
    {"emergency_over",
     0x090,
     {0, 0, 0, 0, 0, 0, 0, 0},
     "node 0x10  emergency  no error any more, error register 0x00 (no error), data 00 00 00 00 "
     "00"},
    {"emergency_of_no_class",
     0x090,
     {0, 0xA0, 0, 0, 0, 0, 0, 0},
     "node 0x10  emergency  error 0xA000, error register 0x00 (no error), data 00 00 00 00 00"},
    {"emergency_short",
     0x090,
     {0x10, 0x82, 0x11},
     "node 0x10  emergency  10 82 11 (3 bytes, an emergency has 8)"},
    {"sync", 0x080, {}, "           SYNC"},
    {"sync_with_counter", 0x080, {9}, "           SYNC       09"},
    {"time", 0x100, {1, 2, 3, 4, 5, 6}, "           TIME       01 02 03 04 05 06"},
    {"raw", 0x7E5, {1, 2}, "           0x07E5     01 02"},
    {"raw_between_the_functions", 0x101, {1}, "           0x0101     01"},
    {"sdo_of_no_node",
     0x600,
     {0x40, 0, 0x10, 0, 0, 0, 0, 0},
     "           0x0600     40 00 10 00 00 00 00 00"},
};

const std::vector<FrameCase> pdo_cases{
    {"rpdo_with_sign_and_dummy",
     0x210,
     {0x0C, 0xFE, 0xFF, 0xFF, 0x77, 0xFF},
     "node 0x10  RPDO 1     wheel 0x60FF/0 (velocity) = 0C FE FF FF (-500), "
     "led 0x2000/1 (red) = FF (255)"},
    {"rpdo_short",
     0x210,
     {1, 0, 0, 0},
     "node 0x10  RPDO 1     wheel 0x60FF/0 (velocity) = 01 00 00 00 (1) "
     "(4 bytes, the mapping needs 6)"},
    {"rpdo_too_short_for_any_field",
     0x210,
     {1, 2, 3},
     "node 0x10  RPDO 1     01 02 03 (3 bytes, the mapping needs 6)"},
    {"rpdo_long",
     0x210,
     {1, 0, 0, 0, 0, 2, 3},
     "node 0x10  RPDO 1     wheel 0x60FF/0 (velocity) = 01 00 00 00 (1), "
     "led 0x2000/1 (red) = 02 (2) (7 bytes, the mapping needs 6)"},
    {"rpdo_with_its_own_cob_id_of_64_bits",
     0x690,
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
     "node 0x10  RPDO 5     0x2300/0 = FF FF FF FF FF FF FF FF (18446744073709551615)"},
    {"tpdo_with_bits",
     0x300,
     {0x83, 0xFF, 0x0F},
     "node 0x10  TPDO 2     0x2001/0 = 01 (1), 0x2002/0 = 41 (65), wheel 0x6077/0 = FF 0F (-1)"},
    {"tpdo_that_another_node_receives",
     0x190,
     {0x37, 0x02},
     "node 0x10  TPDO 1     wheel 0x6041/0 = 37 02 (567, Operation enabled), also RPDO 2 of node "
     "0x11"},
    {"predefined_id_of_a_pdo_with_another_one", 0x290, {1}, "           0x0290     01"},
    {"tpdo_that_the_file_does_not_hold",
     0x390,
     {1, 2},
     "node 0x10  TPDO 3     01 02 (not in the board file)"},
    {"rpdo_that_the_file_does_not_hold",
     0x510,
     {1},
     "node 0x10  RPDO 4     01 (not in the board file)"},
    {"tpdo_of_a_strange_node", 0x1B3, {1}, "node 0x33 (not in the board file)  TPDO 1     01"},
    {"rpdo_of_a_strange_node", 0x233, {}, "node 0x33 (not in the board file)  RPDO 1"},
};

struct PredefinedCase {
  std::uint16_t function;
  std::string pdo;
};

const std::vector<PredefinedCase> predefined_cases{
    {0x180, "TPDO 1"}, {0x200, "RPDO 1"}, {0x280, "TPDO 2"}, {0x300, "RPDO 2"},
    {0x380, "TPDO 3"}, {0x400, "RPDO 3"}, {0x480, "TPDO 4"}, {0x500, "RPDO 4"}};

class TrafficDecoderNodeIds : public testing::Test {
 protected:
  /// The line of a frame with one byte, without its time.
  std::string line(unsigned id) const {
    const CanFrame frame{static_cast<std::uint16_t>(id), 1, {0x21}};
    return traffic_text(milliseconds(0), TrafficDecoder(file).decode(frame)).substr(10);
  }

  BoardFile file;
};

TEST_F(TrafficDecoderNodeIds, from_1_to_127_have_predefined_pdos) {
  for (const auto& [function, pdo] : predefined_cases) {
    EXPECT_EQ(line(function + 0x01), "node 0x01 (not in the board file)  " + pdo + "     21");
    EXPECT_EQ(line(function + 0x7F), "node 0x7F (not in the board file)  " + pdo + "     21");
    EXPECT_THAT(line(function), testing::StartsWith("           0x")) << "no node's";
  }
}

TEST_F(TrafficDecoderNodeIds, from_1_to_127_are_those_of_the_file) {
  const std::map<std::uint8_t, std::string> nodes{{0x01, "node 0x01  "}, {0x7F, "node 0x7F  "}};
  for (const auto& [node_id, node] : nodes) {
    file.nodes.assign(1, NodeConfig());
    file.nodes.front().node_id = node_id;
    file.nodes.front().board.pdos = {{4, "RPDO", 0, {{0x2000, 0, 8, "red"}}}};
    EXPECT_EQ(line(0x500U + node_id), node + "RPDO 4     0x2000/0 (red) = 21 (33)");
    EXPECT_EQ(line(0x480U + node_id), node + "TPDO 4     21 (not in the board file)");
  }
}

TEST(TrafficDecoderPadding, is_an_index_from_1_to_7) {
  const std::map<std::uint16_t, std::string> words{{0x0000, "0x0000/0 = 21 (33)"},
                                                   {0x0001, "21"},
                                                   {0x0007, "21"},
                                                   {0x0008, "0x0008/0 = 21 (33)"},
                                                   {0x0010, "0x0010/0 = 21 (33)"},
                                                   {0x001F, "0x001F/0 = 21 (33)"},
                                                   {0x0020, "0x0020/0 = 21 (33)"}};
  for (const auto& [index, expected] : words) {
    SCOPED_TRACE(index);
    BoardFile file;
    file.nodes.push_back({});
    file.nodes.front().node_id = 0x10;
    file.nodes.front().board.pdos = {{1, "RPDO", 0, {{index, 0, 8, ""}}}};
    const DecodedFrame decoded = TrafficDecoder(file).decode({0x210, 1, {0x21}});
    EXPECT_EQ(traffic_text(milliseconds(0), decoded).substr(10),
              "node 0x10  RPDO 1     " + expected);
  }
}

const std::vector<FrameCase> sdo_cases{
    {"read", 0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0}, "node 0x10  SDO        read wheel 0x6041/0"},
    {"answer",
     0x590,
     {0x4B, 0x41, 0x60, 0, 0x37, 0x02, 0, 0},
     "node 0x10  SDO        answer wheel 0x6041/0 = 37 02 (567, Operation enabled)"},
    {"answer_of_one_byte_with_sign",
     0x590,
     {0x4F, 0x61, 0x60, 0, 0xFA, 0, 0, 0},
     "node 0x10  SDO        answer wheel 0x6061/0 = FA (-6)"},
    {"answer_of_three_bytes_is_no_number",
     0x590,
     {0x47, 0, 0x28, 2, 1, 2, 3, 0},
     "node 0x10  SDO        answer 0x2800/2 = 01 02 03"},
    {"answer_without_size",
     0x590,
     {0x42, 0, 0x28, 0, 1, 0, 0, 0},
     "node 0x10  SDO        answer 0x2800/0 = 01 00 00 00 (1)"},
    {"write",
     0x610,
     {0x2B, 0x40, 0x60, 0, 0x0F, 0, 0, 0},
     "node 0x10  SDO        write wheel 0x6040/0 = 0F 00 (15, enable operation)"},
    {"done", 0x590, {0x60, 0x40, 0x60, 0, 0, 0, 0, 0}, "node 0x10  SDO        done wheel 0x6040/0"},
    {"abort",
     0x590,
     {0x80, 0xFF, 0x5F, 0, 0, 0, 2, 6},
     "node 0x10  SDO        abort 0x06020000, no object at this index, of 0x5FFF/0"},
    {"abort_by_the_client",
     0x610,
     {0x80, 0xFF, 0x5F, 3, 0, 0, 4, 5},
     "node 0x10  SDO        abort 0x05040000, the SDO transfer timed out, of 0x5FFF/3"},
    {"object_that_operations_use",
     0x610,
     {0x40, 0x18, 0x10, 1, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x1018/1 (read_identity, read_vendor)"},
    {"object_that_one_operation_uses",
     0x610,
     {0x40, 0x18, 0x10, 2, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x1018/2 (read_identity)"},
    {"object_that_no_operation_uses",
     0x610,
     {0x40, 0x18, 0x10, 3, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x1018/3"},
    {"sub_index_from_the_payload",
     0x610,
     {0x40, 0x00, 0x25, 9, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x2500/9 (set_any)"},
    {"pump_by_rpdo",
     0x610,
     {0x40, 0x00, 0x22, 1, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x2200/1 (set_pump)"},
    {"pump_by_sdo",
     0x610,
     {0x40, 0x00, 0x22, 3, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x2200/3 (set_pump)"},
    {"no_pump", 0x610, {0x40, 0x00, 0x22, 2, 0, 0, 0, 0}, "node 0x10  SDO        read 0x2200/2"},
    {"sign_by_the_data_type_of_an_operation",
     0x610,
     {0x2B, 0x00, 0x24, 0, 0xFF, 0xFF, 0, 0},
     "node 0x10  SDO        write 0x2400/0 (set_offset) = FF FF (-1)"},
    {"first_object_of_an_axis",
     0x610,
     {0x40, 0x00, 0x60, 0, 0, 0, 0, 0},
     "node 0x10  SDO        read wheel 0x6000/0"},
    {"last_object_before_an_axis",
     0x610,
     {0x40, 0xFF, 0x5F, 0, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x5FFF/0"},
    {"last_object_of_an_axis",
     0x610,
     {0x40, 0xFF, 0x67, 0, 0, 0, 0, 0},
     "node 0x10  SDO        read wheel 0x67FF/0"},
    {"first_object_after_an_axis",
     0x610,
     {0x40, 0x00, 0x68, 0, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x6800/0"},
    {"index_0_is_no_homing_record",
     0x610,
     {0x40, 0, 0, 0, 0, 0, 0, 0},
     "node 0x10  SDO        read 0x0000/0"},
    {"record_of_a_drive_has_no_sign",
     0x590,
     {0x4F, 0x61, 0x60, 1, 0xFA, 0, 0, 0},
     "node 0x10  SDO        answer wheel 0x6061/1 = FA (250)"},
    {"homing_record",
     0x610,
     {0x40, 0x00, 0x21, 9, 0, 0, 0, 0},
     "node 0x10  SDO        read claw 0x2100/9"},
    {"record_inside_an_axis",
     0x610,
     {0x40, 0x00, 0x65, 0, 0, 0, 0, 0},
     "node 0x10  SDO        read inside 0x6500/0"},
    {"strange_node",
     0x633,
     {0x40, 0x41, 0x60, 0, 0, 0, 0, 0},
     "node 0x33 (not in the board file)  SDO        read 0x6041/0"},
    {"short_request",
     0x610,
     {0x40, 0x41, 0x60},
     "node 0x10  SDO        40 41 60 (3 bytes, an SDO frame has 8)"},
    {"short_answer", 0x590, {0x40}, "node 0x10  SDO        40 (1 byte, an SDO frame has 8)"},
    {"short_request_that_holds_all",
     0x610,
     {0x40, 0x41, 0x60, 0},
     "node 0x10  SDO        read wheel 0x6041/0"},
    {"short_answer_that_holds_all",
     0x590,
     {0x4F, 0x61, 0x60, 0, 0xFA},
     "node 0x10  SDO        answer wheel 0x6061/0 = FA (-6)"},
    {"unknown_request",
     0x610,
     {0xE0, 0, 0, 0, 0, 0, 0, 0},
     "node 0x10  SDO        E0 00 00 00 00 00 00 00 (unknown SDO command)"},
    {"unknown_answer",
     0x590,
     {0xE1, 0, 0, 0, 0, 0, 0, 0},
     "node 0x10  SDO        E1 00 00 00 00 00 00 00 (unknown SDO command)"},
    {"segment_out_of_nowhere",
     0x590,
     {0x0B, 1, 2, 0, 0, 0, 0, 0},
     "node 0x10  SDO        last segment of an unknown object: 01 02 (its transfer began unseen)"},
    {"segment_request_out_of_nowhere",
     0x610,
     {0x60, 0, 0, 0, 0, 0, 0, 0},
     "node 0x10  SDO        next segment of an unknown object (its transfer began unseen)"},
    {"segment_confirmed_out_of_nowhere",
     0x590,
     {0x20, 0, 0, 0, 0, 0, 0, 0},
     "node 0x10  SDO        segment taken of an unknown object (its transfer began unseen)"},
};

INSTANTIATE_TEST_SUITE_P(Service, SingleFrame, testing::ValuesIn(service_cases), row_name);
INSTANTIATE_TEST_SUITE_P(Pdo, SingleFrame, testing::ValuesIn(pdo_cases), row_name);
INSTANTIATE_TEST_SUITE_P(Sdo, SingleFrame, testing::ValuesIn(sdo_cases), row_name);

TEST_F(TrafficDecoderTest, segmented_read_is_put_together) {
  EXPECT_EQ(line(0x610, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0}), "node 0x10  SDO        read 0x1008/0");
  EXPECT_EQ(line(0x590, {0x41, 0x08, 0x10, 0, 9, 0, 0, 0}),
            "node 0x10  SDO        answer 0x1008/0, 9 bytes in segments");
  EXPECT_EQ(line(0x610, {0x60, 0, 0, 0, 0, 0, 0, 0}),
            "node 0x10  SDO        next segment of 0x1008/0");
  EXPECT_EQ(line(0x590, {0x00, 'M', 'o', 't', 'o', 'r', ' ', 'b'}),
            "node 0x10  SDO        segment of 0x1008/0: 4D 6F 74 6F 72 20 62");
  EXPECT_EQ(line(0x610, {0x70, 0, 0, 0, 0, 0, 0, 0}),
            "node 0x10  SDO        next segment of 0x1008/0");
  EXPECT_EQ(line(0x590, {0x1B, 'o', 'x', 0, 0, 0, 0, 0}),
            "node 0x10  SDO        last segment of 0x1008/0: 6F 78; whole: "
            "4D 6F 74 6F 72 20 62 6F 78 (\"Motor box\")");
  EXPECT_THAT(line(0x590, {0x01, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("an unknown object"));
}

TEST_F(TrafficDecoderTest, segmented_write_is_put_together) {
  EXPECT_EQ(line(0x610, {0x21, 0x00, 0x20, 2, 8, 0, 0, 0}),
            "node 0x10  SDO        write led 0x2000/2, 8 bytes in segments");
  EXPECT_EQ(line(0x590, {0x60, 0x00, 0x20, 2, 0, 0, 0, 0}),
            "node 0x10  SDO        ready for segments of led 0x2000/2");
  EXPECT_EQ(line(0x610, {0x00, 1, 0, 0, 0, 0, 0, 0}),
            "node 0x10  SDO        segment of led 0x2000/2: 01 00 00 00 00 00 00");
  EXPECT_EQ(line(0x590, {0x20, 0, 0, 0, 0, 0, 0, 0}),
            "node 0x10  SDO        segment taken of led 0x2000/2");
  EXPECT_EQ(line(0x610, {0x1D, 0, 0, 0, 0, 0, 0, 0}),
            "node 0x10  SDO        last segment of led 0x2000/2: 00; whole: "
            "01 00 00 00 00 00 00 00 (1)");
  EXPECT_EQ(line(0x590, {0x30, 0, 0, 0, 0, 0, 0, 0}), "node 0x10  SDO        done led 0x2000/2");
}

TEST_F(TrafficDecoderTest, empty_value_has_no_bytes) {
  line(0x610, {0x20, 0x00, 0x28, 0, 0, 0, 0, 0});
  EXPECT_EQ(line(0x610, {0x0F, 0, 0, 0, 0, 0, 0, 0}),
            "node 0x10  SDO        last segment of 0x2800/0: no bytes; whole: no bytes");
}

TEST_F(TrafficDecoderTest, segment_that_comes_twice_is_not_counted_twice) {
  line(0x590, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0});
  line(0x590, {0x00, 1, 2, 3, 4, 5, 6, 7});
  EXPECT_EQ(line(0x590, {0x00, 1, 2, 3, 4, 5, 6, 7}),
            "node 0x10  SDO        segment of 0x1008/0: 01 02 03 04 05 06 07 "
            "(out of turn: the toggle bit is that of the segment before)");
  EXPECT_THAT(line(0x590, {0x1D, 8, 0, 0, 0, 0, 0, 0}),
              HasSubstr("whole: 01 02 03 04 05 06 07 08 ("));
}

TEST_F(TrafficDecoderTest, size_that_was_announced_is_compared_with_what_came) {
  line(0x590, {0x41, 0x08, 0x10, 0, 5, 0, 0, 0});
  EXPECT_THAT(line(0x590, {0x01, 1, 2, 3, 4, 5, 6, 7}),
              HasSubstr("(announced were 5 bytes, 7 came)"));
}

TEST_F(TrafficDecoderTest, long_value_is_kept_in_part_only) {
  line(0x590, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0});
  for (int pair = 0; pair < 200; ++pair) {
    line(0x590, {0x00, 1, 1, 1, 1, 1, 1, 1});
    line(0x590, {0x10, 1, 1, 1, 1, 1, 1, 1});
  }
  const auto last = json(0x590, {0x0D, 2, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(last["size"], 2801);
  EXPECT_EQ(last["whole"].size(), SdoTraffic::kept_bytes);
}

TEST_F(TrafficDecoderTest, answer_about_another_object_is_told) {
  line(0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0});
  EXPECT_EQ(line(0x590, {0x4F, 0x00, 0x28, 1, 5, 0, 0, 0}),
            "node 0x10  SDO        answer 0x2800/1 = 05 (5) (asked for was 0x6041/0)");
  line(0x610, {0x2F, 0x00, 0x28, 1, 5, 0, 0, 0});
  EXPECT_EQ(line(0x590, {0x60, 0x00, 0x28, 2, 0, 0, 0, 0}),
            "node 0x10  SDO        done 0x2800/2 (written was 0x2800/1)");
}

TEST_F(TrafficDecoderTest, answer_after_the_end_of_a_transfer_is_not_compared_with_it) {
  line(0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0});
  line(0x590, {0x4B, 0x41, 0x60, 0, 1, 0, 0, 0});
  EXPECT_EQ(json(0x590, {0x4F, 0x00, 0x28, 1, 5, 0, 0, 0}).count("problem"), 0U);
  line(0x610, {0x2F, 0x00, 0x28, 1, 5, 0, 0, 0});
  line(0x590, {0x60, 0x00, 0x28, 1, 0, 0, 0, 0});
  EXPECT_EQ(json(0x590, {0x60, 0x00, 0x28, 2, 0, 0, 0, 0}).count("problem"), 0U);
}

TEST_F(TrafficDecoderTest, transfers_of_two_nodes_are_kept_apart) {
  line(0x590, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0});
  line(0x591, {0x40, 0x09, 0x10, 0, 0, 0, 0, 0});
  EXPECT_THAT(line(0x590, {0x01, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("last segment of 0x1008/0"));
  EXPECT_THAT(line(0x591, {0x01, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("last segment of 0x1009/0"));
}

TEST_F(TrafficDecoderTest, what_ends_a_transfer_under_way) {
  struct Case {
    std::string name;
    std::uint16_t id;
    std::vector<std::uint8_t> data;
  };
  const std::vector<Case> cases{
      {"boot-up", 0x710, {0}},
      {"abort of the node", 0x590, {0x80, 0x08, 0x10, 0, 0, 0, 0, 8}},
      {"abort of the client", 0x610, {0x80, 0x08, 0x10, 0, 0, 0, 4, 5}},
      {"another request", 0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    line(0x590, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0});
    line(row.id, row.data);
    EXPECT_THAT(line(0x590, {0x00, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("an unknown object"));
  }
}

TEST_F(TrafficDecoderTest, block_download_is_not_taken_for_other_transfers) {
  EXPECT_THAT(line(0x610, {0xC2, 0x00, 0x20, 1, 9, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x590, {0xA4, 0x00, 0x20, 1, 2, 0, 0, 0}), HasSubstr("block transfer"));
  // Segment 0x40 of the block has the first byte of a read.
  EXPECT_EQ(line(0x610, {0x40, 1, 2, 3, 4, 5, 6, 7}),
            "node 0x10  SDO        block transfer, not decoded: 40 01 02 03 04 05 06 07");
  EXPECT_THAT(line(0x590, {0xA2, 2, 2, 0, 0, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x610, {0xD5, 0, 0, 0, 0, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x590, {0xA1, 0, 0, 0, 0, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0}), HasSubstr("read wheel 0x6041/0"));
}

TEST_F(TrafficDecoderTest, block_upload_is_not_taken_for_other_transfers) {
  EXPECT_THAT(line(0x610, {0xA4, 0x00, 0x20, 1, 9, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x590, {0xC6, 0x00, 0x20, 1, 9, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x610, {0xA3, 0, 0, 0, 0, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x590, {0x60, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x610, {0xA1, 0, 0, 0, 0, 0, 0, 0}), HasSubstr("block transfer"));
  EXPECT_THAT(line(0x590, {0x60, 0x40, 0x60, 0, 0, 0, 0, 0}), HasSubstr("done wheel 0x6040/0"));
}

TEST_F(TrafficDecoderTest, block_transfer_that_was_given_up_ends_with_the_next_request) {
  line(0x610, {0xA4, 0x00, 0x20, 1, 9, 0, 0, 0});
  EXPECT_THAT(line(0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0}), HasSubstr("read wheel 0x6041/0"));
  EXPECT_THAT(line(0x590, {0x4B, 0x41, 0x60, 0, 1, 0, 0, 0}), HasSubstr("answer wheel 0x6041/0"));
  line(0x610, {0xC2, 0x00, 0x20, 1, 9, 0, 0, 0});
  EXPECT_THAT(line(0x590, {0x80, 0x00, 0x20, 1, 0, 0, 0, 8}), HasSubstr("abort 0x08000000"));
  EXPECT_THAT(line(0x610, {0x40, 0x41, 0x60, 0, 0, 0, 0, 0}), HasSubstr("read wheel 0x6041/0"));
}

TEST_F(TrafficDecoderTest, end_of_a_block_transfer_that_was_not_seen_begins_none) {
  for (const std::uint8_t end : std::vector<std::uint8_t>{0xA1, 0xC1}) {
    EXPECT_THAT(line(0x610, {end, 0, 0, 0, 0, 0, 0, 0}), HasSubstr("block transfer"));
    EXPECT_THAT(line(0x590, {0x60, 0x40, 0x60, 0, 0, 0, 0, 0}), HasSubstr("done wheel 0x6040/0"));
    EXPECT_THAT(line(0x610, {0x40, 0x40, 0x60, 0, 0, 0, 0, 0}), HasSubstr("read wheel 0x6040/0"));
  }
}

TEST_F(TrafficDecoderTest, segment_of_the_other_direction_is_not_of_the_transfer) {
  line(0x590, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0});
  EXPECT_THAT(line(0x610, {0x00, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("an unknown object"));
  EXPECT_THAT(line(0x590, {0x20, 0, 0, 0, 0, 0, 0, 0}), HasSubstr("an unknown object"));
  EXPECT_THAT(line(0x590, {0x00, 1, 2, 3, 4, 5, 6, 7}), HasSubstr("segment of 0x1008/0"));
}

TEST_F(TrafficDecoderTest, heartbeat_tells_whether_the_state_has_changed) {
  std::vector<bool> changed;
  for (const int state : {0, 127, 127, 5, 0x85, 5, 4, 0, 0}) {
    changed.push_back(json(0x710, {static_cast<std::uint8_t>(state)})["changed"]);
  }
  EXPECT_THAT(changed, ElementsAre(true, true, false, true, false, false, true, true, false));
}

TEST_F(TrafficDecoderTest, json_of_every_content) {
  struct Case {
    std::uint16_t id;
    std::vector<std::uint8_t> data;
    std::string json;
  };
  const std::vector<Case> cases{
      {0,
       {1, 0},
       R"({"t":1.5,"id":0,"data":[1,0],"kind":"nmt","node_id":0,"in_board_file":true,"command":1,)"
       R"("command_text":"start"})"},
      {0x710,
       {0},
       R"({"t":1.5,"id":1808,"data":[0],"kind":"boot_up","node_id":16,"in_board_file":true,"state":0,)"
       R"("state_text":"boot-up","changed":true})"},
      {0x733,
       {5},
       R"({"t":1.5,"id":1843,"data":[5],"kind":"heartbeat","node_id":51,"in_board_file":false,)"
       R"("state":5,"state_text":"operational","changed":true})"},
      {0x090,
       {0x10, 0x82, 0x11, 3, 0, 0, 0, 0},
       R"({"t":1.5,"id":144,"data":[16,130,17,3,0,0,0,0],"kind":"emergency","node_id":16,)"
       R"("in_board_file":true,"error_code":33296,)"
       R"("error_words":"PDO not taken: its length is wrong","error_register":17,)"
       R"("error_register_words":"generic, communication","device_data":[3,0,0,0,0]})"},
      {0x090,
       {0, 0xA0, 0, 0, 0, 0, 0, 0},
       R"({"t":1.5,"id":144,"data":[0,160,0,0,0,0,0,0],"kind":"emergency","node_id":16,)"
       R"("in_board_file":true,"error_code":40960,"error_register":0,)"
       R"("error_register_words":"no error","device_data":[0,0,0,0,0]})"},
      {0x080, {}, R"({"t":1.5,"id":128,"data":[],"kind":"sync"})"},
      {0x100, {1}, R"({"t":1.5,"id":256,"data":[1],"kind":"time"})"},
      {0x7E5, {1}, R"({"t":1.5,"id":2021,"data":[1],"kind":"other"})"},
      {0x210,
       {0x0C, 0xFE, 0xFF, 0xFF},
       R"({"t":1.5,"id":528,"data":[12,254,255,255],"kind":"rpdo","node_id":16,"in_board_file":true,)"
       R"("number":1,"fields":[{"index":24831,"sub_index":0,"device":"wheel","field":"velocity",)"
       R"("bit_length":32,"value":-500}],"problem":"4 bytes, the mapping needs 6"})"},
      {0x190,
       {0x37, 0x02},
       R"({"t":1.5,"id":400,"data":[55,2],"kind":"tpdo","node_id":16,"in_board_file":true,"number":1,)"
       R"("fields":[{"index":24641,"sub_index":0,"device":"wheel","bit_length":16,"value":567,)"
       R"("words":"Operation enabled"}],)"
       R"("also":["RPDO 2 of node 0x11"]})"},
      {0x610,
       {0x40, 0x18, 0x10, 2, 0, 0, 0, 0},
       R"({"t":1.5,"id":1552,"data":[64,24,16,2,0,0,0,0],"kind":"sdo_request","node_id":16,)"
       R"("in_board_file":true,"step":"read","index":4120,"sub_index":2,)"
       R"("operations":["read_identity"]})"},
      {0x590,
       {0x4B, 0x18, 0x10, 2, 1, 2, 0, 0},
       R"({"t":1.5,"id":1424,"data":[75,24,16,2,1,2,0,0],"kind":"sdo_answer","node_id":16,)"
       R"("in_board_file":true,"step":"value","index":4120,"sub_index":2,)"
       R"("operations":["read_identity"],"bytes":[1,2],"value":513})"},
      {0x590,
       {0x80, 0xFF, 0x5F, 0, 0, 0, 2, 6},
       R"({"t":1.5,"id":1424,"data":[128,255,95,0,0,0,2,6],"kind":"sdo_answer","node_id":16,)"
       R"("in_board_file":true,"step":"abort","index":24575,"sub_index":0,)"
       R"("abort_code":100794368,"abort_text":"no object at this index"})"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(json(row.id, row.data).dump(), row.json);
  }
}

/// A board file that says what values mean.
class DescribedTraffic : public TrafficDecoderTest {
 protected:
  DescribedTraffic() {
    auto& values = board.file->nodes.front().values;
    values[{0x60FF, 0}].unit = "m/s";
    values[{0x60FF, 0}].scale = 0.001;
    values[{0x2000, 1}].values = {{"dark", Count::of(0)}, {"breath", Count::of(2)}};
    values[{0x2400, 1}].type = ValueType::text;
    values[{0x2400, 2}].type = ValueType::float32;
    values[{0x2400, 2}].unit = "V";
  }
};

TEST_F(DescribedTraffic, fields_have_units_and_names) {
  EXPECT_EQ(line(0x210, {0xD4, 0xFE, 0xFF, 0xFF, 0, 2}),
            "node 0x10  RPDO 1     wheel 0x60FF/0 (velocity) = D4 FE FF FF (-300, -0.3 m/s), "
            "led 0x2000/1 (red) = 02 (2, breath)");
  const auto fields = json(0x210, {0xD4, 0xFE, 0xFF, 0xFF, 0, 2})["fields"];
  EXPECT_EQ(fields[0]["value"], -300);
  EXPECT_EQ(fields[0]["words"], "-0.3 m/s");
  EXPECT_EQ(fields[1]["words"], "breath");
}

TEST_F(DescribedTraffic, values_by_sdo_have_their_type) {
  const std::vector<std::uint8_t> text{0x43, 0x00, 0x24, 1, 'b', 'l', 'u', 'e'};
  EXPECT_EQ(line(0x590, text), "node 0x10  SDO        answer 0x2400/1 = 62 6C 75 65 (\"blue\")");
  EXPECT_EQ(json(0x590, text)["words"], "blue");
  EXPECT_FALSE(json(0x590, text).contains("value"));
  const std::vector<std::uint8_t> voltage{0x23, 0x00, 0x24, 2, 0, 0, 0x48, 0x41};
  EXPECT_EQ(line(0x610, voltage), "node 0x10  SDO        write 0x2400/2 = 00 00 48 41 (12.5 V)");
  EXPECT_EQ(json(0x610, voltage)["value"], 12.5);
}

TEST_F(DescribedTraffic, text_of_a_device_is_escaped) {
  const std::vector<std::uint8_t> text{0x43, 0x00, 0x24, 1, 0x1B, '[', '2', 'J'};
  EXPECT_EQ(line(0x590, text),
            "node 0x10  SDO        answer 0x2400/1 = 1B 5B 32 4A (\"\\x1B[2J\")");
}

TEST_F(TrafficDecoderTest, json_has_the_words_of_a_value_in_segments) {
  json(0x610, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0});
  json(0x590, {0x41, 0x08, 0x10, 0, 5, 0, 0, 0});
  json(0x610, {0x60, 0, 0, 0, 0, 0, 0, 0});
  const auto last = json(0x590, {0x05, 'M', 'o', 't', 'o', 'r', 0, 0});
  EXPECT_EQ(last["step"], "last_segment");
  EXPECT_EQ(last["words"], "Motor");
}

TEST_F(TrafficDecoderTest, json_names_every_step) {
  struct Case {
    std::uint16_t id;
    std::uint8_t first_byte;
    std::string step;
  };
  const std::vector<Case> cases{
      {0x610, 0x40, "read"},
      {0x590, 0x4F, "value"},
      {0x590, 0x41, "value_in_segments"},
      {0x610, 0x60, "next_segment"},
      {0x590, 0x00, "segment"},
      {0x590, 0x11, "last_segment"},
      {0x610, 0x2F, "write"},
      {0x590, 0x60, "done"},
      {0x610, 0x21, "write_in_segments"},
      {0x590, 0x60, "ready_for_segments"},
      {0x610, 0x00, "segment"},
      {0x590, 0x20, "segment_taken"},
      {0x590, 0x80, "abort"},
      {0x610, 0xE0, "unknown"},
      {0x610, 0xC0, "block"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(json(row.id, {row.first_byte, 0, 0x28, 0, 7, 0, 0, 0})["step"], row.step);
  }
}

TEST_F(TrafficDecoderTest, time_is_shown_in_seconds) {
  const DecodedFrame sync = decoder.decode({0x080, 0, {}});
  EXPECT_EQ(traffic_text(milliseconds(0), sync).substr(0, 10), "   0.000  ");
  EXPECT_EQ(traffic_text(std::chrono::microseconds(1023999), sync).substr(0, 10), "   1.023  ");
  EXPECT_EQ(traffic_text(std::chrono::hours(10000), sync).substr(0, 14), "36000000.000  ");
}

TEST_F(TrafficDecoderTest, frame_that_no_bus_has_is_taken) {
  CanFrame frame{0x210, 255, {1, 2, 3, 4, 5, 6, 7, 8}};
  EXPECT_EQ(decoder.decode(frame).frame.length, 8);
  frame.id = 0xFFFF;
  EXPECT_EQ(decoder.decode(frame).kind, TrafficKind::other);
}

class RandomFrames : public TrafficDecoderTest {
 protected:
  CanFrame frame(std::uint16_t id, std::uint8_t length) {
    CanFrame frame{id, length, {}};
    std::generate_n(frame.data.begin(), length,
                    [this] { return static_cast<std::uint8_t>(random()); });
    return frame;
  }

  void expect_to_be_taken(const CanFrame& frame) {
    const DecodedFrame decoded = decoder.decode(frame);
    EXPECT_EQ(decoded.frame.id, frame.id);
    EXPECT_EQ(nlohmann::ordered_json::parse(traffic_json(milliseconds(0), decoded))["data"].size(),
              frame.length);
    EXPECT_EQ(traffic_text(milliseconds(0), decoded).find('\n'), std::string::npos);
  }

  /// The seed of the command line, else a fresh one.
  const std::uint32_t seed = GTEST_FLAG_GET(random_seed) != 0
                                 ? static_cast<std::uint32_t>(GTEST_FLAG_GET(random_seed))
                                 : 1 + std::random_device{}() % 99999;
  testing::ScopedTrace trace{__FILE__, __LINE__,
                             "repeat with --gtest_random_seed=" + std::to_string(seed)};
  std::mt19937 random{seed};
};

TEST_F(RandomFrames, of_every_identifier_and_length_are_taken_in_any_order) {
  std::vector<CanFrame> frames;
  for (unsigned id = 0; id <= 0x7FF; ++id) {
    for (std::uint8_t length = 0; length <= 8; ++length) {
      frames.push_back(frame(static_cast<std::uint16_t>(id), length));
    }
  }
  std::shuffle(frames.begin(), frames.end(), random);
  for (const CanFrame& each : frames) {
    expect_to_be_taken(each);
  }
}

TEST_F(RandomFrames, of_sdo_transfers_are_taken) {
  for (int count = 0; count < 15000; ++count) {
    expect_to_be_taken(frame(random() % 2 == 0 ? 0x610 : 0x590, 8));
  }
}

TEST(TrafficDecoderNames, with_control_characters_stay_on_their_line) {
  const LoadedBoard board =
      parse_board(R"(nodes: [{node_id: 1, device_od_map: {"a\nb": {base_index: 0x2000}}}])");
  TrafficDecoder decoder(board.file.value());
  const DecodedFrame read = decoder.decode({0x601, 8, {0x40, 0x00, 0x20}});
  EXPECT_THAT(traffic_text(milliseconds(0), read), HasSubstr("read a\\x0Ab 0x2000/0"));
}

/// The simulated node speaks by rules of its own: nothing that it says may look odd.
TEST_F(TrafficDecoderTest, frames_of_a_simulated_node_have_no_problem) {
  SimulatedBusNode node(0x10, board.file->nodes.front().board);
  std::vector<CanFrame> frames;
  node.boot(frames);
  node.receive({0x000, 2, {1, 0}}, frames);
  node.receive({0x610, 8, {0x40, 0x08, 0x10, 0}}, frames);
  node.receive({0x610, 8, {0x60}}, frames);
  node.receive({0x610, 8, {0x70}}, frames);
  node.receive({0x610, 8, {0x2B, 0x40, 0x60, 0, 6}}, frames);
  node.device().inject_fault("wheel");
  node.tick(milliseconds(1), frames);
  std::vector<std::string> problems;
  std::vector<TrafficKind> kinds;
  for (const CanFrame& frame : frames) {
    const DecodedFrame decoded = decoder.decode(frame);
    kinds.push_back(decoded.kind);
    if (decoded.problem) {
      problems.push_back(traffic_text(milliseconds(0), decoded));
    }
  }
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_THAT(kinds, testing::IsSupersetOf({TrafficKind::boot_up, TrafficKind::tpdo,
                                            TrafficKind::sdo_answer, TrafficKind::emergency}));
}

}  // namespace
}  // namespace velmora_can_bridge
